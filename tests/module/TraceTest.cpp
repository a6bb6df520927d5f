// The log of the whole service: its three outputs, its files, and what a broken trace folder may not do.
#include <gmock/gmock.h>
#include <regex.h>
#include <sys/stat.h>
#include <syslog.h>

#include <filesystem>
#include <sstream>

#include "ServiceWorld.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

/// The C library's expressions: under the sanitizers the compiler warns about the inside of those of C++.
class Pattern {
  public:
    explicit Pattern(const std::string& text) {
        EXPECT_EQ(0, regcomp(&expression, ("^(" + text + ")$").c_str(), REG_EXTENDED | REG_NOSUB)) << text;
    }
    Pattern(const Pattern&) = delete;
    Pattern& operator=(const Pattern&) = delete;
    ~Pattern() { regfree(&expression); }
    bool Fits(const std::string& text) const { return regexec(&expression, text.c_str(), 0, nullptr, 0) == 0; }

  private:
    regex_t expression{};
};

constexpr char kArchive[] = "/var/logs/ecall/XirEcallUIappSrvc_traces_1.txt";
constexpr char kReady[] = "Wait for an event (blocking wait) ";

}  // namespace

TEST(TraceOfTheService, AMessageIsOnTheConsoleAndInTheFileOnly) {
    ServiceWorld world;
    world.Start();

    const Entry inFile = world.module.journal.Await(IsTraced("Start of ECALL UI (version=V0.22)"));
    EXPECT_EQ("EcallUIAppSrvc.cpp", inFile.subject);
    EXPECT_TRUE(Pattern("[A-Z][a-z]{2} [ 1-3][0-9] [0-9:]{8}\\.[0-9]{1,3}   EcallUIAppSrvc\\.cpp "
                        "\\( {0,3}[0-9]+\\) : Start of ECALL UI \\(version=V0\\.22\\)\n?")
                    .Fits(inFile.bytes))
        << inFile.bytes;
    EXPECT_THAT(world.SystemLog(), Not(Contains(HasSubstr("Start of ECALL UI"))));
}

TEST(TraceOfTheService, AFailureIsInTheSystemLogTooAndShowsItsWholeSourcePath) {
    ServiceWorld world;
    world.Start();

    const Entry inFile = world.module.journal.Await(IsTraced("Error opening the configuration file"));
    EXPECT_EQ("XirEcallUIappSrvc/srvc_c/src/EcallUIDataState.cpp", inFile.subject);
    world.module.journal.Await(IsOnConsole("Error opening the configuration file"));
    const Entry inSystemLog = world.module.journal.Await(IsInSyslog("Error opening the configuration file"));
    EXPECT_EQ("Error opening the configuration file", inSystemLog.text);
    EXPECT_EQ(LOG_USER | LOG_NOTICE, inSystemLog.result);
}

TEST(TraceOfTheService, OnlyWhatShowsItsWholeSourcePathIsInTheSystemLog) {
    ServiceWorld world;
    world.module.attributes.AddFault(world.module.Sensor("pwm_poll"), Use::Open, Fault::Error(EIO));
    world.Start();
    EXPECT_TRUE(world.IsCrashReported());
    // On the trace's own road: what was said before stands before it.
    const Entry call = world.module.journal.Await(IsTraced("TEcallappServiceState_ActiveAutomaticECall (101)"));
    world.peer.SetState({});
    const Entry over = world.module.journal.Await(IsTraced("TEcallappServiceState_Available_Idle (3)"), call.seq);
    world.module.journal.Await(IsTraced("SetGpioServiceState - exit"), over.seq);

    std::vector<std::string> failures;
    std::vector<std::string> messages;
    for (const Entry& entry : world.module.journal.All(IsKind(Kind::Trace))) {
        const bool isFailure = entry.subject.find('/') != std::string::npos;
        (isFailure ? failures : messages).push_back(entry.text);
    }
    EXPECT_GT(messages.size(), 100U);
    std::vector<std::string> systemLog = world.SystemLog();
    for (std::string& message : systemLog) {
        message.erase(message.find_last_not_of('\n') + 1);  // some messages have a line end of their own
    }
    EXPECT_THAT(systemLog, testing::UnorderedElementsAreArray(failures));
}

namespace {

/// The server of the RPC library ends its lines as it pleases.
std::string WithoutServerLines(std::string output) {
    const std::string end = "XirCreateIEcallUIAppSrvc - thread started ";
    const size_t start = output.find("iecalluiapp_srvcThread binding");
    return output.erase(start, output.find(end) + end.size() - start);
}

}  // namespace

