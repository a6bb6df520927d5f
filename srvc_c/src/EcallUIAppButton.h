/// The eCall button, watched by reading its line: for modules on which its interrupt is not to be relied on.
#ifndef ECALL_UI_APP_BUTTON_H
#define ECALL_UI_APP_BUTTON_H

/// Entry of the polling thread. Requests a manual call for a press that lasts EcallButtonPressMinimalTimeForTrigMs, and
/// one more each time it has lasted that long again: there is no wait for the release.
[[noreturn]] void RunButtonPolling();

#endif
