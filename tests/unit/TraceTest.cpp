#include "Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>

#include "Faults.h"
#include "ServiceTest.h"

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr long long kSomeDay = 1700000000;  // 2023-11-14 22:13:20 UTC
constexpr long long kDay = 86400;
constexpr long long kNoDay = std::numeric_limits<long long>::max();  // no calendar reaches it
constexpr char kArchiveBase[] = "/var/logs/ecall/XirEcallUIappSrvc_traces_";

/// Appends so many bytes to the live file, as one line and its stamp.
void SaveLine(const std::string& line) {
    GetMutex(&TraceMutex);
    SaveTraceLogInfo(line);
    ReleaseMutex(&TraceMutex);
}

std::string Archive(int number) {
    return kArchiveBase + std::to_string(number) + ".txt";
}

/// A world in which the next line puts the live file aside, and shows the given archives' own names as their content.
void FillForRotation(uint16_t count, std::initializer_list<int> archives) {
    Remove(kTraceFolder);
    SetTraceFileSizing(count, 1);
    WriteFile(kTraceFile, std::string(1024, 'x'));
    for (const int number : archives) {
        WriteFile(Archive(number), "was " + std::to_string(number));
    }
}

class TraceFiles : public testing::Test {
  protected:
    ~TraceFiles() override {
        SetTraceFileSizing(2, 1024);
        Remove("/var/logs");
        mkdir("/var/logs", 0755);
    }
};

}  // namespace

// The two forms.

TEST(Trace, AMessageReachesTheConsoleAndTheFile) {
    const FixedClock clock(kSomeDay, 123456789);

    const Logged logged = LogOf([] { EcallUITrace("number %d of %s", 7, "nine"); });

    EXPECT_EQ("number 7 of nine\n\r", logged.console);
    EXPECT_THAT(logged.file, MatchesRegex("Nov 14 22:13:20\\.123        TraceTest\\.cpp \\( +[0-9]+\\) : "
                                          "number 7 of nine\n"));
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST(Trace, AFailureReachesTheConsoleTheSystemLogAndTheFile) {
    const FixedClock clock(kSomeDay, 123456789);

    const Logged logged = LogOf([] { EcallUITraceError("number %d of %s", 7, "nine"); });

    EXPECT_EQ("number 7 of nine\n\r", logged.console);
    EXPECT_THAT(logged.file, MatchesRegex("Nov 14 22:13:20\\.123 XirEcallUIappSrvc/tests/unit/TraceTest\\.cpp "
                                          "\\( +[0-9]+\\) : number 7 of nine\n"));
    EXPECT_THAT(logged.system, ElementsAre("5 number 7 of nine"));
}

TEST(Trace, TheSourceLineIsTheCallers) {
    const Logged logged = LogOf([] { EcallUITrace("here"); });
    const int line = __LINE__ - 1;

    char expected[64];
    snprintf(expected, sizeof expected, "%20s (%4d) : here\n", "TraceTest.cpp", line);
    EXPECT_THAT(logged.file, EndsWith(expected));
}

TEST(Trace, AMessageWithItsOwnLineEndShowsAnEmptyLine) {
    const Logged logged = LogOf([] { EcallUITrace("cbCnt = %d \n", 3); });

    EXPECT_EQ("cbCnt = 3 \n\n\r", logged.console);
    EXPECT_THAT(logged.file, EndsWith(" : cbCnt = 3 \n\n"));
}

TEST(Trace, AnArgumentIsEvaluatedOncePerOutput) {
    int count = 0;

    const Logged message = LogOf([&] { EcallUITrace("count %d", count++); });
    EXPECT_EQ(2, count);
    EXPECT_EQ("count 0\n\r", message.console);
    EXPECT_THAT(message.Messages(), ElementsAre("count 1"));

    const Logged failure = LogOf([&] { EcallUITraceError("count %d", count++); });
    EXPECT_EQ(5, count);
    EXPECT_EQ("count 2\n\r", failure.console);
    EXPECT_THAT(failure.system, ElementsAre("5 count 3"));
    EXPECT_THAT(failure.Messages(), ElementsAre("count 4"));
}

TEST(Trace, WithoutTheMutexAnArgumentIsEvaluatedForTheOutputsThatRemain) {
    EcallUITrace("creates the mutex");
    int count = 0;

    const Logged logged = LogOf([&] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.object = &TraceMutex.mutex});
        EcallUITrace("message %d", count++);
        EXPECT_EQ(1, count);
        EcallUITraceError("failure %d", count++);
        EXPECT_EQ(3, count);
    });

    EXPECT_THAT(logged.system, testing::IsSupersetOf({"5 message 0", "5 failure 2"}));
    EXPECT_THAT(logged.ConsoleLines(), testing::Contains("failure 1"));
}

