// What the simulator takes apart: messages to the system log, lines of the trace file.
#include <gtest/gtest.h>

#include "SystemLog.h"
#include "TraceTail.h"

namespace {
constexpr int kNoticeOfUser = 13;
}

TEST(SystemLog, AMessageIsTakenApart) {
    const Entry entry = SystemLog::Parse("<13>Nov 21 03:18:00 XirEcallUIappSrvc: fork() failed (none): at all");

    EXPECT_EQ(Kind::Syslog, entry.kind);
    EXPECT_EQ("XirEcallUIappSrvc", entry.subject);
    EXPECT_EQ("fork() failed (none): at all", entry.text);
    EXPECT_EQ(kNoticeOfUser, entry.result);
}

TEST(SystemLog, AProcessNumberAndAOneDigitDayAreNoneOfTheText) {
    const Entry entry = SystemLog::Parse("<13>Nov  1 03:18:00 XirEcallUIappSrvc[42]: text");

    EXPECT_EQ("XirEcallUIappSrvc", entry.subject);
    EXPECT_EQ("text", entry.text);
}

TEST(SystemLog, LineEndsOfTheMessageStay) {
    EXPECT_EQ("DTR is disabled \n", SystemLog::Parse("<13>Nov 21 03:18:00 srvc: DTR is disabled \n").text);
    EXPECT_EQ("", SystemLog::Parse("<13>Nov 21 03:18:00 srvc: ").text);
}

TEST(SystemLog, WhatIsNoMessageIsKeptWhole) {
    for (const char* odd : {"", "<", "<13>", "text", "<13 text", "short: x"}) {
        EXPECT_EQ(odd, SystemLog::Parse(odd).bytes);
    }
    EXPECT_EQ("text", SystemLog::Parse("text").text);
}

TEST(TraceTail, ALineIsTakenApart) {
    const Entry entry =
        TraceTail::Parse("Nov 21 03:18:00.123      EcallUIGpio.cpp (  12) : GpioWrite - Enter : GpioId = 6\n");

    EXPECT_EQ(Kind::Trace, entry.kind);
    EXPECT_EQ("EcallUIGpio.cpp", entry.subject);
    EXPECT_EQ("GpioWrite - Enter : GpioId = 6", entry.text);
}

TEST(TraceTail, AShortFractionAndALongPathAreTakenApartToo) {
    const Entry entry =
        TraceTail::Parse("Nov  1 03:18:00.42 XirEcallUIappSrvc/srvc_c/src/Trace.cpp (1234) : a (b) : c\n");

    EXPECT_EQ("XirEcallUIappSrvc/srvc_c/src/Trace.cpp", entry.subject);
    EXPECT_EQ("a (b) : c", entry.text);
}

TEST(TraceTail, TheBlankAtAMessagesEndStays) {
    EXPECT_EQ("launches ", TraceTail::Parse("Nov 21 03:18:00.123 a.cpp (   1) : launches \n").text);
    EXPECT_EQ("", TraceTail::Parse("Nov 21 03:18:00.123 a.cpp (   1) : \n").text);
}

TEST(TraceTail, WhatIsNoTraceLineIsKeptWhole) {
    for (const char* odd : {"", "\n", "x\n", "(12) : \n", "Nov 21 03:18:00.123\n", "Nov 21 03:18:00.123 a.cpp (1\n"}) {
        const Entry entry = TraceTail::Parse(odd);
        EXPECT_EQ(odd, entry.bytes);
        EXPECT_EQ("", entry.subject);
        EXPECT_EQ(std::string(odd).substr(0, std::string(odd).find('\n')), entry.text);
    }
}
