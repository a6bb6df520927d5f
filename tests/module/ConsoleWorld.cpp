// A pass has no end of its own on the console: it ends where the next one begins, and both are line feeds. So each line
// is followed by one that is no number, with a number in it that makes its complaint unique; the complaint shows where
// the line's pass has ended. It displays the current menu and changes nothing.
#include "ConsoleWorld.h"

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;

namespace {

// Behind what a test configures: the first of two equal keys counts.
constexpr char kQuiet[] =
    R"("GpioInputPwm_ENS_Used": false, "GpioInputButton_nRQST_Used": false, "AudioRelayUsed": false)";

std::string Complaint(int number) {
    return "getIntParam : *piVal = " + std::to_string(number) + " ==> bad parameter\n";
}

/// Where the output of the line begins that follows a displayed menu: behind the menu's last line, the line feed that
/// ends its pass and the two around the reading. The eCall menu is followed by an empty line.
size_t EndOfMenu(const std::string& text) {
    const size_t lineFeeds = text.starts_with(" ECALL SRVC MENU") ? 4 : 3;
    const size_t end = text.find(std::string(lineFeeds, '\n'));
    return end == std::string::npos ? end : end + lineFeeds;
}

}  // namespace

std::string Padded(std::string text, size_t width) {
    EXPECT_LE(text.size(), width);
    text.resize(width, ' ');
    return text;
}

void ConsoleWorld::Start(const std::string& members) {
    ASSERT_TRUE(peer.Start());
    peer.SetState({});  // stays so: what the unit asks for starts no call
    StartAsConfigured((members.empty() ? "" : members + ", ") + kQuiet);
}

void ConsoleWorld::StartAlone(const std::string& members) {
    StartAsConfigured((members.empty() ? "" : members + ", ") + kQuiet + R"(, "ConnectEcallService": false)");
}

void ConsoleWorld::StartAsConfigured(const std::string& members) {
    Configure(members);
    module.StartService({"-m"}, true);
    module.Service().Input(std::to_string(++typed) + "x\n");
    AwaitPass(Complaint(typed));
}

std::string ConsoleWorld::Type(const std::string& line) {
    module.Service().Input(line + "\n" + std::to_string(++typed) + "x\n");
    std::string pass = AwaitPass("\n\n" + Complaint(typed));
    const size_t start = EndOfMenu(pass);
    if (start == std::string::npos) {
        ADD_FAILURE() << "no menu in \"" << pass << "\"";
        return pass;
    }
    return pass.substr(start);
}

std::string ConsoleWorld::TypeAll(const std::vector<std::string>& lines) {
    std::string output;
    for (const std::string& line : lines) {
        output = Type(line);
    }
    return output;
}

/// Waits for output that ends so and answers what came before it and after the previous such end.
std::string ConsoleWorld::AwaitPass(const std::string& end) {
    for (const auto deadline = Journal::Clock::now() + Journal::kLimit; Journal::Clock::now() < deadline;) {
        const std::string output = module.Service().Output();
        if (const size_t found = output.find(end, seen); found != std::string::npos) {
            std::string pass = output.substr(seen, found - seen);
            seen = found + end.size();
            return pass;
        }
        std::this_thread::sleep_for(1ms);
    }
    throw JournalTimeout("no \"" + end + "\" on the console; its end:\n" + module.journal.Dump());
}