TEST(Trace, EveryOutputSeesTheErrnoOfTheCallAndLeavesIt) {
    Remove("/var/logs");
    int afterwards = 0;

    const Logged logged = LogOf([&] {
        errno = EBADMSG;
        EcallUITraceError("%s", strerror(errno));
        afterwards = errno;
    });

    EXPECT_EQ(EBADMSG, afterwards);
    EXPECT_EQ("Bad message\n\r", logged.console);
    EXPECT_THAT(logged.system, testing::Contains("5 Bad message"));
    mkdir("/var/logs", 0755);
}

TEST(Trace, AnOutputThatFailsDoesNotChangeWhatTheNextOnesSay) {
    const Ended ended = EndOf([] {
        setvbuf(stdout, nullptr, _IONBF, 0);
        close(STDOUT_FILENO);
        errno = EBADMSG;
        EcallUITraceError("%s", strerror(errno));
    });

    EXPECT_THAT(ended.logged.system, ElementsAre("5 Bad message"));
    EXPECT_THAT(ended.logged.Messages(), ElementsAre("Bad message"));
}

TEST(Trace, ALongLineIsCutAt511Characters) {
    const std::string message(600, 'm');

    const Logged logged = LogOf([&] { EcallUITrace("%s", message.c_str()); });

    EXPECT_EQ(message + "\n\r", logged.console);
    const size_t lineStart = logged.file.find("       TraceTest.cpp");
    ASSERT_NE(std::string::npos, lineStart);
    EXPECT_EQ(511, logged.file.size() - lineStart);
    EXPECT_EQ('m', logged.file.back());
}

TEST(Trace, ACharacterOfValueZeroDoesNotEndTheLine) {
    const Logged logged = LogOf([] { EcallUITrace("-%c ==> bad option", '\0'); });

    EXPECT_EQ(std::string("-\0 ==> bad option\n\r", 19), logged.console);
    EXPECT_THAT(logged.file, EndsWith(std::string(" : -\0 ==> bad option\n", 21)));
}

// The trace file.

TEST_F(TraceFiles, AMissingFolderIsMadeAgain) {
    Remove(kTraceFolder);

    SaveLine("line\n");

    struct stat folder {};
    ASSERT_EQ(0, stat(kTraceFolder, &folder));
    EXPECT_EQ(0755U, folder.st_mode & 07777);
    EXPECT_THAT(*ReadFile(kTraceFile), EndsWith(" line\n"));
}

TEST_F(TraceFiles, AFolderThatCannotBeMadeLosesThatLineOnly) {
    Remove("/var/logs");

    const Logged logged = LogOf([] { SaveLine("lost\n"); });
    EXPECT_THAT(logged.system, ElementsAre("5 SaveTraceLogInfo mkdir error (No such file or directory)"));
    EXPECT_EQ("", logged.console);

    mkdir("/var/logs", 0755);
    SaveLine("kept\n");
    EXPECT_THAT(*ReadFile(kTraceFile), MatchesRegex("[^\n]* kept\n"));
}

TEST_F(TraceFiles, AFileInThePlaceOfTheFolderIsSaid) {
    Remove(kTraceFolder);
    WriteFile(kTraceFolder, "a file");

    const Logged logged = LogOf([] { SaveLine("lost\n"); });

    EXPECT_THAT(logged.system, ElementsAre("5 SaveTraceLogInfo mkdir error (File exists)"));
}

