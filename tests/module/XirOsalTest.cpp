// The locks of the whole service while everything happens at once. ThreadSanitizer reads their order from this, too.
#include <gmock/gmock.h>

#include "ServiceWorld.h"

using namespace std::chrono_literals;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

TEST(XirOsalOfTheService, NoLockIsMisusedWhileEverythingHappensAtOnce) {
    ServiceWorld world;
    world.Start();

    for (int round = 0; round < 20; ++round) {
        world.peer.RequestSelfTest();
        world.module.ButtonPress();
        world.module.SensorBecomes(SensorStatus::NotDetected);
        world.module.DtrBecomes(round % 2 == 0);
        world.module.SensorBecomes(SensorStatus::Emergency);
        world.module.ButtonRelease();
        world.module.SensorBecomes(SensorStatus::Normal);
    }
    world.module.journal.AwaitCount(20, IsTraced("AIRBAG_SENSOR_NOT_DETECTED"));
    world.module.journal.Await(IsTraced("RunSelfTest - Exit"));

    EXPECT_THAT(world.SystemLog(), Not(Contains(HasSubstr("mutex"))));
    EXPECT_THAT(world.SystemLog(), Not(Contains(HasSubstr("not locked"))));
    EXPECT_TRUE(world.module.Service().IsRunning());
}

TEST(XirOsalOfTheService, ANotificationMeetsStartUpOnAFreshStateMutex) {
    ServiceWorld world;
    ASSERT_TRUE(world.peer.Start());
    world.module.StartService();

    // The first of these come while the main thread restores the state.
    world.module.journal.Await(IsRpcRequest("subscribe"));
    for (uint32_t state : {100U, 3U, 101U, 3U, 1U, 3U}) {
        EcallState next = world.peer.State();
        next.serviceState = state;
        world.peer.SetState(next);
    }

    world.AwaitReady();
    world.module.journal.Await(IsTraced("SetGpioServiceState - Enter, serviceState = 101"));
    EXPECT_THAT(world.SystemLog(), Not(Contains(HasSubstr("mutex"))));
    EXPECT_THAT(world.SystemLog(), Not(Contains(HasSubstr("not locked"))));
}
