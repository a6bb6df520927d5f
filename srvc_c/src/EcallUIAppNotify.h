/// What the service does with each state of the eCall service, whether notified or asked for.
#ifndef ECALL_UI_APP_NOTIFY_H
#define ECALL_UI_APP_NOTIFY_H

#include "XirEcallapp.h"

/// Logs the state by name, turns a newly requested self-test into a request for the self-test worker, and drives the
/// outputs. state: never null, borrowed for the call; any value may be out of range. Runs on the dispatch thread and,
/// at start-up, on the main thread, perhaps at the same time. Always answers 0.
int EcallStateNotification(const TEcallappState* state);

#endif
