// A handler fills the payload of its reply and answers the responsecode. The table of handlers is in the order of the
// methods' numbers.
#include "LocationPeer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "MessageBlank.h"

namespace {

constexpr uint32_t kOk = 0;
constexpr uint32_t kNoSuchNotification = 2;

template <typename T>
T& As(ProtobufCMessage& message) {
    return reinterpret_cast<T&>(message);
}

uint32_t GetLastKnownPosition(const LocationService& service, const ProtobufCMessage&, ProtobufCMessage& reply) {
    auto& answer = As<Com__Vantu__Ms__Location__GetLastKnownPositionResponse>(reply);
    if (!service.lastValid) {
        answer.result_case = COM__VANTU__MS__LOCATION__GET_LAST_KNOWN_POSITION_RESPONSE__RESULT_ERROR_CODE;
        answer.error_code =
            COM__VANTU__MS__LOCATION__GET_LAST_KNOWN_POSITION_ERROR_ENUM__GetLastKnownPositionErrorEnum_NO_POSITION_AVAILABLE;
        return service.noPositionCode;
    }
    answer.result_case = COM__VANTU__MS__LOCATION__GET_LAST_KNOWN_POSITION_RESPONSE__RESULT_VALUE;
    PositionFill(*service.lastValid, *answer.value->lastknownlocation);
    return kOk;
}

/// Answers at once: the simulated receiver would not find within the time what it does not have now.
uint32_t GetCurrentPosition(const LocationService& service, const ProtobufCMessage&, ProtobufCMessage& reply) {
    auto& answer = As<Com__Vantu__Ms__Location__GetCurrentPositionResponse>(reply);
    if (!service.current || !service.current->valid) {
        answer.result_case = COM__VANTU__MS__LOCATION__GET_CURRENT_POSITION_RESPONSE__RESULT_ERROR_CODE;
        answer.error_code =
            COM__VANTU__MS__LOCATION__GET_CURRENT_POSITION_ERROR_ENUM__GetCurrentPositionErrorEnum_TIME_OUT;
        return service.noPositionCode;
    }
    answer.result_case = COM__VANTU__MS__LOCATION__GET_CURRENT_POSITION_RESPONSE__RESULT_VALUE;
    PositionFill(*service.current, *answer.value->location);
    return kOk;
}

/// Taken note of (the journal shows it); nothing depends on it here.
uint32_t Close(const LocationService&, const ProtobufCMessage&, ProtobufCMessage&) {
    return kOk;
}

uint32_t Subscribe(const LocationService&, const ProtobufCMessage& request, ProtobufCMessage&) {
    const auto& wanted = reinterpret_cast<const Com__Vantu__Ms__Protobuf__SubscribeRequest&>(request);
    const bool known = wanted.messageid == static_cast<uint32_t>(LocationMethod::NotifyTheCurrentLocation) ||
                       wanted.messageid == static_cast<uint32_t>(LocationMethod::NotifyTheCurrentProviderState);
    return known ? kOk : kNoSuchNotification;
}

uint32_t GetVersion(const LocationService& service, const ProtobufCMessage&, ProtobufCMessage& reply) {
    auto& version = As<Com__Vantu__Ms__Protobuf__GetRemoteVersionResponse>(reply);
    version.major = service.identity.major;
    version.minor = service.identity.minor;
    version.name = const_cast<char*>(service.identity.name.c_str());  // nobody writes through it
    return kOk;
}

using Handler = uint32_t (*)(const LocationService& service, const ProtobufCMessage& request, ProtobufCMessage& reply);

constexpr std::array<Handler, 8> kHandlers{
    GetLastKnownPosition,  // 0
    GetCurrentPosition,    // 1
    Close,                 // 2
    nullptr,               // 3 notifyTheCurrentLocation
    nullptr,               // 4 notifyTheCurrentProviderState
    Subscribe,             // 5
    Subscribe,             // 6 unsubscribe
    GetVersion,            // 7
};

}  // namespace

LocationPeer::LocationPeer(Journal& to, uint16_t atPort)
    : RpcPeerOf(to, com__vantu__ms__location__location_provider__descriptor, "location service", atPort) {}

LocationPeer::~LocationPeer() {
    Stop();
}

xir_common_rpc_interface LocationPeer::Interface() const {
    return {.id = 129, .major = static_cast<uint8_t>(served.identity.major), .notification_count = 2};
}

void LocationPeer::Begin() {
    if (journey) {
        TellNext();
    }
}

void LocationPeer::End() {
    journeyTimer = nullptr;
}

void LocationPeer::Fill(unsigned method, const ProtobufCMessage& request, ProtobufCMessage& reply) {
    constexpr unsigned kResponsecodeField = 1;
    const uint32_t code = kHandlers.at(method)(served, request, reply);
    MessageSetUnsigned(reply, kResponsecodeField, code);
}

void LocationPeer::Tell(const Position& position) {
    served.current = position;
    if (position.valid) {
        served.lastValid = position;
    }
    MessageBlank update(com__vantu__ms__location__notify_the_current_location_update__descriptor);
    PositionFill(position, *update.As<Com__Vantu__Ms__Location__NotifyTheCurrentLocationUpdate>().location);
    Notify(static_cast<unsigned>(LocationMethod::NotifyTheCurrentLocation), update.Get());
}

void LocationPeer::Send(const Position& position) {
    RunOnThread([&] { Tell(position); });
}

/// Tells the position of this second of the track and waits for the next one.
void LocationPeer::TellNext() {
    Progress& next = journey->next;
    Tell(TrackPosition(journey->track, next));
    (next.stands ? next.stood : next.driven) += std::chrono::seconds(1);
    const auto onTimer = [](ProtobufCRPCDispatch*, void* data) { static_cast<LocationPeer*>(data)->TellNext(); };
    journeyTimer = protobuf_c_rpc_dispatch_add_timer_millis(Dispatch(), static_cast<unsigned>(journey->period.count()),
                                                            onTimer, this);
}

void LocationPeer::EndJourney() {
    if (journeyTimer != nullptr) {
        protobuf_c_rpc_dispatch_remove_timer(journeyTimer);
        journeyTimer = nullptr;
    }
    journey.reset();
}

void LocationPeer::Drive(GpxTrack track, double pace) {
    const std::chrono::milliseconds period(std::max(std::lround(1000.0 / pace), 1L));
    RunOnThread([&] {
        EndJourney();
        journey = Journey{.track = std::move(track), .period = period};
        if (Dispatch() != nullptr) {
            TellNext();
        }
    });
}

void LocationPeer::SetStanding(bool stands) {
    RunOnThread([&] {
        if (journey) {
            journey->next.stands = stands;
        }
    });
}

void LocationPeer::Stand() {
    SetStanding(true);
}

void LocationPeer::DriveOn() {
    SetStanding(false);
}

void LocationPeer::Park() {
    RunOnThread([&] { EndJourney(); });
}

void LocationPeer::SetProviderState(uint32_t state) {
    RunOnThread([&] {
        served.state = state;
        MessageBlank update(com__vantu__ms__location__notify_the_current_provider_state_update__descriptor);
        MessageSetEnums(update.Get(), std::array{state});
        Notify(static_cast<unsigned>(LocationMethod::NotifyTheCurrentProviderState), update.Get());
    });
}

void LocationPeer::With(const std::function<void(LocationService&)>& work) {
    RunOnThread([&] { work(served); });
}
