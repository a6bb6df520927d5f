/// The eCall application service beside the module: a real IEcallApp server on its own address and thread.
///
/// Left alone it lives through calls as EcallLife draws them. A test may also lead it by hand: put it in any state,
/// choose how it answers each method, take it away and bring it back (RpcPeer says how).
///
/// A call that ran when it stopped begins anew at its next Start when its parameters say so.
#ifndef ECALL_PEER_H
#define ECALL_PEER_H

#include <cstdint>
#include <functional>

#include "EcallService.h"
#include "RpcPeer.h"

/// Where the unit looks for its eCall application service.
constexpr uint16_t kEcallPort = 50911;

class EcallPeer : public RpcPeerOf<EcallMethod> {
  public:
    /// to: the journal, borrowed for the peer's life; service: what the peer knows, and how fast it lives. Not started
    /// yet.
    explicit EcallPeer(Journal& to, EcallService service = {}, uint16_t atPort = kEcallPort);
    ~EcallPeer() override;

    /// Sets the whole state, in or out of its enumerations, and notifies it also when nothing changed. From now on the
    /// state only changes by hand.
    void SetState(const EcallState& state);
    EcallState State();
    /// Lets an event of the call happen: Disconnect is the answering point that hangs up, CallBack one that calls back.
    EcallAnswer Happen(EcallEvent event);
    /// Asks for a self-test, as after ignition: selfTestState becomes Requested until a report comes.
    void RequestSelfTest();
    /// Reads or changes whatever the service knows, on the peer's thread; then notifies the state if it changed.
    void With(const std::function<void(EcallService&)>& work);

  private:
    xir_common_rpc_interface Interface() const override;
    void Begin() override;
    void End() override;
    void Fill(unsigned method, const ProtobufCMessage& request, ProtobufCMessage& reply) override;
    void NotifyChanges() override;

    void NotifyState();
    void KeepTime();

    // Only the peer's thread touches these while it runs, and only its owner while it does not.
    EcallService served;
    EcallState told;  ///< as last notified
    ProtobufCRPCDispatchTimer* lifeTimer = nullptr;
    uint64_t timedStep = 0;  ///< the step of the life that lifeTimer was set for
};

#endif