TEST_F(TraceFiles, AnOpenThatFailsTwiceDropsTheLineSilently) {
    SaveLine("makes the folder\n");
    int opens = 0;

    const Logged logged = LogOf([&] {
        const CallFault fault("open", EROFS, {.path = kTraceFile});
        SaveLine("lost\n");
        opens = fault.Calls();
    });

    EXPECT_EQ(2, opens);
    EXPECT_EQ("", logged.console + logged.file);
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(TraceFiles, AnOpenThatFailsOnceIsTriedAgain) {
    SaveLine("makes the folder\n");

    const Logged logged = LogOf([] {
        const CallFault fault("open", EMFILE, {.path = kTraceFile, .failing = 1});
        SaveLine("kept\n");
    });

    EXPECT_THAT(logged.file, EndsWith(" kept\n"));
}

TEST_F(TraceFiles, APipeInThePlaceOfTheFileHoldsNobody) {
    SaveLine("makes the folder\n");
    Remove(kTraceFile);
    ASSERT_EQ(0, mkfifo(kTraceFile, 0644));

    SaveLine("lost\n");
}

TEST_F(TraceFiles, AShortWriteIsContinued) {
    const FixedClock clock(kSomeDay, 5000000);

    const Logged logged = LogOf([] {
        const CallFault fault("write", 0, {.path = kTraceFile, .failing = 19, .bytes = 1});
        SaveLine("line\n");
    });

    EXPECT_EQ("Nov 14 22:13:20.500 line\n", logged.file);
}

TEST_F(TraceFiles, StampBlankAndLineAreEachGivenUpAfterTwentyAttempts) {
    const FixedClock clock(kSomeDay, 5000000);
    const struct {
        const char* file;
        int failing;
        int writes;
    } rows[] = {
        {"Nov 14 22:13:20.500 line\n", 19, 20},
        {" line\n", 20, 21},
        {" line\n", 39, 40},
        {"line\n", 40, 41},
        {"line\n", 59, 60},
        {"", 60, 60},
    };
    for (const auto& row : rows) {
        int writes = 0;

        const Logged logged = LogOf([&] {
            const CallFault fault("write", ENOSPC, {.path = kTraceFile, .failing = row.failing});
            SaveLine("line\n");
            writes = fault.Calls();
        });

        EXPECT_EQ(row.file, logged.file) << row.failing;
        EXPECT_EQ(row.writes, writes) << row.failing;
        EXPECT_EQ("", logged.console) << row.failing;
        EXPECT_THAT(logged.system, IsEmpty()) << row.failing;
    }
}

TEST_F(TraceFiles, ByteWiseTheStampFitsIntoItsAttemptsAndTheLineIsCutAtItsOwnTwenty) {
    const FixedClock clock(kSomeDay, 5000000);

    const Logged logged = LogOf([] {
        const CallFault fault("write", 0, {.path = kTraceFile, .bytes = 1});
        SaveLine("a line of twenty-five bytes");
    });

    EXPECT_EQ("Nov 14 22:13:20.500 a line of twenty-fiv", logged.file);
}

TEST_F(TraceFiles, EachLineOpensWritesMeasuresAndClosesTheFileOnce) {
    SaveLine("makes the folder\n");
    for (const char* call : {"open", "write", "lseek", "close"}) {
        const CallFault count(call, 0, {.path = kTraceFile, .passing = INT_MAX});

        SaveLine("line\n");
        SaveLine("line\n");

        EXPECT_EQ(2, count.Calls()) << call;
    }
}

TEST_F(TraceFiles, AFileOfExactlyTheLimitIsNotPutAside) {
    const FixedClock clock(kSomeDay, 5000000);
    const std::string line = "line\n";
    const size_t stampAndBlank = 20;
    SetTraceFileSizing(2, 1);
    Remove(kTraceFolder);
    WriteFile(kTraceFile, std::string(1024 - stampAndBlank - line.size(), 'x'));

    SaveLine(line);

    EXPECT_EQ(1024, ReadFile(kTraceFile)->size());
    EXPECT_THAT(FilesIn(kTraceFolder), SizeIs(1));
}

TEST_F(TraceFiles, AFileOneByteLongerThanTheLimitIsPutAside) {
    const FixedClock clock(kSomeDay, 5000000);
    const std::string line = "line\n";
    const size_t stampAndBlank = 20;
    SetTraceFileSizing(2, 1);
    Remove(kTraceFolder);
    WriteFile(kTraceFile, std::string(1025 - stampAndBlank - line.size(), 'x'));

    SaveLine(line);

    EXPECT_FALSE(ReadFile(kTraceFile));
    EXPECT_EQ(1025, ReadFile(Archive(1))->size());
}

TEST_F(TraceFiles, WithTwoFilesTheArchiveIsReplaced) {
    const Logged logged = LogOf([] {
        FillForRotation(2, {1});
        SaveLine("line\n");
    });

    EXPECT_EQ("", logged.console);
    EXPECT_THAT(*ReadFile(Archive(1)), StartsWith("xxx"));
    EXPECT_THAT(FilesIn(kTraceFolder), ElementsAre("XirEcallUIappSrvc_traces_1.txt"));
}

TEST_F(TraceFiles, WithThreeFilesTheArchivesMoveUp) {
    FillForRotation(3, {1, 2});

    SaveLine("line\n");

    EXPECT_EQ("was 1", ReadFile(Archive(2)));
    EXPECT_THAT(*ReadFile(Archive(1)), StartsWith("xxx"));
    EXPECT_THAT(FilesIn(kTraceFolder), SizeIs(2));
}

TEST_F(TraceFiles, WithFiveFilesAGapIsSaidAndTheOthersMoveUp) {
    std::string console;

    console = LogOf([] {
                  FillForRotation(5, {1, 3, 4});
                  SaveLine("line\n");
              }).console;

    EXPECT_EQ("rename 1 " + Archive(2) + " to " + Archive(3) + " error : No such file or directory\n", console);
    EXPECT_EQ("was 3", ReadFile(Archive(4)));
    EXPECT_EQ(std::nullopt, ReadFile(Archive(3)));
    EXPECT_EQ("was 1", ReadFile(Archive(2)));
    EXPECT_THAT(*ReadFile(Archive(1)), StartsWith("xxx"));
}

TEST_F(TraceFiles, WithOneFileEveryNumberIsTriedAndTheLiveFileBecomesTheFirst) {
    const Logged logged = LogOf([] {
        FillForRotation(1, {0, 2});
        SaveLine("line\n");
    });

    EXPECT_THAT(logged.console, StartsWith("rename 1 " + Archive(65535) + " to " + Archive(0) +
                                           " error : No such file or directory\nrename 1 " + Archive(65534) + " to " +
                                           Archive(65535) + " error : No such file or directory\n"));
    EXPECT_THAT(logged.console,
                EndsWith("rename 1 " + Archive(1) + " to " + Archive(2) + " error : No such file or directory\n"));
    EXPECT_EQ(65534, std::count(logged.console.begin(), logged.console.end(), '\n'));  // all but that of number 2
    EXPECT_EQ(std::nullopt, ReadFile(Archive(0)));
    EXPECT_EQ("was 2", ReadFile(Archive(3)));
    EXPECT_THAT(*ReadFile(Archive(1)), StartsWith("xxx"));
    EXPECT_THAT(FilesIn(kTraceFolder), SizeIs(2));
}

TEST_F(TraceFiles, WithNoFileEachArchiveIsNamedByItsTime) {
    const FixedClock clock(kSomeDay, 0);
    FillForRotation(0, {});

    SaveLine("line\n");

    EXPECT_THAT(FilesIn(kTraceFolder), ElementsAre("XirEcallUIappSrvc_traces_20231114_221320.txt "));
}

TEST_F(TraceFiles, WithNoFileTheLaterArchiveOfASecondReplacesTheEarlier) {
    const FixedClock clock(kSomeDay, 0);
    FillForRotation(0, {});
    SaveLine("earlier\n");
    WriteFile(kTraceFile, std::string(1024, 'y'));

    SaveLine("later\n");

    ASSERT_THAT(FilesIn(kTraceFolder), SizeIs(1));
    EXPECT_THAT(*ReadFile(std::string(kArchiveBase) + "20231114_221320.txt "), StartsWith("yyy"));
}

TEST_F(TraceFiles, WithNoFileArchivesOfDifferentSecondsAreAllKept) {
    FillForRotation(0, {});
    {
        const FixedClock clock(kSomeDay, 0);
        SaveLine("earlier\n");
    }
    WriteFile(kTraceFile, std::string(1024, 'y'));
    {
        const FixedClock clock(kSomeDay + 1, 0);
        SaveLine("later\n");
    }

    EXPECT_THAT(FilesIn(kTraceFolder), ElementsAre("XirEcallUIappSrvc_traces_20231114_221320.txt ",
                                                   "XirEcallUIappSrvc_traces_20231114_221321.txt "));
}

TEST_F(TraceFiles, WithoutALocalTimeTheArchiveHasThePlaceholderInItsName) {
    const FixedClock clock(kNoDay, 0);
    FillForRotation(0, {});

    SaveLine("line\n");

    EXPECT_THAT(FilesIn(kTraceFolder), ElementsAre("XirEcallUIappSrvc_traces_----:--:--_--:--:--.txt "));
}

TEST_F(TraceFiles, ALiveFileThatCannotBePutAsideIsSaid) {
    const Logged logged = LogOf([] {
        FillForRotation(2, {});
        WriteFile(Archive(1) + "/in the way", "");  // a folder that is not empty
        SaveLine("line\n");
    });

    EXPECT_EQ(std::string("rename 2 ") + kTraceFile + " to " + Archive(1) + " error : Is a directory\n",
              logged.console);
    EXPECT_THAT(logged.system, IsEmpty());
}

TEST_F(TraceFiles, AnEmptyFolderInTheArchivesPlaceIsRemoved) {
    FillForRotation(2, {});
    ASSERT_EQ(0, mkdir(Archive(1).c_str(), 0755));

    SaveLine("line\n");

    EXPECT_THAT(*ReadFile(Archive(1)), StartsWith("xxx"));
    EXPECT_THAT(FilesIn(kTraceFolder), SizeIs(1));
}

TEST_F(TraceFiles, AFullDiskStillPutsTheLiveFileAside) {
    FillForRotation(2, {});
    WriteFile(kTraceFile, std::string(1025, 'x'));

    const CallFault fault("write", ENOSPC, {.path = kTraceFile});
    SaveLine("lost\n");

    EXPECT_EQ(std::string(1025, 'x'), ReadFile(Archive(1)));
}

// Time stamps.

TEST(TraceStamp, TheFractionIsTheLeadingDigitsOfTheNanoseconds) {
    const struct {
        long nanoseconds;
        const char* stamp;
    } rows[] = {
        {0, "Nov 14 22:13:20.0"},           {7, "Nov 14 22:13:20.7"},         {42, "Nov 14 22:13:20.42"},
        {999, "Nov 14 22:13:20.999"},       {5000000, "Nov 14 22:13:20.500"}, {123456789, "Nov 14 22:13:20.123"},
        {999999999, "Nov 14 22:13:20.999"},
    };
    for (const auto& row : rows) {
        const FixedClock clock(kSomeDay, row.nanoseconds);

        EXPECT_STREQ(row.stamp, TraceLineStamp());
    }
}

TEST(TraceStamp, TheSecondFollowsTheClock) {
    {
        const FixedClock clock(kSomeDay, 1);
        EXPECT_STREQ("Nov 14 22:13:20.1", TraceLineStamp());
    }
    {
        const FixedClock clock(kNoDay, 1);
        EXPECT_STREQ("--- -- --:--:--:---", TraceLineStamp());
    }
    {
        const FixedClock clock(kSomeDay, 2);
        EXPECT_STREQ("Nov 14 22:13:20.2", TraceLineStamp());
    }
    {
        const FixedClock clock(kSomeDay + 16 * kDay + 1, 3);
        EXPECT_STREQ("Nov 30 22:13:21.3", TraceLineStamp());
    }
    {
        const FixedClock clock(kSomeDay + 17 * kDay, 4);
        EXPECT_STREQ("Dec  1 22:13:20.4", TraceLineStamp());
    }
}

TEST(TraceStamp, TheCurrentDateTimesHaveTheirForms) {
    const FixedClock clock(kSomeDay, 0);

    EXPECT_STREQ("2023:11:14 22:13:20", CurrentDateTime());
    EXPECT_STREQ("20231114_221320", CurrentDateTimeForFileName());
    EXPECT_EQ(1700000000, CurrentSeconds());
}

TEST(TraceStamp, ATimeWithoutALocalDateShowsDashes) {
    const FixedClock clock(kNoDay, 0);

    EXPECT_STREQ("--- -- --:--:--:---", TraceLineStamp());
    EXPECT_STREQ("----:--:-- --:--:--", CurrentDateTime());
    EXPECT_STREQ("----:--:--_--:--:--", CurrentDateTimeForFileName());
}

TEST(TraceStamp, AGivenTimeShowsAsTimeOfDayAndAsDateTime) {
    EXPECT_STREQ("22:13:20", TimeOfDay(kSomeDay));
    EXPECT_STREQ("2023:11:14 22:13:20", DateTime(kSomeDay));
    EXPECT_STREQ("00:00:01", TimeOfDay(1));
    EXPECT_STREQ("1970:01:01 00:00:01", DateTime(1));
}

TEST(TraceStamp, NoTimeShowsUnderscores) {
    EXPECT_STREQ("__:__:__", TimeOfDay(0));
    EXPECT_STREQ("____:__:__ __:__:__", DateTime(0));
}

TEST(TraceStamp, AGivenTimeWithoutALocalDateShowsCrosses) {
    EXPECT_STREQ("xx:xx:xx", TimeOfDay(kNoDay));
    EXPECT_STREQ("xxxx:xx:xx xx:xx:xx", DateTime(kNoDay));
}

TEST(TraceStamp, EachOperationHasATextOfItsOwn) {
    const FixedClock clock(kSomeDay, 5000000);
    const char* const line = TraceLineStamp();
    const char* const now = CurrentDateTime();
    const char* const fileName = CurrentDateTimeForFileName();
    const char* const timeOfDay = TimeOfDay(1);
    const char* const dateTime = DateTime(2);

    EXPECT_STREQ("Nov 14 22:13:20.500", line);
    EXPECT_STREQ("2023:11:14 22:13:20", now);
    EXPECT_STREQ("20231114_221320", fileName);
    EXPECT_STREQ("00:00:01", timeOfDay);
    EXPECT_STREQ("1970:01:01 00:00:02", dateTime);
    EXPECT_EQ(dateTime, DateTime(3));
}

TEST(TraceStamp, CurrentSecondsAreKeptTo32SignedBits) {
    const FixedClock clock(1LL << 31, 0);

    EXPECT_EQ(std::numeric_limits<int32_t>::min(), CurrentSeconds());
}

TEST(TraceStamp, AFailingClockIsLoggedAndReadsAsTheStartOf1970) {
    int32_t seconds = -1;

    const Logged logged = LogOf([&] {
        const CallFault fault("clock_gettime", EINVAL);
        EXPECT_STREQ("1970:01:01 00:00:00", CurrentDateTime());
        seconds = CurrentSeconds();
    });

    EXPECT_EQ(0, seconds);
    EXPECT_EQ("clock_gettime Error !!!\n\rclock_gettime Error !!!\n\r", logged.console);
    EXPECT_THAT(logged.system, ElementsAre("5 clock_gettime Error !!!", "5 clock_gettime Error !!!"));
}

TEST(TraceStamp, AFailingClockLosesNoLineOfTheLog) {
    const Logged logged = LogOf([] {
        const CallFault fault("clock_gettime", EINVAL);
        EcallUITrace("a message");
    });

    EXPECT_THAT(logged.Messages(), ElementsAre("clock_gettime Error !!!", "a message"));
    EXPECT_THAT(logged.file, HasSubstr("Jan  1 00:00:00.0        TraceTest.cpp"));
    EXPECT_THAT(logged.system, ElementsAre("5 clock_gettime Error !!!"));
}

// Byte dumps.

TEST(TraceDump, BytesShowAsTwoDigitsEach) {
    const uint8_t bytes[] = {0x00, 0x0f, 0xa5, 0xff};
    char* text = nullptr;

    const std::size_t length = HexDump(bytes, sizeof bytes, &text);

    EXPECT_STREQ("Bin (length =   4) : 0X000fa5ff", text);
    EXPECT_EQ(strlen(text), length);
    free(text);
}

TEST(TraceDump, NoBytesShowThePrefixAlone) {
    char* text = nullptr;

    const std::size_t length = HexDump(nullptr, 0, &text);

    EXPECT_STREQ("Bin (length =   0) : 0X", text);
    EXPECT_EQ(strlen(text), length);
    free(text);
}

TEST(TraceDump, AThousandBytesWidenThePrefix) {
    const std::string bytes(1000, '\x42');
    char* text = nullptr;

    const std::size_t length = HexDump(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), &text);

    EXPECT_THAT(text, StartsWith("Bin (length = 1000) : 0X4242"));
    EXPECT_EQ(24 + 2000, length);
    free(text);
}

