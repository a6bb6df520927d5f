/// The service as the tool sees it: a real server of IEcallUIApp with values that a test sets and reads.
#ifndef UI_PEER_H
#define UI_PEER_H

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "ProtoBytes.h"
#include "ServerPeer.h"
#include "UiValues.h"

extern const PeerService kUiService;

// The methods, by their index on the wire.
constexpr unsigned kUiGet = 0;
constexpr unsigned kUiSet = 1;
constexpr unsigned kUiVersion = 2;
constexpr unsigned kUiMicTest = 3;
constexpr unsigned kUiInterfaceVersion = 4;

/// A value with its three members, of which one counts.
ProtoBytes TripleOf(const UiValue& value);
/// The requests, packed.
std::string GetRequest(int32_t number);
std::string SetRequest(int32_t number, const UiValue& value);
/// A reply to a get.
std::string GetReply(const UiValue& value, int64_t code = 0);

class UiPeer {
  public:
    /// Holds the defaults, and does as it is told.
    UiPeer();
    UiPeer(const UiPeer&) = delete;
    UiPeer& operator=(const UiPeer&) = delete;
    ~UiPeer() { server.Stop(); }  // before the values that its thread reads

    /// The value as the service has it; a number's or name's, as FindField knows them.
    UiValue Held(const std::string& name);
    /// Changes it behind the client's back.
    void Hold(const std::string& name, const UiValue& value);
    /// What becomes of a value that is set.
    void OnSet(std::function<UiValue(const UiValue& value)> change);
    /// How often a set was asked for.
    size_t SetCount() const;
    std::string Url() const { return server.Url(); }

    ServerPeer server{kUiService};

  private:
    std::string Get(const std::string& request);
    std::string Set(const std::string& request);

    std::mutex mutex;
    std::map<int32_t, UiValue> values;
    std::function<UiValue(const UiValue& value)> onSet;
};

#endif
