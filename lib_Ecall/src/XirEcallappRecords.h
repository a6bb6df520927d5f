/// How the caller's records and the messages on the wire correspond: one list of field pairs for each record.
#ifndef XIR_ECALLAPP_RECORDS_H
#define XIR_ECALLAPP_RECORDS_H

#include "XirEcallapp.h"
#include "XirRpcRecords.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"

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

#endif
