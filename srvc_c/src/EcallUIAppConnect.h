/// The start-up stage that joins the service to the eCall service.
#ifndef ECALL_UI_APP_CONNECT_H
#define ECALL_UI_APP_CONNECT_H

#include "XirEcallapp.h"

/// Where the eCall service is, and as whom it is called.
inline constexpr XirConnection kEcallConnection{"EcallAppClient", "xirtcp://127.0.0.1:50911"};

/// Connects (waiting without limit), subscribes to the states, takes the current one, and aligns the microphone that
/// the eCall service uses with the configured one. Does nothing when the configuration wants no eCall service. A
/// failure ends the process with status 1. On the main thread, before any worker exists.
void ConnectEcallService();

/// Takes the current state again, now that the outputs are ready for it.
void PullEcallStateOnceMore();

#endif
