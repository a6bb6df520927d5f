/// Forwarding of positions: from the location service to the eCall service, together with the GNSS items of the
/// self-test.
#ifndef ECALL_UI_APP_GNSS_H
#define ECALL_UI_APP_GNSS_H

#include <cstdint>

#include "LocationProvider.h"
#include "XirEcallapp.h"

/// Entry of the GNSS thread: subscribes to the positions, waiting without limit for the location service, and then
/// watches for ever that they come. Ends only when it gets none: the proxy lacks its thread or memory, the service is
/// another one, or a request of its start is refused, lost or not answered. Then it subscribes no more in this run.
void RunGnss();

/// Forwards one position, valid or not, to the eCall service, after a report if one is due. Null, and a position while
/// there is no eCall service, are ignored. A call that fails is logged and what it sent is dropped: the next position
/// is newer. Answers 0. Blocks for the replies; on the location proxy's dispatch thread.
int ForwardLocation(const TLocation* location);

/// Whether a position also reports the GNSS items. reportRequest: GnssReportRequest; lastIntegrity: the last one that
/// was reported (TSelfTestDeviceState), NotHandled before the first: until then only a request makes a report due.
bool IsGnssReportDue(uint8_t reportRequest, uint32_t lastIntegrity, bool isValid);
/// The report that goes with a position: the receiver works, and its antenna and parameters as the position shows.
TSelfTestAllDevicesState GnssReport(bool isValid);
/// The report when no position has come for a while.
TSelfTestAllDevicesState NoPositionReport();
/// The position as the eCall service takes it.
TGnssLocation MakeGnssLocation(const TLocation& location);

#endif
