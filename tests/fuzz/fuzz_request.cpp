// Every message that the service unpacks: the requests of its own clients, and the replies and notifications of the
// services that it uses. The first byte chooses the message, the rest is its payload. It is unpacked by the transport,
// and then copied as the service copies it.
//
// The handlers are the skeleton's own; the operations behind them are here, so that no script runs and no file is
// written. They send back what they got.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

#include "LocationProviderRecords.h"
#include "XirEcallUIapp.h"
#include "XirEcallappRecords.h"
#include "xir_frame.h"

namespace {

void Require(bool condition) {
    if (!condition) {
        abort();
    }
}

std::vector<uint8_t> Pack(const ProtobufCMessage& message) {
    std::vector<uint8_t> bytes(protobuf_c_message_get_packed_size(&message));
    Require(protobuf_c_message_pack(&message, bytes.data()) == bytes.size());
    return bytes;
}

XirMessage Unpack(const ProtobufCServiceDescriptor& service, uint16_t method, uint8_t kind, const uint8_t* payload,
                  size_t size) {
    std::vector<uint8_t> frame{static_cast<uint8_t>(size),
                               static_cast<uint8_t>(size >> 8),
                               static_cast<uint8_t>(size >> 16),
                               static_cast<uint8_t>(size >> 24),
                               static_cast<uint8_t>(method),
                               0,
                               kind,
                               0,
                               0,
                               0,
                               0,
                               0};
    frame.insert(frame.end(), payload, payload + size);
    xir_common_rpc_header header{};
    size_t consumed = 0;
    xir_common_rpc_deserialize(&service, frame.data(), frame.size(), &header, &consumed);
    return XirMessage(header.message);
}

// The operations.

template <typename Result>
XirRecord<Result>* Made() {
    auto* const result = NewRecord<Result>();
    Require(result != nullptr);
    return result;
}

/// Of the last set, for the next get.
int32_t setNumber = 0;
std::vector<char> setText{'\0'};

}  // namespace

XirRecord<TGetCfgParameterResult>* get_cfg_parameter_impl(const void* /*conn*/, int32_t cfgParamName) {
    auto* const result = Made<TGetCfgParameterResult>();
    result->paramValue = {static_cast<uint8_t>(cfgParamName), setNumber, AttachText(result, setText.data())};
    return result;
}

XirRecord<TSetCfgParameterResult>* com_vantu_ecalluiapp_iecalluiapp_set_cfg_parameter_impl(
    const void* /*conn*/, int32_t cfgParamName, const TUiCfgParamValue& paramValue) {
    Require(paramValue.boolValue <= 1);
    setNumber = paramValue.intValue;
    setText.assign(paramValue.StrValue, paramValue.StrValue + std::strlen(paramValue.StrValue) + 1);
    auto* const result = Made<TSetCfgParameterResult>();
    result->responsecode = static_cast<uint32_t>(cfgParamName);
    return result;
}

XirRecord<TGetVersionResult>* com_vantu_ecalluiapp_iecalluiapp_get_version_impl(const void* /*conn*/) {
    return Made<TGetVersionResult>();  // no text
}

XirRecord<TRunAnalogMicTestResult>* com_vantu_ecalluiapp_iecalluiapp_run_analog_mic_test_impl(const void* /*conn*/) {
    return Made<TRunAnalogMicTestResult>();
}