TEST(TraceOfTheService, EveryConsoleLineEndsWithLineFeedAndReturn) {
    ServiceWorld world;
    world.Configure(R"("ConnectEcallService": false)");  // the client library's lines end as they please
    world.module.StartService();
    world.AwaitRest();

    const std::string output = WithoutServerLines(world.module.Service().Output());
    EXPECT_THAT(output, testing::StartsWith("Start of ECALL UI (version=V0.22)\n\rInitConfiguration - Enter\n\r"
                                            "Read configuration file\n\r"));
    EXPECT_THAT(output, HasSubstr("pwm_status = 2\n\n\r"));  // the value read has a line feed of its own
    // The last return leaves the process with the next line: the C library hands lines on at their line feed.
    ASSERT_THAT(output, testing::EndsWith("\n"));
    for (size_t end = output.find('\n'); end + 1 < output.size(); end = output.find('\n', end + 1)) {
        const std::string rest = output.substr(end + 1);
        EXPECT_TRUE(rest.starts_with("\r") || rest.starts_with("\n\r")) << output.substr(0, end);
    }
}

TEST(TraceOfTheService, LinesOfManyThreadsStayWhole) {
    ServiceWorld world;
    world.Start();
    const Pattern line(
        "[A-Z][a-z]{2} [ 1-3][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{1,3} +[A-Za-z_/]+\\.cpp "
        "\\( *[0-9]+\\) : [^\n]*");

    for (int i = 0; i < 200; ++i) {
        world.module.SensorBecomes(SensorStatus::NotDetected);
        EcallState state = world.peer.State();
        state.networkState = static_cast<uint32_t>(i % 5);
        world.peer.SetState(state);
    }
    world.module.journal.AwaitCount(200, IsTraced("AIRBAG_SENSOR_NOT_DETECTED"));

    std::string written = world.module.root.ReadFile(file::kTrace).value();
    written.erase(written.rfind('\n') + 1);  // a line may be under way
    std::istringstream lines(written);
    for (std::string text; std::getline(lines, text);) {
        EXPECT_TRUE(text.empty() || line.Fits(text)) << text;
    }
}

namespace {

/// Where the last message begins; it may have line feeds of its own.
size_t LastMessage(const std::string& log) {
    size_t last = 0;
    size_t start = 0;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line); start += line.size() + 1) {
        last = TraceTail::Parse(line).subject.empty() ? last : start;
    }
    return last;
}

}  // namespace

TEST(TraceOfTheService, AFileThatGrowsTooLongIsPutAside) {
    ServiceWorld world;
    world.Configure(R"("AudioRelayUsed": false, "MaxSizeOfTraceFileInKb": 4, "NbTraceFileStored": 2)");
    world.Start();

    world.AwaitRest();

    const std::string archive = world.module.root.ReadFile(kArchive).value();
    EXPECT_GT(archive.size(), 4096U);
    EXPECT_LE(LastMessage(archive), 4096U);
    EXPECT_LE(world.module.root.ReadFile(file::kTrace).value_or("").size(), 4096U);
    EXPECT_FALSE(world.module.root.Exists("/var/logs/ecall/XirEcallUIappSrvc_traces_2.txt"));
}

namespace {

constexpr size_t kDefaultLimit = size_t{1024} * 1024;

/// The service says its banner, over a live file of this size, and ends before it loads its configuration.
void SayBannerOver(Module& module, size_t size) {
    module.root.WriteFile(file::kConfiguration, R"({"MaxSizeOfTraceFileInKb": 1, "NbTraceFileStored": 4})");
    module.root.WriteFile(file::kTrace, std::string(size, 'x'));
    module.root.WriteFile(kArchive, "earlier");
    module.StartService({"-h"}).WaitForEnd();
}

}  // namespace

TEST(TraceOfTheService, UntilTheConfigurationIsLoadedTheLimitIs1024KibAndOneArchiveIsKept) {
    Module module;

    SayBannerOver(module, kDefaultLimit);

    EXPECT_FALSE(module.root.Exists(file::kTrace));
    const std::string archive = module.root.ReadFile(kArchive).value();
    EXPECT_EQ(std::string(kDefaultLimit, 'x'), archive.substr(0, kDefaultLimit));
    EXPECT_THAT(archive, testing::EndsWith(": Start of ECALL UI (version=V0.22)\n"));
    EXPECT_FALSE(module.root.Exists("/var/logs/ecall/XirEcallUIappSrvc_traces_2.txt"));
}

