// Unlike the road of the button's interrupt, this one keeps the "State" mutex over the request: whoever else needs the
// state waits until the eCall service has answered.
#include "EcallUIAppButton.h"

#include <chrono>
#include <thread>

#include "EcallUIData.h"
#include "EcallUIGpio.h"
#include "EcallUIGpioAnt.h"
#include "EcallUIShared.h"
#include "Trace.h"
#include "XirEcallapp.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPollPeriod{200};

void RequestManualEcall() {
    EcallUITrace("ecall-nrqst, BUTTON_MANUAL_ECALL_ACTIVATED ==> Manual ecall activated");
    const EcallappHandle::Hold proxy = pProxyEcallapp.hold();
    if (proxy == nullptr) {
        EcallUITrace("pProxyEcallapp == NULL ==> do nothing");
        return;
    }
    EcallUIState state;
    GetUIStateAndLock(state, true);
    SelectAntenna(state);
    XirEcallapp_triggerEcall(proxy.get(), kManualEcall);
    SetUIStateAndUnlock(state);
}

void PollButton() {
    if (!IsEcallButtonPressed()) {
        std::this_thread::sleep_for(kPollPeriod);
        return;
    }
    if (!EcallUI_Configuration.EcallButtonUsed) {
        // Deliberately without a pause, however long the button is held: do not add one.
        EcallUITrace("EcallUI_Configuration.EcallButtonUsed == false ==> do nothing");
        return;
    }
    std::this_thread::sleep_for(milliseconds(EcallUI_Configuration.EcallButtonPressMinimalTimeForTrigMs));
    if (!IsEcallButtonPressed()) {
        EcallUITrace("spurious signal on ecall-nrqst ==> do nothing");
        return;
    }
    RequestManualEcall();
}

}  // namespace

void RunButtonPolling() {
    while (true) {
        PollButton();
    }
}
