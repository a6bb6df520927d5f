// The program: one virtual module, the service under test, an eCall service beside it, and a story that they play.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "EcallPeer.h"
#include "Module.h"
#include "Namespaces.h"
#include "Story.h"
#include "StoryParts.h"
#include "TerminalConsole.h"

namespace {

enum ExitStatus { kPassed = 0, kFailed = 1, kMisused = 2 };

constexpr const char* kUsage =
    "ecall-sim play NAME [--service PATH] [--track FILE] [--verbose]\n"
    "                                                  plays a story on a virtual module; exit status 0 if all came "
    "true\n"
    "ecall-sim shell [--service PATH]                  a shell inside a module on which the service runs\n"
    "ecall-sim console [--service PATH]                the debug console of a service that runs in a module\n"
    "ecall-sim --list                                  the stories\n"
    "ecall-sim --help                                  this text\n"
    "\n"
    "--service PATH  the service's program; otherwise the one built beside this program\n"
    "--track FILE    a GPX file that the vehicle drives along; otherwise the one of the story\n"
    "--verbose       shows every entry of the journal too\n"
    "NO_COLOR set in the environment, or output that is no terminal: no colours.\n";

/// A standard stream that came closed would become whatever is opened next: the account would be written there.
void OpenStandardStreams() {
    int descriptor = -1;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        close(descriptor);
    }
}

struct CommandLine {
    std::string command;
    std::string story;
    std::string service;  ///< empty: as built
    std::string track{};  ///< empty: the story's own
    bool verbose = false;
};

int Misused(const std::string& complaint) {
    std::fprintf(stderr, "ecall-sim: %s\n%s", complaint.c_str(), kUsage);
    return kMisused;
}

int ListStories() {
    for (const Story& story : Stories()) {
        std::printf("%-13s %s\n", story.name.c_str(), story.about.c_str());
    }
    return kPassed;
}

std::string UnknownStory(const std::string& name) {
    std::string text = "no story is called \"" + name + "\"; there are:";
    for (const Story& story : Stories()) {
        text += " " + story.name;
    }
    return text;
}

std::string NoUseOfTrack() {
    std::string text = "--track is of use only to play a story that drives:";
    for (const Story& story : Stories()) {
        text += story.track.empty() ? "" : " " + story.name;
    }
    return text;
}

