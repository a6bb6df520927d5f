/// The location service beside the module: a real LocationProvider server on its own address and thread.
///
/// A test sends positions by hand, whatever values they hold, chooses how each method is answered, takes the service
/// away and brings it back (RpcPeer says how).
#ifndef LOCATION_PEER_H
#define LOCATION_PEER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Position.h"
#include "RpcPeer.h"

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
    /// Notifies the provider's state, in or out of its enumeration, also when nothing changed.
    void SetProviderState(uint32_t state);
    /// Reads or changes whatever the service knows, on the peer's thread; notifies nothing.
    void With(const std::function<void(LocationService&)>& work);

  private:
    xir_common_rpc_interface Interface() const override;
    void Fill(unsigned method, const ProtobufCMessage& request, ProtobufCMessage& reply) override;

    void Tell(const Position& position);

    // Only the peer's thread touches this while it runs, and only its owner while it does not.
    LocationService served;
};

#endif
