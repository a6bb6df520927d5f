// The road of a crash: the sensor's driver announces "EMERGENCY" in a kernel uevent, this thread reads it from its
// netlink socket and asks the eCall service for an automatic call. CanTriggerAutoEcall arms that trigger: a normal
// sensor signal sets it, a successful request clears it, and it survives a restart. A request that fails leaves it set,
// so the next emergency event tries again.
//
// The trap is the socket's buffer: events come in bursts, and the kernel drops what does not fit. So the buffer is as
// large as the system grants, and an overflow, like any failed reception, is one logged event that changes nothing.
#include "EcallUIGpioEvent.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "EcallUIData.h"
#include "EcallUIGpio.h"
#include "EcallUIGpioAnt.h"
#include "EcallUIGpioDtr.h"
#include "EcallUIGpioFile.h"
#include "EcallUIGpioLed.h"
#include "EcallUIGpioTest.h"
#include "EcallUIShared.h"
#include "FileDescriptor.h"
#include "Thread.h"
#include "Trace.h"
#include "XirEcallapp.h"

namespace {

constexpr std::size_t kDatagramSize = 512;
constexpr uint32_t kAllGroups = 0xFFFFFFFF;
// Room for some 150,000 small events. Only what is queued takes memory; the system cuts the wish to what it grants.
constexpr int kReceiveBufferBytes = 128 * 1024 * 1024;

FileDescriptor EventSocket;  // of the event thread

sockaddr_nl EventAddress() {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = static_cast<uint32_t>(getpid());
    address.nl_groups = kAllGroups;
    return address;
}

// ---- The devices behind the events ----

void WriteEcallEns(const char* attribute, const char* value) {
    std::array<char, kGpioPathSize> path{};
    if (GpioGetDeviceFilePath(path.data(), path.size(), kPwmEcallEns, attribute) != 0) {
        EcallUITraceError("Unable to find devices %d", kPwmEcallEns);
    }
    const AttributeWrite written = WriteAttribute(path.data(), O_RDWR | O_SYNC, value);
    if (!written.opened) {
        EcallUITraceError("Unable to open %s : errno = %s\n", attribute, strerror(written.error));
    }
}

struct ButtonStep {
    const char* attribute;
    const char* value;
    const char* valueInMessage;  ///< what the message says was not written
    bool tellsWhyNotOpened;
};

bool DoButtonStep(const ButtonStep& step) {
    std::array<char, kGpioPathSize> path{};
    GpioGetDeviceFilePath(path.data(), path.size(), kIsrEcallButton, step.attribute);
    const AttributeWrite written = WriteAttribute(path.data(), O_RDWR | O_SYNC, step.value);
    if (!written.opened && step.tellsWhyNotOpened) {
        EcallUITraceError("Unable to open /sys/devices/ecall_isr.xxx/%s, error = %s", step.attribute,
                          strerror(written.error));
    } else if (!written.opened) {
        EcallUITraceError("Unable to open /sys/devices/ecall_isr.xxx/%s", step.attribute);
    } else if (!written.whole) {
        EcallUITraceError("Unable to write %s in /sys/devices/ecall_isr.xxx/%s, error = %s", step.valueInMessage,
                          step.attribute, strerror(written.error));
    }
    return written.whole;
}

// ---- Calls ----

void SelectEcallAntenna() {
    EcallUIState state;
    GetUIStateAndLock(state, true);
    SelectAntenna(state);
    SetUIStateAndUnlock(state);
}

void SetCanTriggerAutoEcall(uint8_t canTrigger) {
    EcallUIState state;
    GetUIStateAndLock(state, true);
    state.CanTriggerAutoEcall = canTrigger;
    SetUIStateAndUnlock(state);
}

/// seen: the state as it was read just before, without its lock. proxy: held; null when there is none.
void RequestAutoEcall(const EcallUIState& seen, IEcallAppPubProxy* proxy) {
    if (seen.EcallAntennaSelected == 0) {
        SelectEcallAntenna();
    }
    if (const int32_t result = XirEcallapp_triggerEcall(proxy, kAutomaticEcall); result != 0) {
        EcallUITraceError("XirEcallapp_triggerEcall error :  srvcResult = %d", result);
        return;
    }
    EcallUITrace("Auto Ecall triggered ==> EcallUIState.CanTriggerAutoEcall = false");
    SetCanTriggerAutoEcall(0);
}

/// An emergency that was there before this thread was. Unlike an event it counts whether or not the sensor is used.
void CheckEmergencyAtStart() {
    EcallUIState state;
    GetUIStateAndLock(state, false);
    if (state.CanTriggerAutoEcall == 0) {
        EcallUITrace(
            "ecallEns_PwmRta = AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ, but CanTriggerAutoEcall == false ==> do nothing");
        return;
    }
    EcallUITrace("ecallEns_PwmRta = AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> trigger an automatic ecall");
    RequestAutoEcall(state, pProxyEcallapp.hold().get());
}

void CheckSensorAtStart() {
    const int32_t ecallEns_PwmRta = GpioRead_EcallEns();
    switch (ecallEns_PwmRta) {
        case AIRBAG_SENSOR_NORMAL_MODE_10HZ:
            SetCanTriggerAutoEcall(1);
            break;
        case AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ:
            CheckEmergencyAtStart();
            break;
        default:
            EcallUITrace("ecallEns_PwmRta = %d ==> do nothing", ecallEns_PwmRta);
            break;
    }
}

// ---- One function per event that does something ----

void OnEmergency() {
    EcallUITrace("ecall-ens AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ ==> sensor emergency detected (PWM 1kHz)");
    if (!EcallUI_Configuration.GpioInputPwm_ENS_Used) {
        EcallUITrace("GpioInputPwm_ENS_Used == false ==> do nothing");
        return;
    }
    EcallUIState state;
    GetUIStateAndLock(state, false);
    if (state.CanTriggerAutoEcall == 0) {
        return;
    }
    const EcallappHandle::Hold proxy = pProxyEcallapp.hold();
    if (proxy == nullptr) {
        EcallUITraceError("pProxyEcallapp == NULL ==> do nothing");
        return;
    }
    RequestAutoEcall(state, proxy.get());
}

void OnLostInterrupt() {
    EcallUITrace("ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ");
    if (!EcallUI_Configuration.GpioIrqRecovery) {
        EcallUITrace("ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == false, do nothing");
        return;
    }
    EcallUITrace("ecall-ens AIRBAG_SENSOR_INVALID_NO_IRQ, GpioIrqRecovery == true ==> try a recovery");
    EcallUI_Configuration.GpioIrqRecovery = 0;  // one recovery at a time
    if (const int error = StartThread("GpioRecoveryThread", GpioRecoveryThread); error != 0) {
        EcallUITraceError("GpioRecoveryThread not started, error = %s", strerror(error));
        EcallUI_Configuration.GpioIrqRecovery = 1;
    }
}

/// The line is looked at twice, as far apart as a press must last: contacts bounce, and crash pulses couple into the
/// line.
bool IsPressConfirmed() {
    if (!IsEcallButtonPressed()) {
        return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(EcallUI_Configuration.EcallButtonPressMinimalTimeForTrigMs));
    return IsEcallButtonPressed();
}

void OnButton() {
    if (EcallUI_Configuration.EcallButtonPullingDetectionMode) {
        EcallUITrace("ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> do nothing (QOR-726");
        return;
    }
    if (!EcallUI_Configuration.EcallButtonUsed) {
        EcallUITrace("EcallUI_Configuration.EcallButtonUsed == false ==> do nothing (QOR-726");
        return;
    }
    if (!IsPressConfirmed()) {
        EcallUITrace("spurious signal on ecall-nrqst ==> do nothing");
        return;
    }
    EcallUITrace("ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> Manual ecall activated");
    const EcallappHandle::Hold proxy = pProxyEcallapp.hold();
    if (proxy == nullptr) {
        EcallUITraceError("pProxyEcallapp == NULL ==> do nothing");
        return;
    }
    SelectEcallAntenna();
    XirEcallapp_triggerEcall(proxy.get(), kManualEcall);
}

void HandleEvent(EcallHwEvent event) {
    switch (event) {
        case AIRBAG_SENSOR_INVALID:
            EcallUITrace("ecall-ens AIRBAG_SENSOR_INVALID ==> do nothing");
            break;
        case AIRBAG_SENSOR_NOT_DETECTED:
            EcallUITrace("ecall-ens AIRBAG_SENSOR_NOT_DETECTED => sensor not detected (No PWM)");
            break;
        case AIRBAG_SENSOR_NORMAL_MODE_10HZ:
            EcallUITrace("ecall-ens AIRBAG_SENSOR_NORMAL_MODE_10HZ ==> sensor detected (PWM 10 Hz)");
            SetCanTriggerAutoEcall(1);
            break;
        case AIRBAG_SENSOR_AUTO_EMERGENCY_1KHZ:
            OnEmergency();
            break;
        case AIRBAG_SENSOR_INVALID_NO_IRQ:
            OnLostInterrupt();
            break;
        case BUTTON_MANUAL_ECALL_ACTIVATED:
            OnButton();
            break;
        case DTR_ACTIVATED:
            EcallUITrace("xgold_serial usif2 DTR is activated ");
            SetGpioEnableEcallLed(1);
            break;
        case DTR_INACTIVATED:
            EcallUITrace("xgold_serial usif2 DTR is inactivated ");
            SetGpioEnableEcallLed(0);
            break;
        case NO_EVENT:
            break;  // the loop has received again instead
        case NO_EVENT_ERROR:
            EcallUITraceError("ecall-ens NO_EVENT_ERROR ==> error sensor");
            break;
    }
}

// ---- The socket ----

/// Asks for a buffer beyond the system's limit first, which takes a privilege, then for what the limit allows.
void EnlargeReceiveBuffer(int socket) {
    const int bytes = kReceiveBufferBytes;
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
        setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    }
}

