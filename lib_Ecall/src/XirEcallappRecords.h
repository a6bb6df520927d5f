/// How the caller's records and the messages on the wire correspond: one list of field pairs for each record, walked in
/// either direction.
///
/// Wire enumerations are never loaded or stored as such: a peer may send any number, and a C++ enumeration must not
/// hold one that it does not name.
#ifndef XIR_ECALLAPP_RECORDS_H
#define XIR_ECALLAPP_RECORDS_H

#include <concepts>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "XirEcallapp.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"
#include "xir_memory.h"

/// The generated messages under readable names.
namespace wire {
using CfgParamValue = Com__Vantu__Ecallapp__TCfgParamValue;
using EcallappState = Com__Vantu__Ecallapp__TEcallappState;
using GnssLocation = Com__Vantu__Ecallapp__TGnssLocation;
using GnssLocationHistory = Com__Vantu__Ecallapp__TEcallGnssLocationHistory;
using MsdHistory = Com__Vantu__Ecallapp__TEcallMsdHistory;
using OperatingMode = Com__Vantu__Ecallapp__GetOperatingModeResponse;
using PropulsionStorageType = Com__Vantu__Ecallapp__TPropulsionStorageType;
using SelfTestAllDevicesState = Com__Vantu__Ecallapp__TSelfTestAllDevicesState;
using SimInfo = Com__Vantu__Ecallapp__TEcallSimInfo;
using VehicleConfig = Com__Vantu__Ecallapp__TVehicleConfig;
using VehicleState = Com__Vantu__Ecallapp__TVehicleState;
using Version = Com__Vantu__Ecallapp__GetVersionResponse;
}  // namespace wire

template <typename T, typename U>
concept Either = std::same_as<std::remove_const_t<T>, U>;  // const or not, by the direction of the copy

void EachField(Either<wire::EcallappState> auto& w, Either<TEcallappState> auto& r, auto& copy) {
    copy(w.servicestate, r.serviceState);
    copy(w.simprofilestate, r.simProfileState);
    copy(w.networkstate, r.networkState);
    copy(w.callstate, r.callState);
    copy(w.audiooutstate, r.audioOutState);
    copy(w.selfteststate, r.selfTestState);
}

void EachField(Either<wire::SelfTestAllDevicesState> auto& w, Either<TSelfTestAllDevicesState> auto& r, auto& copy) {
    copy(w.fwimageintegrity, r.fwImageIntegrity);
    copy(w.cellularantennaconnection, r.cellularAntennaConnection);
    copy(w.simpresent, r.simPresent);
    copy(w.cellularreceiveroperability, r.cellularReceiverOperability);
    copy(w.gnssparametersintegrity, r.gnssParametersIntegrity);
    copy(w.gnssantennaconnection, r.gnssAntennaConnection);
    copy(w.gnssreceiveroperability, r.gnssReceiverOperability);
    copy(w.rtadetectoroperability, r.rtaDetectorOperability);
    copy(w.microphoneconnection, r.microphoneConnection);
    copy(w.microphoneoperability, r.microphoneOperability);
    copy(w.loudspeakerconnection, r.loudspeakerConnection);
    copy(w.loudspeakeroperability, r.loudspeakerOperability);
    copy(w.backupbatterylevel, r.backupBatteryLevel);
    copy(w.statusindicatoroperability, r.statusIndicatorOperability);
    copy(w.uimoperability, r.uimOperability);
}

void EachField(Either<wire::CfgParamValue> auto& w, Either<TCfgParamValue> auto& r, auto& copy) {
    copy(w.boolvalue, r.boolValue);
    copy(w.intvalue, r.intValue);
    copy(w.strvalue, r.StrValue);
}

void EachField(Either<wire::GnssLocation> auto& w, Either<TGnssLocation> auto& r, auto& copy) {
    copy(w.isvalid, r.isValid);
    copy(w.utctime, r.utcTime);
    copy(w.latitude, r.latitude);
    copy(w.longitude, r.longitude);
    copy(w.altitude, r.altitude);
    copy(w.horizontalaccuracy, r.horizontalAccuracy);
    copy(w.course, r.course);
    copy(w.courseaccuracy, r.courseAccuracy);
    copy(w.speed, r.speed);
    copy(w.speedaccuracy, r.speedAccuracy);
    copy(w.coursemagnetic, r.courseMagnetic);
    copy(w.coursemagneticaccuracy, r.courseMagneticAccuracy);
}

