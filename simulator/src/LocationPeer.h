/// The location service beside the module: a real LocationProvider server on its own address and thread.
///
/// It drives along a recorded track, or a test sends positions by hand, whatever values they hold. A test also chooses
/// how each method is answered, takes the service away and brings it back (RpcPeer says how).
#ifndef LOCATION_PEER_H
#define LOCATION_PEER_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "GpxTrack.h"
#include "Position.h"
#include "RpcPeer.h"
#include "TrackPosition.h"

/// The methods of LocationProvider; the number is the index on the wire.
enum class LocationMethod : unsigned {
    GetLastKnownPosition = 0,
    GetCurrentPosition = 1,
    Close = 2,
    NotifyTheCurrentLocation = 3,       ///< from the service only
    NotifyTheCurrentProviderState = 4,  ///< likewise
    Subscribe = 5,
    Unsubscribe = 6,
    GetLocationProviderVersion = 7
};

/// Where the unit looks for its location service.
constexpr uint16_t kLocationPort = 50778;

/// What the service says of itself when it is asked for its version.
struct LocationIdentity {
    std::string name = "com.vantu.ms.location.locationprovider";
    uint32_t major = 0;
    uint32_t minor = 0;
};

/// What the location service knows.
struct LocationService {
    LocationIdentity identity;
    uint32_t state = 0;                 ///< ProviderStateEnum
    std::optional<Position> current;    ///< as sent last, valid or not; what getCurrentPosition answers if it is valid
    std::optional<Position> lastValid;  ///< what getLastKnownPosition answers
    uint32_t noPositionCode = 1;        ///< responsecode of a reply that has no position to tell
};

class LocationPeer : public RpcPeerOf<LocationMethod> {
  public:
    /// to: the journal, borrowed for the peer's life. Not started yet.
    explicit LocationPeer(Journal& to, uint16_t atPort = kLocationPort);
    ~LocationPeer() override;

    /// Notifies one position now, as it stands, and knows it from now on.
    void Send(const Position& position);
    /// Drives along the track from its beginning: a position for each second of the track, pace times as fast as the
    /// clock goes (above 0, at most 1000). From the track's end on the vehicle stands there, and tells so. While the
    /// service is stopped the drive pauses.
    void Drive(GpxTrack track, double pace = 1);
    /// The vehicle stands from now on where it is, and its positions go on.
    void Stand();
    /// It drives on.
    void DriveOn();
    /// No position by itself any more.
    void Park();

    /// Notifies the provider's state, in or out of its enumeration, also when nothing changed.
    void SetProviderState(uint32_t state);
    /// Reads or changes whatever the service knows, on the peer's thread; notifies nothing.
    void With(const std::function<void(LocationService&)>& work);

  private:
    xir_common_rpc_interface Interface() const override;
    void Begin() override;
    void End() override;
    void Fill(unsigned method, const ProtobufCMessage& request, ProtobufCMessage& reply) override;

    struct Journey {
        GpxTrack track;
        std::chrono::milliseconds period;  ///< of the clock, for a second of the track
        Progress next{};                   ///< told next
    };

    void Tell(const Position& position);
    void TellNext();
    void SetStanding(bool stands);
    void EndJourney();

    // Only the peer's thread touches these while it runs, and only its owner while it does not.
    LocationService served;
    std::optional<Journey> journey;
    ProtobufCRPCDispatchTimer* journeyTimer = nullptr;
};

#endif