namespace {

// As a server.

/// Its service object is what requests are handed to. Bound to no URL: nobody connects.
IEcallUIAppServer* Server() {
    static IEcallUIAppServer* const server = [] {
        IEcallUIAppServer* made = nullptr;
        Require(XirCreateIEcallUIAppSrvc(&made, {0, nullptr}) == 0);
        return made;
    }();
    return server;
}

/// The reply must be one that the client can unpack.
template <typename Reply>
void TakeReply(const Reply* reply, void* /*data*/) {
    const ProtobufCMessage& message = reply->base;
    const std::vector<uint8_t> bytes = Pack(message);
    const XirMessage again(protobuf_c_message_unpack(message.descriptor, nullptr, bytes.size(), bytes.data()));
    Require(again != nullptr && Pack(*again) == bytes);
}

using Service = Com__Vantu__Ecalluiapp__IEcallUIApp_Service;
template <typename Request, typename Reply>
using Handler = void (*Service::*)(Service*, const Request*, void (*)(const Reply*, void*), void*);

template <typename Request, typename Reply>
void ServeBy(Handler<Request, Reply> handler, const ProtobufCMessage& request) {
    Service& service = Server()->service;
    (service.*handler)(&service, reinterpret_cast<const Request*>(&request), TakeReply<Reply>, nullptr);
}

template <auto kHandler>
void Serve(const ProtobufCMessage& request) {
    ServeBy(kHandler, request);
}

// As a client.

template <typename Reply>
void TakeCode(const ProtobufCMessage& message) {
    [[maybe_unused]] const volatile uint32_t code = reinterpret_cast<const Reply&>(message).responsecode;
}

/// The name is compared.
void TakeInterface(const ProtobufCMessage& message) {
    using Reply = Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse;
    [[maybe_unused]] const volatile size_t length = std::strlen(reinterpret_cast<const Reply&>(message).name);
}

template <typename Record, typename Wire>
void TakeRecord(const Wire& message) {
    XirRecord<Record>* record = nullptr;
    Require(MakeRecord(message, &record));
    record->release(record);
}

/// A record in a member of the message.
template <typename Message, typename Record, auto kMember>
void TakeMember(const ProtobufCMessage& message) {
    TakeRecord<Record>(*(reinterpret_cast<const Message&>(message).*kMember));
}

/// A message that is the record.
template <typename Message, typename Record>
void TakeWhole(const ProtobufCMessage& message) {
    TakeRecord<Record>(reinterpret_cast<const Message&>(message));
}

void TakeState(const ProtobufCMessage& message) {
    TEcallappState state{};
    CopyToRecord copy;
    const auto& update = reinterpret_cast<const Com__Vantu__Ecallapp__NotifyNotifyStateUpdate&>(message);
    EachField(static_cast<const wire::EcallappState&>(*update.ecallappstate), state, copy);
}

void TakeProviderState(const ProtobufCMessage& message) {
    using Update = Com__Vantu__Ms__Location__NotifyTheCurrentProviderStateUpdate;
    uint32_t status = 0;
    CopyToRecord{}(reinterpret_cast<const Update&>(message).status, status);
}

void TakeLastKnownPosition(const ProtobufCMessage& message) {
    const auto& reply = reinterpret_cast<const Com__Vantu__Ms__Location__GetLastKnownPositionResponse&>(message);
    if (reply.result_case == COM__VANTU__MS__LOCATION__GET_LAST_KNOWN_POSITION_RESPONSE__RESULT_VALUE) {
        TakeRecord<TLocation>(*reply.value->lastknownlocation);
    }
}

void TakeCurrentPosition(const ProtobufCMessage& message) {
    const auto& reply = reinterpret_cast<const Com__Vantu__Ms__Location__GetCurrentPositionResponse&>(message);
    if (reply.result_case == COM__VANTU__MS__LOCATION__GET_CURRENT_POSITION_RESPONSE__RESULT_VALUE) {
        TakeRecord<TLocation>(*reply.value->location);
    }
}

#define ECALL(message) Com__Vantu__Ecallapp__##message
#define MEMBER(message, record, member) TakeMember<ECALL(message), record, &ECALL(message)::member>

constexpr auto kReply = XIR_COMMON_RPC_KIND_REPLY;
constexpr auto kRequest = XIR_COMMON_RPC_KIND_REQUEST;
constexpr auto kNotification = XIR_COMMON_RPC_KIND_NOTIFICATION;
const auto* const kUi = &com__vantu__ecalluiapp__iecall_uiapp__descriptor;
const auto* const kEcall = &com__vantu__ecallapp__iecall_app__descriptor;
const auto* const kLocation = &com__vantu__ms__location__location_provider__descriptor;

/// The first byte is a place here; the seeds lean on the order.
const struct Row {
    const ProtobufCServiceDescriptor* service;
    uint16_t method;
    uint8_t kind;
    void (*take)(const ProtobufCMessage& message);
} kRows[] = {
    {kUi, 0, kRequest, Serve<&Service::get_ui_cfg_parameter>},
    {kUi, 1, kRequest, Serve<&Service::set_ui_cfg_parameter>},
    {kUi, 2, kRequest, Serve<&Service::get_ui_version>},
    {kUi, 3, kRequest, Serve<&Service::run_analog_mic_test>},
    {kUi, 4, kRequest, Serve<&Service::get_iecall_uiapp_version>},
    {kEcall, 0, kReply, TakeCode<Com__Vantu__Ms__Protobuf__VoidResponse>},
    {kEcall, 5, kReply, MEMBER(GetSelfTestAllDevicesStateResponse, TSelfTestAllDevicesState, selftestalldevicesstate)},
    {kEcall, 8, kReply, MEMBER(RequestStateResponse, TEcallappState, ecallappstate)},
    {kEcall, 9, kReply, MEMBER(GetCfgParameterResponse, TCfgParamValue, paramvalue)},
    {kEcall, 11, kReply, MEMBER(GetGnssLocationHistoryResponse, TEcallGnssLocationHistory, ecallgnsslocationhistory)},
    {kEcall, 12, kReply, MEMBER(GetMsdHistoryResponse, TEcallMsdHistory, ecallmsdhistory)},
    {kEcall, 15, kReply, TakeWhole<ECALL(GetOperatingModeResponse), TEcallOperatingMode>},
    {kEcall, 16, kReply, MEMBER(GetSimInfoResponse, TEcallSimInfo, siminfo)},
    {kEcall, 17, kReply, TakeWhole<ECALL(GetVersionResponse), TEcallVersion>},
    {kEcall, 18, kNotification, TakeState},
    {kEcall, 21, kReply, TakeInterface},
    {kLocation, 0, kReply, TakeLastKnownPosition},
    {kLocation, 1, kReply, TakeCurrentPosition},
    {kLocation, 3, kNotification,
     TakeMember<Com__Vantu__Ms__Location__NotifyTheCurrentLocationUpdate, TLocation,
                &Com__Vantu__Ms__Location__NotifyTheCurrentLocationUpdate::location>},
    {kLocation, 4, kNotification, TakeProviderState},
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return Server() != nullptr ? 0 : -1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    if (size == 0 || size - 1 > kXirFramePayloadLimit) {
        return 0;
    }
    const Row& row = kRows[bytes[0] % std::size(kRows)];
    const XirMessage message = Unpack(*row.service, row.method, row.kind, bytes + 1, size - 1);
    if (message != nullptr) {
        row.take(*message);
    }
    return 0;
}