TEST(TraceDump, WithoutMemoryADumpIsNull) {
    const uint8_t byte = 1;
    char stays = 's';
    char* text = &stays;
    std::size_t length = 1;

    const Logged logged = LogOf([&] {
        const CallFault fault("malloc", ENOMEM, {.failing = 1});
        length = HexDump(&byte, 1, &text);
    });

    EXPECT_EQ(nullptr, text);
    EXPECT_EQ(0, length);
    EXPECT_THAT(logged.system, ElementsAre("5 eCallMemalloc ERROR !"));
}

TEST(TraceDump, PairsOfDigitsGiveBytesHighDigitFirst) {
    uint8_t* bytes = nullptr;

    const std::size_t count = HexTextToBytes("019aAfF0", &bytes);

    ASSERT_EQ(4, count);
    EXPECT_THAT(std::vector<int>(bytes, bytes + count), ElementsAre(0x01, 0x9a, 0xaf, 0xf0));
    free(bytes);
}

TEST(TraceDump, AnOddLastCharacterIsIgnored) {
    uint8_t* bytes = nullptr;

    const std::size_t count = HexTextToBytes("12z", &bytes);

    ASSERT_EQ(1, count);
    EXPECT_EQ(0x12, bytes[0]);
    free(bytes);
}

TEST(TraceDump, AnEmptyTextGivesNothing) {
    uint8_t* bytes = nullptr;

    EXPECT_EQ(0, HexTextToBytes("", &bytes));
}