TEST(TraceOfTheService, UntilTheConfigurationIsLoadedAFileBelow1024KibIsNotPutAside) {
    Module module;

    SayBannerOver(module, kDefaultLimit - 200);

    EXPECT_GT(module.root.ReadFile(file::kTrace).value().size(), kDefaultLimit - 200);
    EXPECT_EQ("earlier", module.root.ReadFile(kArchive));
}

TEST(TraceOfTheService, WithNoFileKeptArchivesAreNamedByTheirTime) {
    ServiceWorld world;
    world.Configure(R"("AudioRelayUsed": false, "MaxSizeOfTraceFileInKb": 4, "NbTraceFileStored": 0)");
    world.Start();

    world.AwaitRest();

    size_t archives = 0;
    for (const auto& entry : std::filesystem::directory_iterator(world.module.root.Outside(file::kTraceDirectory))) {
        const std::string name = entry.path().filename();
        const bool isArchive = Pattern("XirEcallUIappSrvc_traces_[0-9]{8}_[0-9]{6}\\.txt ").Fits(name);
        EXPECT_TRUE(isArchive || name == "XirEcallUIappSrvc_traces.txt") << name;
        archives += isArchive ? 1 : 0;
    }
    EXPECT_GE(archives, 1U);
}

// A broken trace folder.

TEST(TraceOfTheService, ADeletedFolderIsMadeAgainByTheNextLine) {
    ServiceWorld world;
    world.Configure(R"("AudioRelayUsed": false)");  // no delayed switch-off that says a line
    world.Start();
    world.AwaitRest();  // a line in between would make the file again while the folder is being removed
    world.module.root.Remove(file::kTraceDirectory);

    EXPECT_TRUE(world.IsCrashReported());

    world.module.journal.Await(IsTraced("TEcallappServiceState_ActiveAutomaticECall (101)"));
    struct stat folder {};
    ASSERT_EQ(0, stat(world.module.root.Outside(file::kTraceDirectory).c_str(), &folder));
    EXPECT_EQ(0755U, folder.st_mode & 07777);
}

TEST(TraceOfTheService, ACrashIsReportedWithoutAFolder) {
    ServiceWorld world;
    world.module.root.Remove("/var/logs");
    world.module.root.WriteFile("/var/logs", "a file in its place");
    world.Start();

    EXPECT_TRUE(world.IsCrashReported());

    EXPECT_THAT(world.SystemLog(), Contains("SaveTraceLogInfo mkdir error (Not a directory)"));
}

TEST(TraceOfTheService, ACrashIsReportedWhenTheFolderBecomesReadOnly) {
    ServiceWorld world;
    world.Start();
    world.module.journal.Await(IsTraced(kReady));
    world.module.root.MakeReadOnly(file::kTraceDirectory);

    EXPECT_TRUE(world.IsCrashReported());

    EXPECT_THAT(world.TraceMessages(), Not(Contains(HasSubstr("ActiveAutomaticECall"))));
    world.module.root.Restore(file::kTraceDirectory);
}

TEST(TraceOfTheService, ACrashIsReportedWhenTheFolderIsReadOnlyFromTheStart) {
    ServiceWorld world;
    world.module.root.MakeReadOnly(file::kTraceDirectory);
    world.Start();

    EXPECT_TRUE(world.IsCrashReported());

    EXPECT_FALSE(world.module.root.Exists(file::kTrace));
    world.module.root.Restore(file::kTraceDirectory);
}

TEST(TraceOfTheService, ACrashIsReportedWhenTheDiskIsFull) {
    ServiceWorld world;
    world.module.root.LimitSpace(file::kTraceDirectory, 4096);
    world.Start();

    EXPECT_TRUE(world.IsCrashReported());

    EXPECT_EQ(4096U, world.module.root.ReadFile(file::kTrace)->size());
    EXPECT_THAT(world.TraceMessages(), Not(Contains(HasSubstr("ActiveAutomaticECall"))));
    world.module.root.Restore(file::kTraceDirectory);
}

TEST(TraceOfTheService, WithSpaceAgainTheLogGoesOn) {
    ServiceWorld world;
    world.module.root.LimitSpace(file::kTraceDirectory, 8192);
    world.module.root.WriteFile(std::string(file::kTraceDirectory) + "/filler", std::string(8192, 'x'));
    world.Start();
    EXPECT_THAT(world.TraceMessages(), IsEmpty());
    world.module.root.Remove(std::string(file::kTraceDirectory) + "/filler");

    EXPECT_TRUE(world.IsCrashReported());

    world.module.journal.Await(IsTraced("service state    : TEcallappServiceState_ActiveAutomaticECall (101) "));
    world.module.root.Restore(file::kTraceDirectory);
}
