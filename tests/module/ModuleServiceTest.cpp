// The module around the service itself, once through the road of an emergency.
#include <gmock/gmock.h>

#include "EcallPeer.h"
#include "Module.h"

TEST(ModuleService, AnEmergencyGoesFromTheSensorToTheEcallService) {
    Module module;
    EcallPeer peer(module.journal);
    ASSERT_TRUE(peer.Start());
    module.StartService();
    const Entry ready = module.journal.Await(IsTraced("Wait for an event (blocking wait) "));

    module.SensorBecomes(SensorStatus::Emergency);

    const Entry call = module.journal.Await(IsRpcRequest("triggerEcall"), ready.seq);
    EXPECT_EQ("automatic=1", call.text);
    EXPECT_LT(module.journal.Await(IsWritten(line::kAntennaValue, "hi")).seq, call.seq);
    module.journal.Await(
        IsOnConsole("ecall-ens AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> sensor emergency detected (PWM 1kHz)"));
}

TEST(ModuleService, ARestartedServiceStartsAnewInTheSameModule) {
    Module module;
    EcallPeer peer(module.journal);
    ASSERT_TRUE(peer.Start());
    module.StartService();
    module.journal.Await(IsTraced("InitGpio - exit"));
    const uint64_t before = module.journal.Mark();

    module.RestartService();

    module.journal.Await(IsTraced("InitGpio - exit"), before);
    EXPECT_TRUE(module.Service().IsRunning());
}

TEST(ModuleService, ASecondServiceBesideTheFirstIsRefused) {
    Module module;
    module.StartService();  // without a peer it waits for one

    EXPECT_THROW(module.StartService(), std::logic_error);
}

TEST(ModuleService, WithoutAServiceThereIsNoneToSpeakOf) {
    Module module;

    EXPECT_THROW(module.Service(), std::logic_error);
}