TEST(TraceDump, AnyOtherCharacterIsRefused) {
    for (const char* text : {"g0", "0g", "1/", "1:", "1@", "1G", "1`", "0x", "12 4", "-1"}) {
        uint8_t* bytes = nullptr;
        std::size_t count = 1;

        const Logged logged = LogOf([&] { count = HexTextToBytes(text, &bytes); });

        EXPECT_EQ(0, count) << text;
        EXPECT_NE(nullptr, bytes) << text;  // dangling: freed already
        EXPECT_THAT(logged.system, ElementsAre("5 Not a BCD string")) << text;
    }
}

TEST(TraceDump, WithoutAPlaceForTheBytesOnlyTheirCountIsAnswered) {
    std::size_t count = 0;

    const Logged logged = LogOf([&] { count = HexTextToBytes("xyz12", nullptr); });

    EXPECT_EQ(2, count);
    EXPECT_THAT(logged.system, ElementsAre("5 ERROR : ppData == NULL"));
}

TEST(TraceDump, WithoutMemoryTheCountIsAnsweredAndNullStored) {
    uint8_t stays = 0;
    uint8_t* bytes = &stays;
    std::size_t count = 0;

    const Logged logged = LogOf([&] {
        const CallFault fault("malloc", ENOMEM, {.failing = 1});
        count = HexTextToBytes("1234", &bytes);
    });

    EXPECT_EQ(2, count);
    EXPECT_EQ(nullptr, bytes);
    EXPECT_THAT(logged.system, ElementsAre("5 eCallMemalloc ERROR !"));
}
