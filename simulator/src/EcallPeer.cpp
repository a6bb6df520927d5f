#include "EcallPeer.h"

#include "MessageBlank.h"

EcallPeer::EcallPeer(Journal& to, EcallService service, uint16_t atPort)
    : RpcPeerOf(to, com__vantu__ecallapp__iecall_app__descriptor, "eCall service", atPort),
      served(std::move(service)),
      told(served.state) {}

EcallPeer::~EcallPeer() {
    Stop();
}

xir_common_rpc_interface EcallPeer::Interface() const {
    return {.id = 112, .major = static_cast<uint8_t>(served.identity.major), .notification_count = 1};
}

void EcallPeer::Begin() {
    EcallHappen(served, EcallEvent::Restart);
    told = served.state;
    KeepTime();
}

void EcallPeer::End() {
    lifeTimer = nullptr;
}

void EcallPeer::Fill(unsigned method, const ProtobufCMessage& request, ProtobufCMessage& reply) {
    EcallServe(served, static_cast<EcallMethod>(method), request, reply);
    KeepTime();
}

void EcallPeer::NotifyState() {
    told = served.state;
    MessageBlank update(com__vantu__ecallapp__notify_notify_state_update__descriptor);
    EcallFillState(told, update.As<Com__Vantu__Ecallapp__NotifyNotifyStateUpdate>().ecallappstate->base);
    Notify(static_cast<unsigned>(EcallMethod::NotifyNotifyState), update.Get());
}

void EcallPeer::NotifyChanges() {
    if (told != served.state) {
        NotifyState();
    }
}

/// Sets the timer of a phase that has just begun.
void EcallPeer::KeepTime() {
    if (Dispatch() == nullptr || timedStep == served.steps) {
        return;
    }
    timedStep = served.steps;
    if (lifeTimer != nullptr) {
        protobuf_c_rpc_dispatch_remove_timer(lifeTimer);
        lifeTimer = nullptr;
    }
    const std::chrono::milliseconds duration = EcallDuration(served.life.phase, served.timings);
    if (duration == kNoLimit) {
        return;
    }
    const auto onTimer = [](ProtobufCRPCDispatch*, void* data) {
        auto& peer = *static_cast<EcallPeer*>(data);
        peer.lifeTimer = nullptr;  // freed by the dispatcher
        EcallHappen(peer.served, EcallEvent::TimeUp);
        peer.KeepTime();
        peer.NotifyChanges();
    };
    lifeTimer =
        protobuf_c_rpc_dispatch_add_timer_millis(Dispatch(), static_cast<unsigned>(duration.count()), onTimer, this);
}

void EcallPeer::With(const std::function<void(EcallService&)>& work) {
    RunOnThread([&] {
        work(served);
        KeepTime();
        NotifyChanges();
    });
}

void EcallPeer::SetState(const EcallState& state) {
    RunOnThread([&] {
        served.byHand = true;
        served.state = state;
        NotifyState();
    });
}

EcallState EcallPeer::State() {
    EcallState state{};
    RunOnThread([&] { state = served.state; });
    return state;
}

EcallAnswer EcallPeer::Happen(EcallEvent event) {
    EcallAnswer answer = EcallAnswer::NoMeaning;
    With([&](EcallService& service) { answer = EcallHappen(service, event); });
    return answer;
}

void EcallPeer::RequestSelfTest() {
    With([](EcallService& service) { service.state.selfTestState = ecall::kSelfTestRequested; });
}