/// Without the socket no crash would ever be seen, so there is no going on without it.
void OpenEventSocket() {
    EventSocket = FileDescriptor(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_KOBJECT_UEVENT));
    EnlargeReceiveBuffer(EventSocket.get());
    const sockaddr_nl address = EventAddress();
    if (bind(EventSocket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        EcallUITraceError("nuevent bind fail");
        EventSocket.Close();
        fflush(stdout);
        _exit(1);  // other threads are running: no destructor may pull the ground from under them
    }
}

/// Waits until the socket is ready. Answers what select did, with its errno kept.
int WaitForEvent(bool& isReady) {
    fd_set descriptors;
    FD_ZERO(&descriptors);
    FD_SET(EventSocket.get(), &descriptors);
    const int ready = select(EventSocket.get() + 1, &descriptors, nullptr, nullptr, nullptr);
    isReady = ready > 0 && FD_ISSET(EventSocket.get(), &descriptors);
    return ready;
}

/// Receives until a datagram means something.
EcallHwEvent NextEvent() {
    EcallHwEvent event = NO_EVENT;
    while (event == NO_EVENT) {
        event = uevent_hdlr();
    }
    return event;
}

/// Handles events until select fails; answers its errno.
int HandleEvents() {
    for (;;) {
        EcallUITrace("Wait for an event (blocking wait) ");
        bool isReady = false;
        const int ready = WaitForEvent(isReady);
        const int error = errno;
        if (ready < 0 && error == EINTR) {
            EcallUITraceError("select() error == EINTR");
            continue;
        }
        if (ready < 0) {
            return error;
        }
        EcallUITrace("NbReadyDescriptor = %d ", ready);
        if (!isReady) {
            EcallUITraceError("ecall-ens NO_EVENT_ERROR ==> error sensor");
            continue;
        }
        HandleEvent(NextEvent());
    }
}

}  // namespace

