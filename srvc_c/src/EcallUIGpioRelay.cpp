#include "EcallUIGpioRelay.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>

#include "EcallUIData.h"
#include "EcallUIGpio.h"
#include "Script.h"
#include "Trace.h"

namespace {

constexpr char kAudioScript[] = "/etc/init.d/launch-audio-for-ecall.sh";
constexpr char kAudioScriptName[] = "launch-audio-for-ecall.sh";
constexpr time_t kSwitchOffDelaySeconds = 5;

std::atomic<timer_t> RelayTimer{};  // null until the first use, then never deleted

// An expiry may be on its way already when the relay is asked for again. It then finds that nothing is due any more, or
// has finished its write before the relay is switched on. Taken before "Trace".
std::mutex SwitchOffTurn;
bool isSwitchOffDue = false;  // guarded by SwitchOffTurn

bool IsRelayUsed() {
    if (!EcallUI_Configuration.AudioRelayUsed) {
        EcallUITrace("EcallUI_Configuration.AudioRelayUsed == false ==> do nothing");
        return false;
    }
    return true;
}

void RunAudioScript(const char* action) {
    EcallUITrace("launches the external script /etc/init.d/launch-audio-for-ecall.sh ");
    RunScript({.path = kAudioScript,
               .name = kAudioScriptName,
               .argument = action,
               .action = action,
               .resultFile = nullptr,
               .end = ScriptEnd::AnyChild});
}

/// Makes the timer on first use. Of two threads that come here at once one keeps its timer, the other drops its own.
timer_t GetRelayTimer() {
    timer_t known = RelayTimer;
    if (known != nullptr) {
        return known;
    }
    sigevent notification{};
    notification.sigev_notify = SIGEV_THREAD;
    notification.sigev_notify_function = RelayTimer_callback;
    timer_t created = nullptr;
    if (timer_create(CLOCK_MONOTONIC, &notification, &created) != 0) {
        return nullptr;
    }
    if (!RelayTimer.compare_exchange_strong(known, created)) {
        timer_delete(created);
        return known;
    }
    return created;
}

}  // namespace

void ControlAudioRelay(bool SetRelayOn) {
    EcallUITrace("ControlAudioRelay (SetRelayOn=%d) - Enter", SetRelayOn);
    if (EcallUI_Configuration.EcallMicrophoneSource == kExternalDigitalMic) {
        RunAudioScript(SetRelayOn ? "start" : "stop");
    }
    if (IsRelayUsed()) {
        TimerAudioRelay(!SetRelayOn);
        if (SetRelayOn) {
            GpioWrite(kGpioAudioRelay, 1);
        }
    }
    EcallUITrace("ControlAudioRelay - Exit");
}

void TimerAudioRelay(bool activateTimer) {
    EcallUITrace("TimerAudioRelay (activateTimer=%d) - Enter", activateTimer);
    if (IsRelayUsed()) {
        const timer_t timer = GetRelayTimer();
        if (timer == nullptr) {
            EcallUITraceError("Cannot create Relay timer error = %s ==> activate the relay by default",
                              strerror(errno));
            GpioWrite(kGpioAudioRelay, 1);
            return;
        }
        const std::lock_guard turn(SwitchOffTurn);
        isSwitchOffDue = activateTimer;
        itimerspec once{};
        once.it_value.tv_sec = activateTimer ? kSwitchOffDelaySeconds : 0;
        timer_settime(timer, 0, &once, nullptr);
    }
    EcallUITrace("TimerAudioRelay - Exit");
}

void RelayTimer_callback(union sigval sig) {
    EcallUITrace("RelayTimer_callback: sig = %d => switch off the audio relay", sig.sival_int);
    const std::lock_guard turn(SwitchOffTurn);
    if (std::exchange(isSwitchOffDue, false)) {
        GpioWrite(kGpioAudioRelay, 0);
    }
}
