#include "EcallappHandle.h"

#include <future>
#include <utility>

namespace {

/// Runs in the place of a deletion, when the last holder has let go: the proxy itself is left alone.
struct TellLetGo {
    std::shared_ptr<std::promise<void>> letGo = std::make_shared<std::promise<void>>();
    void operator()(IEcallAppPubProxy* /*proxy*/) const { letGo->set_value(); }
};

}  // namespace

EcallappHandle::Hold EcallappHandle::hold() const {
    const std::lock_guard lock(mutex);
    return current;
}

IEcallAppPubProxy* EcallappHandle::exchange(IEcallAppPubProxy* next) {
    Hold replacement = next == nullptr ? nullptr : Hold(next, TellLetGo{});
    {
        const std::lock_guard lock(mutex);
        current.swap(replacement);
    }
    IEcallAppPubProxy* const before = replacement.get();
    if (before != nullptr) {
        std::future<void> letGo = std::get_deleter<TellLetGo>(replacement)->letGo->get_future();
        replacement.reset();
        letGo.wait();
    }
    return before;
}