void ConfigureEcallEns() {
    EcallUITrace("ConfigureEcallEns - Enter");
    WriteEcallEns("pwm_poll", "1000");
    WriteEcallEns("pwm_event_repeat", "1");
    EcallUITrace("ConfigureEcallEns - Exit");
}

void ConfigureEcallButtonNrqst(uint8_t activeLow) {
    // The messages of each write say 0 for every attribute but debounce_cnt.
    constexpr ButtonStep kInterruptOff{"irq_enable", "0", "0", false};
    constexpr ButtonStep kActiveLow{"active_low", "1", "0", true};
    constexpr ButtonStep kActiveHigh{"active_low", "0", "0", true};
    constexpr ButtonStep kDebounce{"debounce_cnt", "10", "10", true};
    constexpr ButtonStep kInterruptOn{"irq_enable", "1", "0", false};

    EcallUITrace("ConfigureEcallButtonNrqst - Enter : ActiveLow=%d", activeLow);
    if (!DoButtonStep(kInterruptOff)) {
        return;
    }
    EcallUITrace("Set the active state into /sys/devices/ecall_isr.xxx/active_low");
    if (!DoButtonStep(activeLow != 0 ? kActiveLow : kActiveHigh)) {
        return;
    }
    EcallUITrace("Set the debouce_cnt to 10 into /sys/devices/ecall_isr.xxx/debounce_cnt");
    if (!DoButtonStep(kDebounce) || !DoButtonStep(kInterruptOn)) {
        return;
    }
    EcallUITrace("ConfigureEcallButtonNrqst - Exit");
}

