// What the notifications do that no log line of the whole service can show by itself.
#include "EcallUIAppNotify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "EcallUIShared.h"
#include "Faults.h"
#include "ServiceTest.h"
#include "Trace.h"

using testing::Contains;
using testing::StartsWith;

namespace {

/// Of a service state that does not exist, so that no output is touched.
int Notify(uint32_t selfTestState = TSelfTestState_Unknown) {
    const TEcallappState state{50, 0, 5, 0, 0, selfTestState};
    return EcallStateNotification(&state);
}

TEST(EcallUIAppNotify, TheCountStepsOnceForALineThatReachesTheSystemLogAlone) {
    const auto notifyTwice = [] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.object = &TraceMutex.mutex});
        Notify();
        Notify();
    };

    const Ended ended = EndOf([&] {
        Notify();
        notifyTwice();
        Notify();
    });

    std::vector<std::string> counts;
    for (const std::string& line : ended.logged.system) {
        if (line.find("cbCnt") != std::string::npos) {
            counts.push_back(line);
        }
    }
    EXPECT_THAT(counts, testing::ElementsAre("5 cbCnt = 2 \n", "5 cbCnt = 3 \n"));
    EXPECT_THAT(ended.logged.ConsoleLines(), Contains("cbCnt = 0 \n"));
    EXPECT_THAT(ended.logged.ConsoleLines(), Contains("cbCnt = 4 \n"));
    EXPECT_THAT(ended.logged.Messages(), Contains("cbCnt = 1 "));
    EXPECT_THAT(ended.logged.Messages(), Contains("cbCnt = 5 "));
}

TEST(EcallUIAppNotify, ALogWithoutItsMutexGoesToTheSystemLogLineByLine) {
    const Ended ended = EndOf([] {
        const CallFault fault("pthread_mutex_lock", EINVAL, {.object = &TraceMutex.mutex});
        Notify();
    });

    std::vector<std::string> fields;
    for (const char* start : {"5 service state", "5 network", "5 call", "5 audio", "5 self test", "5 simProfile"}) {
        for (const std::string& line : ended.logged.system) {
            if (testing::Value(line, StartsWith(start))) {
                fields.push_back(line);
            }
        }
    }
    EXPECT_THAT(fields, testing::ElementsAre("5 service state    : ERROR (value = 50) ",
                                             "5 network State    : TNetworkState_CsFullService (5) ",
                                             "5 call State       : TEcallappCallState_Inactive (0) ",
                                             "5 audio out State  : TAudioOutState_Muted (0) ",
                                             "5 self test State  : TSelfTestState_Unknown (2) ",
                                             "5 simProfileState State  : TSimProfileState_Commercial (0) "));
    EXPECT_EQ("", ended.logged.file);
}

TEST(EcallUIAppNotify, OnlyAChangeIntoRequestedRaisesTheRequestAndNothingTakesItBack) {
    const struct {
        uint32_t state;
        bool requests;
    } kRecords[] = {{3, true},  {3, false}, {0, false}, {3, true},           {1, false}, {3, true},
                    {2, false}, {3, true},  {4, false}, {0xffffffff, false}, {3, true},  {3, false}};

    for (const auto& record : kRecords) {
        SelfTestRequest = 0;
        LogOf([&] { EXPECT_EQ(0, Notify(record.state)); });
        EXPECT_EQ(record.requests ? 1 : 0, SelfTestRequest) << record.state;
        EXPECT_EQ(record.state, LastSelfTestState);
    }
    SelfTestRequest = 1;  // the worker is busy
    for (const uint32_t state : {0U, 3U, 2U}) {
        LogOf([&] { Notify(state); });
        EXPECT_EQ(1, SelfTestRequest) << state;
    }
}

}  // namespace
