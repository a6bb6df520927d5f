/// The service's own RPC interface IEcallUIApp: parameters, version, microphone test.
#ifndef ECALL_UI_APP_IMPL_H
#define ECALL_UI_APP_IMPL_H

/// Starts the server on "xirtcp://50101"; it then lives as long as the process. A failure is logged, and the service
/// goes on without it. Called once, from start-up.
void XirCreateIEcallUIApp();

#endif
