#include "EcallUIGpioTest.h"

#include <utaimas.h>

#include <chrono>
#include <thread>

#include "EcallUIData.h"
#include "EcallUIGpio.h"
#include "EcallUIGpioAnt.h"
#include "EcallUIGpioRelay.h"
#include "EcallUIGpioUevent.h"
#include "EcallUIShared.h"
#include "Trace.h"
#include "XirEcallapp.h"

namespace {

using std::chrono::milliseconds;

constexpr int kSensorAttempts = 5;
constexpr milliseconds kSensorRetryDelay{500};  // time for the detector to see some periods at 10 Hz
constexpr milliseconds kAntennaSettleTime{300};

/// What a self-test starts from: the firmware was checked at boot, the loudspeaker must prove itself.
TSelfTestAllDevicesState InitialResult() {
    TSelfTestAllDevicesState result = NothingTested();
    result.fwImageIntegrity = TSelfTestDeviceState_Success;
    result.loudspeakerConnection = TSelfTestDeviceState_Failed;
    result.loudspeakerOperability = TSelfTestDeviceState_Failed;
    return result;
}

bool IsSpeakerConnected() {
    const UtaAudioFda803SpeakerStatus answer = UtaGetAudioFda803SpeakerStatus();
    if (answer.error != 0) {
        EcallUITraceError("UtaGetAudioFda803SpeakerStatus, error = %d", answer.error);
        return false;
    }
    switch (answer.status) {
        case UTA_AUDIO_SPEAKER_CONNECTED:
            EcallUITrace("Speaker Status = UTA_AUDIO_SPEAKER_CONNECTED");
            return true;
        case UTA_AUDIO_SPEAKER_DISCONNECTED:
            EcallUITrace("Speaker Status = UTA_AUDIO_SPEAKER_DISCONNECTED");
            return false;
        case UTA_AUDIO_SPEAKER_SHORTCIRCUIT:
            EcallUITrace("Speaker Status = UTA_AUDIO_SPEAKER_SHORTCIRCUIT");
            return false;
        default:
            EcallUITraceError("Speaker invalid Status = %d", answer.status);
            return false;
    }
}

void TestLoudspeaker(TSelfTestAllDevicesState& result) {
    ControlAudioRelay(true);  // the diagnosis sees the speaker only through the relay
    if (IsSpeakerConnected()) {
        result.loudspeakerConnection = TSelfTestDeviceState_Success;
        result.loudspeakerOperability = TSelfTestDeviceState_Success;
    }
    ControlAudioRelay(false);
}

void TestCrashSensor(TSelfTestAllDevicesState& result) {
    for (int attempt = 0; attempt < kSensorAttempts; ++attempt) {
        const int32_t status = GpioRead_EcallEns();
        if (status == AIRBAG_SENSOR_NORMAL_MODE_10HZ || status == AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ) {
            result.rtaDetectorOperability = TSelfTestDeviceState_Success;
            EcallUITrace("rtaDetectorOperability = TSelfTestDeviceState_Success");
            return;
        }
        result.rtaDetectorOperability = TSelfTestDeviceState_Failed;
        EcallUITrace("ecall_pwm_status = %d, rtaDetectorOperability = TSelfTestDeviceState_Failed", status);
        std::this_thread::sleep_for(kSensorRetryDelay);
    }
}

/// A connected antenna pulls the voltage down. Compared unsigned, so that a failed reading (-1) counts as open too.
uint32_t MeasureAntenna() {
    const auto millivolts = static_cast<uint32_t>(AdcRead(kAntennaAdc));
    const auto threshold = static_cast<uint32_t>(EcallUI_Configuration.EcallAntennaDetectionThresholdMv.get());
    if (millivolts > threshold) {
        EcallUITrace("cellularAntennaConnection = TSelfTestDeviceState_Failed");
        return TSelfTestDeviceState_Failed;
    }
    EcallUITrace("cellularAntennaConnection = TSelfTestDeviceState_Success");
    return TSelfTestDeviceState_Success;
}

void TestAntenna(TSelfTestAllDevicesState& result) {
    result.cellularAntennaConnection = TSelfTestDeviceState_Failed;
    if (DriveAntennaLine(kAntDetectLine, 1) == 0) {
        std::this_thread::sleep_for(kAntennaSettleTime);
        result.cellularAntennaConnection = MeasureAntenna();
    }
    DriveAntennaLine(kAntDetectLine, 0);
}

}  // namespace

TSelfTestAllDevicesState NothingTested() {
    constexpr uint32_t kNotHandled = TSelfTestDeviceState_NotHandled;
    return {
        .fwImageIntegrity = kNotHandled,
        .cellularAntennaConnection = kNotHandled,
        .simPresent = kNotHandled,
        .cellularReceiverOperability = kNotHandled,
        .gnssParametersIntegrity = kNotHandled,
        .gnssAntennaConnection = kNotHandled,
        .gnssReceiverOperability = kNotHandled,
        .rtaDetectorOperability = kNotHandled,
        .microphoneConnection = kNotHandled,
        .microphoneOperability = kNotHandled,
        .loudspeakerConnection = kNotHandled,
        .loudspeakerOperability = kNotHandled,
        .backupBatteryLevel = kNotHandled,
        .statusIndicatorOperability = kNotHandled,
        .uimOperability = kNotHandled,
    };
}

void SendSelfTestResult(IEcallAppPubProxy* proxy, const TSelfTestAllDevicesState& result) {
    const int32_t srvcResult = XirEcallapp_updateSelfTestAllDevicesState(proxy, &result);
    if (srvcResult != 0) {
        EcallUITraceError("srvcResult ERROR  = %d !!!!!!", srvcResult);
    }
}

void RunSelfTest() {
    EcallUITrace("RunSelfTest - Enter");
    TSelfTestAllDevicesState result = InitialResult();
    TestLoudspeaker(result);
    TestCrashSensor(result);
    TestAntenna(result);
    SendSelfTestResult(pProxyEcallapp.hold().get(), result);
    EcallUITrace("RunSelfTest - Exit");
}