void Thread_GPIO_UEVNET() {
    EcallUITrace("Thread_GPIO_UEVNET - Enter");
    ConfigureEcallEns();
    CheckSensorAtStart();
    if (EcallUI_Configuration.GpioInputButton_nRQST_Used) {
        ConfigureEcallButtonNrqst(EcallUI_Configuration.GpioInputButton_nRQST_ActiveLow);
    }
    OpenEventSocket();
    const int error = HandleEvents();
    EventSocket.Close();  // unread, it would go on filling
    EcallUITraceError("select() error %s\n", strerror(error));
    EcallUITrace("Thread_GPIO_UEVNET - exit");
}

EcallHwEvent uevent_hdlr() {
    std::array<char, kDatagramSize> datagram{};
    sockaddr_nl sender = EventAddress();
    iovec part{datagram.data(), datagram.size()};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    const ssize_t length = recvmsg(EventSocket.get(), &message, 0);
    if (length < 0) {
        const int error = errno;
        if (error != EAGAIN) {
            EcallUITraceError("uevent_hdlr: Error recvmsg: %d", error);
        } else {
            EcallUITraceError("uevent_hdlr: Expected Error");
        }
        return NO_EVENT_ERROR;
    }
    if (length == 0) {
        EcallUITraceError("uevent_hdlr: lcm_uevent_hdlr: EOF");
        return NO_EVENT_ERROR;
    }
    const UeventText* const known = ClassifyUevent({datagram.data(), static_cast<std::size_t>(length)});
    if (known == nullptr) {
        return NO_EVENT;
    }
    EcallUITrace("%s", known->logLine);
    return known->event;
}

void SendRtaDetectorErrorStatus(uint8_t rtaDetectorError) {
    EcallUITrace("SendRtaDetectorErrorStatus - Enter (RtaDetectorError=%d)", rtaDetectorError);
    TSelfTestAllDevicesState result = NothingTested();
    result.rtaDetectorOperability = rtaDetectorError != 0 ? TSelfTestDeviceState_Failed : TSelfTestDeviceState_Success;
    const EcallappHandle::Hold proxy = pProxyEcallapp.hold();
    if (proxy != nullptr && LastSelfTestState != TSelfTestState_Unknown) {
        SendSelfTestResult(proxy.get(), result);
    } else {
        EcallUITrace(" ==> do nothing");
    }
    EcallUITrace("SendRtaDetectorErrorStatus - Exit");
}

void InitGpio() {
    EcallUITrace("InitGpio - Enter");
    if (EcallUI_Configuration.GpioInputPwm_ENS_Used || EcallUI_Configuration.GpioInputButton_nRQST_Used) {
        if (const int error = StartThread("Thread_GPIO_UEVNET", Thread_GPIO_UEVNET); error != 0) {
            EcallUITraceError("Thread_GPIO_UEVNET not started, error = %s", strerror(error));
        }
    }
    EcallUIState state;
    GetUIStateAndLock(state, true);
    GpioAntWrite(kAntSelectLine, state.EcallAntennaSelected != 0 ? 1 : 0, state);
    GpioAntWrite(kAntDetectLine, 0, state);
    SetUIStateAndUnlock(state);
    ExternalGpio_enable(EcallUI_Configuration.GpioForEnablingEcallLedControlUsed.get().c_str(),
                        EcallUI_Configuration.GpioForEnablingEcallLedControlActiveLow);
    EcallUITrace("InitGpio - exit");
}
