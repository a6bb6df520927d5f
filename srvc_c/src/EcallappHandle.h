/// The process-wide handle of the eCall service's proxy: many threads call through it while one may take it away.
///
/// A caller holds the proxy for the length of its call; whoever takes it away waits for those calls, so a released
/// proxy is never touched. Nobody waits to hold it: from the moment of the exchange the next proxy, or none, is held.
#ifndef ECALLAPP_HANDLE_H
#define ECALLAPP_HANDLE_H

#include <memory>
#include <mutex>

struct IEcallAppPubProxy;

class EcallappHandle {
  public:
    /// Null when there is no proxy.
    using Hold = std::shared_ptr<IEcallAppPubProxy>;

    /// The proxy, kept from its release for as long as the answer, or a copy of it, is kept: for one call, or for a
    /// decision and its call. Any thread but the proxy's own dispatch thread, whose end the release waits for.
    Hold hold() const;
    /// Puts next, which may be null, in the place of the proxy before, waits until nobody holds that one, and answers
    /// it, for the caller to release. Waits as long as the calls under way take. Not while holding.
    IEcallAppPubProxy* exchange(IEcallAppPubProxy* next);

  private:
    mutable std::mutex mutex;  ///< innermost
    Hold current;
};

#endif
