// What the shell offers while a command line is typed; also through bash itself.
#include "CommandLine.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "Commands.h"
#include "UiFields.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::SizeIs;

namespace {

/// What bash offers for these words, the last of which is being typed; each in a line of its own.
std::string Offered(const std::vector<std::string>& words) {
    std::string typed;
    for (const std::string& word : words) {
        typed += " '" + word + "'";
    }
    const std::string command = std::string("bash -c 'PATH=") + ECALLUICTL_FOLDER + ":$PATH; . " + COMPLETION +
                                "; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); $(complete -p ecalluictl | sed -n "
                                "\"s/.*-F \\([^ ]*\\) .*/\\1/p\"); printf \"%s\\n\" \"${COMPREPLY[@]}\"' bash" +
                                typed;
    FILE* const pipe = popen(command.c_str(), "r");
    std::string text;
    std::array<char, 4096> piece{};
    for (size_t count = 0; (count = fread(piece.data(), 1, piece.size(), pipe)) > 0;) {
        text.append(piece.data(), count);
    }
    EXPECT_EQ(0, pclose(pipe));
    return text;
}

}  // namespace

TEST(CommandLine, CommandsAreOfferedFirst) {
    EXPECT_THAT(Candidates({""}),
                ElementsAre("list", "get", "set", "watch", "dump", "load", "check", "version", "mic-test"));
    EXPECT_THAT(Candidates({"l"}), ElementsAre("list", "load"));
    EXPECT_THAT(Candidates({"--json", "v"}), ElementsAre("version"));
    EXPECT_THAT(Candidates({}), SizeIs(9));
}

TEST(CommandLine, OptionsAreThoseOfTheCommand) {
    EXPECT_THAT(Candidates({"-"}), ElementsAre("--help", "--url", "--json", "--timeout", "--version"));
    EXPECT_THAT(Candidates({"watch", "--i"}), ElementsAre("--interval"));
    EXPECT_THAT(Candidates({"get", "--i"}), IsEmpty());
    EXPECT_THAT(Candidates({"list", "--"}), IsSupersetOf({"--offline", "--markdown", "--url"}));
}

TEST(CommandLine, ParametersAreOfferedInAnyCase) {
    EXPECT_THAT(Candidates({"get", "ledpwm"}), ElementsAre("LedPwmPeriodMs"));
    EXPECT_THAT(Candidates({"get", ""}), SizeIs(26));
    EXPECT_THAT(Candidates({"get", "HW"}), IsEmpty()) << "it is in the file only";
    EXPECT_THAT(Candidates({"watch", "7", "EcallM"}), ElementsAre("EcallMicrophoneSource"));
    EXPECT_THAT(Candidates({"version", ""}), IsEmpty());
}

TEST(CommandLine, SetOffersNamesAndValuesInTurn) {
    EXPECT_THAT(Candidates({"set", "LedP"}), ElementsAre("LedPwmPeriodMs"));
    EXPECT_THAT(Candidates({"set", "EcallButtonUsed", ""}), ElementsAre("true", "false"));
    EXPECT_THAT(Candidates({"set", "EcallButtonUsed", "t"}), ElementsAre("true"));
    EXPECT_THAT(Candidates({"set", "EcallMicrophoneSource", ""}), ElementsAre("0", "1"));
    EXPECT_THAT(Candidates({"set", "7", ""}), ElementsAre("10"));
    EXPECT_THAT(Candidates({"set", "22", ""}), ElementsAre("DTR"));
    EXPECT_THAT(Candidates({"set", "7", "10", "LedP"}), ElementsAre("LedPwmPeriodMs"));
    EXPECT_THAT(Candidates({"set", "zebra", ""}), IsEmpty());
}

TEST(CommandLine, SetKnowsTheWordsThatBashMakesOfAnEqualsSign) {
    EXPECT_THAT(Candidates({"set", "EcallButtonUsed", "="}), ElementsAre("true", "false"));
    EXPECT_THAT(Candidates({"set", "EcallButtonUsed", "=", "f"}), ElementsAre("false"));
    EXPECT_THAT(Candidates({"set", "EcallButtonUsed", "=", "false", "LedP"}), ElementsAre("LedPwmPeriodMs"));
    EXPECT_THAT(Candidates({"set", "EcallButtonUsed=false", "LedP"}), ElementsAre("LedPwmPeriodMs"));
}

TEST(CommandLine, ValuesOfOptionsAreNoWords) {
    EXPECT_THAT(Candidates({"set", "--timeout", "5", "LedP"}), ElementsAre("LedPwmPeriodMs"));
    EXPECT_THAT(Candidates({"set", "7", "--timeout", "5", ""}), ElementsAre("10"));
    EXPECT_THAT(Candidates({"--url", "get", "l"}), ElementsAre("list", "load"));
    EXPECT_THAT(Candidates({"watch", "--interval", "0.5", "LedP"}), ElementsAre("LedPwmPeriodMs"));
    EXPECT_THAT(Candidates({"set", "--timeout=5", "LedP"}), ElementsAre("LedPwmPeriodMs"));
    EXPECT_THAT(Candidates({"set", "--timeout", "=", "5", "LedP"}), ElementsAre("LedPwmPeriodMs"));
    EXPECT_THAT(Candidates({"--url", "xirfile", ":", "///get", "l"}), ElementsAre("list", "load"));
    EXPECT_THAT(Candidates({"get", "--timeout", ""}), IsEmpty());
    EXPECT_THAT(Candidates({"--url", "xirtcp", ":", ""}), IsEmpty());
    EXPECT_THAT(Candidates({"zebra", ""}), IsEmpty()) << "no command";
}

TEST(CommandLine, ATimeoutIsTheLimitOfEveryWait) {
    const UiLimits own = LimitsOf({});
    Options options;
    options.timeout = 0.0305;
    const UiLimits given = LimitsOf(options);

    EXPECT_EQ(30000, own.micTest.count());
    EXPECT_EQ(31, given.connect.count());
    EXPECT_EQ(31, given.reply.count());
    EXPECT_EQ(31, given.micTest.count());
}

TEST(CommandLine, TheDocumentsTellTheExitStatuses) {
    std::ifstream file(DOCUMENT);
    const std::string document{std::istreambuf_iterator<char>(file), {}};

    std::string table = "| status | meaning |\n|---|---|\n";
    for (size_t status = 0; status < kExitMeanings.size(); ++status) {
        table += "| " + std::to_string(status) + " | " + kExitMeanings.at(status) + " |\n";
    }
    EXPECT_THAT(document, HasSubstr(table + "\n"));
}

TEST(CommandLine, FilesAreLeftToTheShell) {
    EXPECT_THAT(Candidates({"check", "x"}), ElementsAre("@files"));
    EXPECT_THAT(Candidates({"load", ""}), ElementsAre("@files"));
}

TEST(CommandLine, BashOffersWhatTheProgramSays) {
    EXPECT_EQ("list\nload\n", Offered({"ecalluictl", "l"}));
    EXPECT_EQ("LedPwmPeriodMs\n", Offered({"ecalluictl", "get", "ledp"}));
    EXPECT_EQ("true\nfalse\n", Offered({"ecalluictl", "--url", "xirtcp", ":", "//127.0.0.1", ":", "50101", "set",
                                        "EcallButtonUsed", ""}));
    EXPECT_EQ("\n", Offered({"ecalluictl", "check", ""})) << "bash's own files follow";
    EXPECT_EQ("\n", Offered({"ecalluictl", "version", ""}));
}