bool IsColourWanted() {
    const char* refused = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && (refused == nullptr || *refused == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

/// A service that people can watch: a call lasts until the answering point hangs up.
EcallService HumanService() {
    EcallService service;
    service.timings = kHumanPace;
    service.timings.voice = kNoLimit;
    return service;
}

int Play(const Story& story, const GpxTrack& track, bool verbose) {
    bool passed = false;
    SetComplaintHandler([&](const std::string& complaint) {
        if (passed) {
            std::fprintf(stderr, "ecall-sim: %s\n", complaint.c_str());
        }
        passed = false;
    });
    {
        Module module;
        EcallPeer peer(module.journal, HumanService());
        LocationPeer locations(module.journal);
        StoryWorld world{.module = module, .peer = peer, .locations = locations, .track = track};
        passed = PlayStory(story, world, module.journal, {.colour = IsColourWanted(), .verbose = verbose},
                           [](const std::string& line) {
                               std::puts(line.c_str());
                               std::fflush(stdout);
                           });
    }
    return passed ? kPassed : kFailed;
}

/// The child that becomes the shell. Without job control: the terminal belongs to a process group outside the module's
/// PID namespace, which the shell could not give it back to.
[[noreturn]] void BecomeShell(const Module& module) {
    const char* environment[] = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "PS1=module# ", nullptr};
    std::signal(SIGINT, SIG_DFL);
    if (chroot(module.root.Path().c_str()) == 0 && chdir("/") == 0) {
        execle("/bin/sh", "sh", "-i", "+m", nullptr, environment);
    }
    _exit(kFailed);
}

/// Runs an interactive shell with the module's root as its own, and answers its exit status.
int RunShell(const Module& module) {
    std::signal(SIGINT, SIG_IGN);  // Ctrl-C is for what the shell runs
    const pid_t shell = fork();
    if (shell == 0) {
        BecomeShell(module);
    }
    int status = 0;
    if (shell < 0 || waitpid(shell, &status, 0) < 0) {
        return kFailed;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
}

int Shell() {
    Module module;
    EcallPeer peer(module.journal, HumanService());
    LocationPeer locations(module.journal);
    StoryWorld world{.module = module, .peer = peer, .locations = locations};
    SwitchOn(world);
    if (std::filesystem::exists(Module::ToolProgram())) {
        module.root.Install(Module::ToolProgram());
    }
    std::printf("Inside the module; the service runs. Its trace: tail -f %s\n", file::kTrace);
    std::fflush(stdout);
    const int status = RunShell(module);
    module.Service().Kill();  // before its peer goes: without one, a service that still starts up ends by itself
    return status;
}

/// Waits until a service that starts awaits events, or has ended; answers from where its journal is to be shown. What
/// one that has ended said is the reason for its end.
uint64_t AwaitStart(const Journal& journal, const std::string& service) {
    Match started;
    started.subject = service;
    started.also = [](const Entry& entry) {
        return entry.kind == Kind::Process ? entry.text != "started"
                                           : entry.text.find("Wait for an event (blocking wait) ") != std::string::npos;
    };
    const Entry entry = journal.Await(started);
    return entry.kind == Kind::Process ? 0 : entry.seq + 1;
}

/// What the service says until it awaits events is not shown: the person types after that.
int Console() {
    std::signal(SIGPIPE, SIG_IGN);  // the service may end while it is fed
    SetComplaintHandler(
        [](const std::string& complaint) { std::fprintf(stderr, "ecall-sim: %s\n", complaint.c_str()); });
    std::puts("The service's debug console: 0 shows the menu, 1 to 3 open the others, . leads back; Ctrl-D ends it.");
    std::fflush(stdout);
    Module module;
    EcallPeer peer(module.journal, HumanService());
    if (!peer.Start()) {
        throw std::runtime_error("the eCall service's port cannot be bound");
    }
    ModuleProcess& service = module.StartService({"-m"}, true);
    const bool isGood = RunTerminalConsole(module.journal, service, AwaitStart(module.journal, service.Name()));
    service.Kill();  // before its peer goes
    return isGood ? kPassed : kFailed;
}

/// Before the namespaces are made: the module's mounts may hide the file.
GpxTrack LoadTrack(const CommandLine& line) {
    if (!line.track.empty()) {
        return GpxLoad(line.track);
    }
    return line.command == "play" ? StoryTrack(*FindStory(line.story)) : GpxTrack{};
}

int Perform(const CommandLine& line, const GpxTrack& track) {
    if (line.command == "shell") {
        return Shell();
    }
    return line.command == "console" ? Console() : Play(*FindStory(line.story), track, line.verbose);
}

int Run(const CommandLine& line, const GpxTrack& track) {
    try {
        return Perform(line, track);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "ecall-sim: %s\n", failure.what());
        return kFailed;
    }
}

/// Reads the options behind the command; empty when all were understood, otherwise the complaint.
std::string ReadOptions(std::span<char*> words, CommandLine& line) {
    if (std::ranges::any_of(words, [](const char* word) { return *word == '\0'; })) {
        return "not understood: an empty word; is a variable not set?";
    }
    for (size_t at = 0; at < words.size(); ++at) {
        const std::string_view word(words[at]);
        if (word == "--verbose") {
            line.verbose = true;
        } else if (word == "--service" && at + 1 < words.size()) {
            line.service = words[++at];
        } else if (word == "--track" && at + 1 < words.size()) {
            line.track = words[++at];
        } else if (line.command == "play" && line.story.empty() && !word.starts_with("-")) {
            line.story = word;
        } else {
            return "not understood: " + std::string(word);
        }
    }
    return "";
}

/// What is wrong with the service's program; empty when it can be run.
std::string WrongService() {
    const std::string program = Module::ServiceProgram();
    return access(program.c_str(), X_OK) == 0
               ? ""
               : program + ": " + std::strerror(errno) + "; give the path of the service's program with --service";
}

}  // namespace

int main(int argc, char** argv) {
    OpenStandardStreams();
    const std::span<char*> words(argv, static_cast<size_t>(argc));
    if (words.size() < 2) {
        return Misused("nothing to do");
    }
    CommandLine line{.command = words[1], .story = "", .service = ""};
    if (line.command == "--help" || line.command == "-h") {
        std::fputs(kUsage, stdout);
        return kPassed;
    }
    if (line.command == "--list") {
        return ListStories();
    }
    if (line.command != "play" && line.command != "shell" && line.command != "console") {
        return Misused("not understood: " + line.command);
    }
    if (const std::string complaint = ReadOptions(words.subspan(2), line); !complaint.empty()) {
        return Misused(complaint);
    }
    if (line.command == "play" && FindStory(line.story) == nullptr) {
        return Misused(line.story.empty() ? "play what? NAME is missing" : UnknownStory(line.story));
    }
    if (!line.track.empty() && (line.command != "play" || FindStory(line.story)->track.empty())) {
        return Misused(NoUseOfTrack());
    }
    if (!line.service.empty()) {
        setenv("ECALLUI_SERVICE", line.service.c_str(), 1);
    }
    if (const std::string complaint = WrongService(); !complaint.empty()) {
        std::fprintf(stderr, "ecall-sim: %s\n", complaint.c_str());
        return kFailed;
    }
    try {
        const GpxTrack track = LoadTrack(line);
        RunInModuleNamespaces([&] { return Run(line, track); });
    } catch (const GpxError& error) {
        std::fprintf(stderr, "ecall-sim: %s\n", error.what());
        return kMisused;
    }
}