/// w.propulsionstoragetype points at its message.
void EachField(Either<wire::VehicleConfig> auto& w, Either<TVehicleConfig> auto& r, auto& copy) {
    copy(w.vin, r.VIN);
    copy(w.propulsionstoragetype->gasolinetankpresent, r.gasolineTankPresent);
    copy(w.propulsionstoragetype->dieseltankpresent, r.dieselTankPresent);
    copy(w.propulsionstoragetype->compressednaturalgas, r.compressedNaturalGas);
    copy(w.propulsionstoragetype->liquidpropanegas, r.liquidPropaneGas);
    copy(w.propulsionstoragetype->electricenergystorage, r.electricEnergyStorage);
    copy(w.propulsionstoragetype->hydrogenstorage, r.hydrogenStorage);
    copy(w.propulsionstoragetype->otherpropulsionstorage, r.otherPropulsionStorage);
    copy(w.vehicletype, r.vehicleType);
    copy(w.audiotuningset, r.audioTuningSet);
}

void EachField(Either<wire::VehicleState> auto& w, Either<TVehicleState> auto& r, auto& copy) {
    copy(w.numberofpassengers, r.numberOfPassengers);
    copy(w.backupbatteryused, r.backupBatteryUsed);
    copy(w.ignitionon, r.ignitionOn);
}

void EachField(const wire::GnssLocationHistory& w, TEcallGnssLocationHistory& r, auto& copy) {
    copy(w.totalgnsslocationstoredbeforecrash, r.totalGnssLocationStoredBeforeCrash);
    copy(w.totalgnsslocationstoredaftercrash, r.totalGnssLocationStoredAfterCrash);
    copy(w.index, r.index);
    EachField(static_cast<const wire::GnssLocation&>(*w.data), r.data, copy);
}

void EachField(const wire::MsdHistory& w, TEcallMsdHistory& r, auto& copy) {
    copy(w.totalmsdstored, r.totalMsdStored);
    copy(w.index, r.index);
    copy(w.info, r.info);
}

void EachField(const wire::SimInfo& w, TEcallSimInfo& r, auto& copy) {
    copy(w.simpresent, r.simPresent);
    copy(w.ecallcapable, r.ecallCapable);
    copy(w.ecalltestnumber, r.ecallTestNumber);
    copy(w.ecallreconfigurenumber, r.ecallReconfigureNumber);
    copy(w.ecalldualprofileenable, r.ecallDualProfileEnable);
    copy(w.ecallcurrentprofile, r.ecallCurrentProfile);
}

void EachField(const wire::OperatingMode& w, TEcallOperatingMode& r, auto& copy) {
    copy(w.mode, r.mode);
}

void EachField(const wire::Version& w, TEcallVersion& r, auto& copy) {
    copy(w.strversion, r.strVersion);
}

/// Wire to record. Numbers are cut to the size of the record's field; texts are copied into blocks of the record.
struct CopyToRecord {
    void* block = nullptr;  ///< the record's reference-counted block; null for a record without texts
    bool complete = true;   ///< false when memory for a text was missing

    template <typename Wire, typename Field>
    void operator()(const Wire& from, Field& to) const {
        if constexpr (std::is_enum_v<Wire>) {
            static_assert(sizeof from == sizeof to);
            std::memcpy(&to, &from, sizeof to);
        } else {
            to = static_cast<Field>(from);
        }
    }
    void operator()(char* const& from, const char*& to) {
        const std::size_t size = std::strlen(from) + 1;
        void* text = xir_allocate_and_attach(block, size);
        complete = complete && text != nullptr;
        to = text == nullptr ? nullptr : static_cast<const char*>(std::memcpy(text, from, size));
    }
};

/// Record to wire. Texts are borrowed; a null text becomes an empty one.
struct CopyToWire {
    template <typename Wire, typename Field>
    void operator()(Wire& to, const Field& from) const {
        if constexpr (std::is_enum_v<Wire>) {
            static_assert(sizeof from == sizeof to);
            std::memcpy(&to, &from, sizeof to);
        } else {
            to = static_cast<Wire>(from);
        }
    }
    void operator()(char*& to, const char* const& from) const {
        to = const_cast<char*>(from == nullptr ? "" : from);  // packing does not write to it
    }
};

template <typename Wire, typename Record>
void FillMessage(Wire& message, const Record& record) {
    CopyToWire copy;
    EachField(message, record, copy);
}

/// Makes the caller's record of a message. Answers false without memory, then *out is unchanged.
template <typename Wire, typename Record>
bool MakeRecord(const Wire& message, XirRecord<Record>** out) {
    void* block = nullptr;
    if (xir_allocate(&block, sizeof(XirRecord<Record>)) != 0) {
        return false;
    }
    auto* record = std::construct_at(static_cast<XirRecord<Record>*>(block));
    CopyToRecord copy{block};
    EachField(message, static_cast<Record&>(*record), copy);
    if (!copy.complete) {
        xir_release(block);
        return false;
    }
    record->retain = xir_retain;
    record->release = xir_release;
    *out = record;
    return true;
}

#endif
