// Two threads: positions are forwarded as they come, on the location proxy's dispatch thread; the GNSS thread only
// watches that they do come. What they share, and share with the self-test worker, is without a lock: at worst one
// report comes late, twice or, requested while an earlier one is under way, not at all.
#include "EcallUIAppGnss.h"

#include <chrono>
#include <thread>

#include "EcallUIGpio.h"
#include "EcallUIGpioTest.h"
#include "EcallUIShared.h"
#include "Relaxed.h"
#include "Trace.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPositionWait{10'000};
constexpr uint64_t kMillisecondsPerSecond = 1000;

Relaxed<uint32_t> PositionCount{0};  ///< positions that came, forwarded or not
Relaxed<uint32_t> LastGnssIntegrity{TSelfTestDeviceState_NotHandled};

void TraceFailure(int32_t srvcResult) {
    if (srvcResult != 0) {
        EcallUITraceError("srvcResult ERROR  = %d !!!!!!", srvcResult);
    }
}

/// The request is answered also by a report that fails; one that comes during the report is lost with it.
void SendGnssReport(IEcallAppPubProxy* proxy, bool isValid) {
    const TSelfTestAllDevicesState report = GnssReport(isValid);
    const int32_t srvcResult = XirEcallapp_updateSelfTestAllDevicesState(proxy, &report);
    TraceFailure(srvcResult);
    if (srvcResult == 0) {
        LastGnssIntegrity = report.gnssParametersIntegrity;
    }
    GnssReportRequest = 0;
}

void SendPosition(IEcallAppPubProxy* proxy, const TLocation& location) {
    const TGnssLocation position = MakeGnssLocation(location);
    EcallUITrace("local_timestamp = %llu, receive_timestamp = %llu, timestamp = %llu",
                 static_cast<unsigned long long>(location.local_timestamp),
                 static_cast<unsigned long long>(location.receive_timestamp),
                 static_cast<unsigned long long>(location.timestamp));
    EcallUITrace("location_cb: ==> XirEcallapp_updateGnssLocation : isValid = %d", position.isValid);
    TraceFailure(XirEcallapp_updateGnssLocation(proxy, &position));
}

/// The proxy is kept for the whole process, also when the subscription is refused.
bool SubscribeToPositions() {
    static constexpr XirConnection kConnection{"LocationProviderClient", "xirtcp://127.0.0.1:50778"};
    LocationProviderPubProxy* proxy = nullptr;
    if (const int32_t result = loc_createProxy(&proxy, &kConnection); result != 0 || proxy == nullptr) {
        EcallUITraceError("loc_createProxy error, srvcResult = %d ", result);
        return false;
    }
    if (const int32_t result = loc_registerTheCurrentLocation(proxy, ForwardLocation); result != 0) {
        EcallUITraceError("ERROR loc_registerTheCurrentLocation : srvcResult = %d \n", result);
        return false;
    }
    return true;
}

void ReportNoPosition() {
    const EcallappHandle::Hold proxy = pProxyEcallapp.hold();
    if (proxy == nullptr) {
        return;
    }
    const TSelfTestAllDevicesState report = NoPositionReport();
    TraceFailure(XirEcallapp_updateSelfTestAllDevicesState(proxy.get(), &report));
}

[[noreturn]] void WatchPositions() {
    uint32_t before = 0;  // the first look asks whether any has come at all
    while (true) {
        std::this_thread::sleep_for(kPositionWait);
        if (PositionCount == before) {
            ReportNoPosition();
        }
        before = PositionCount;  // read anew: the report may have taken long
    }
}

}  // namespace

void RunGnss() {
    EcallUITrace("Thread_GNSS, enter");
    GpioWrite(kGpioGnssOnOff, 1);
    if (SubscribeToPositions()) {
        WatchPositions();
    }
    EcallUITrace("Thread_GNSS, exit");
}

int ForwardLocation(const TLocation* location) {
    if (location == nullptr) {
        return 0;
    }
    PositionCount = PositionCount + 1;  // by this thread alone
    const EcallappHandle::Hold proxy = pProxyEcallapp.hold();
    if (proxy == nullptr) {
        return 0;
    }
    const bool isValid = location->valid_flag != 0;
    if (IsGnssReportDue(GnssReportRequest, LastGnssIntegrity, isValid)) {
        SendGnssReport(proxy.get(), isValid);
    }
    SendPosition(proxy.get(), *location);
    return 0;
}

bool IsGnssReportDue(uint8_t reportRequest, uint32_t lastIntegrity, bool isValid) {
    return reportRequest == 1 || (lastIntegrity == TSelfTestDeviceState_Failed && isValid) ||
           (lastIntegrity == TSelfTestDeviceState_Success && !isValid);
}

TSelfTestAllDevicesState GnssReport(bool isValid) {
    const uint32_t state = isValid ? TSelfTestDeviceState_Success : TSelfTestDeviceState_Failed;
    TSelfTestAllDevicesState report = NothingTested();
    report.gnssParametersIntegrity = state;
    report.gnssAntennaConnection = state;
    report.gnssReceiverOperability = TSelfTestDeviceState_Success;
    return report;
}

TSelfTestAllDevicesState NoPositionReport() {
    TSelfTestAllDevicesState report = NothingTested();
    report.fwImageIntegrity = TSelfTestDeviceState_Success;  // deliberately, though nothing here has tested it
    report.gnssReceiverOperability = TSelfTestDeviceState_Failed;
    return report;
}

TGnssLocation MakeGnssLocation(const TLocation& location) {
    return {
        .isValid = location.valid_flag,
        .utcTime = location.receive_timestamp / kMillisecondsPerSecond,
        .latitude = location.latitude,
        .longitude = location.longitude,
        .altitude = static_cast<float>(location.altitude),
        .horizontalAccuracy = location.horizontal_accuracy,
        .course = location.heading,
        .courseAccuracy = location.heading_accuracy,
        .speed = location.speed,
        .speedAccuracy = location.speed_accuracy,
        .courseMagnetic = location.heading_mag,
        .courseMagneticAccuracy = location.heading_mag_accuracy,
    };
}
