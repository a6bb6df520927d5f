/// The eCall application service beside the module: a real IEcallApp server on its own address and thread.
///
/// Left alone it lives through calls as EcallLife draws them. A test may also lead it by hand: put it in any state,
/// choose how it answers each method, take it away and bring it back. Everything that goes over its wire is in the
/// journal with decoded fields, in the order in which it went.
///
/// The functions may be called from any thread but the peer's own, one at a time; each has taken effect when it
/// returns.
#ifndef ECALL_PEER_H
#define ECALL_PEER_H

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <vector>

#include "EcallService.h"
#include "Journal.h"
#include "xir_common_rpc.h"

/// Bytes that are no reply.
enum class EcallGarbage {
    None,
    NoFrame,     ///< nothing that a frame could start with
    BadPayload,  ///< a right frame whose message cannot be unpacked
    TooLong,     ///< a frame that announces more than any frame may have
    CutOff       ///< half a frame, and then nothing more
};

/// How the peer answers a method. The empty value: as the service itself does, at once.
struct EcallAnswering {
    uint32_t code = 0;     ///< not 0: this responsecode, and the request has no effect
    bool missing = false;  ///< refused by the transport: the caller gets no message, the request no effect
    bool held = false;     ///< the request takes effect, its reply waits for EcallPeer::Release
    std::chrono::milliseconds delay{0};         ///< the same, but the reply comes by itself after this time
    bool notifyFirst = false;                   ///< what the request changes is notified before the reply goes
    EcallGarbage garbage = EcallGarbage::None;  ///< instead of the reply
};

/// Where the unit looks for its eCall application service.
constexpr uint16_t kEcallPort = 50911;

class EcallPeer {
  public:
    /// to: the journal, borrowed for the peer's life; service: what the peer knows, and how fast it lives. Not started
    /// yet.
    explicit EcallPeer(Journal& to, EcallService service = {}, uint16_t atPort = kEcallPort);
    ~EcallPeer();
    EcallPeer(const EcallPeer&) = delete;
    EcallPeer& operator=(const EcallPeer&) = delete;

    /// Starts to listen; false when the port cannot be bound. After a Stop the service has restarted: it has forgotten
    /// its subscribers, and a call that ran begins anew when its parameters say so.
    bool Start();
    /// The service dies: connections break, replies that were owed never come. Its memory stays for the next Start.
    void Stop();
    bool IsRunning() const { return server != nullptr; }

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

    /// How a method is answered from now on.
    void Answer(EcallMethod method, const EcallAnswering& answering);
    /// The same for all methods: {.held = true} is a silent service, {} an ordinary one.
    void AnswerAll(const EcallAnswering& answering);
    /// Sends the held replies, in the order of their requests, and answers their number.
    size_t Release();

    /// Requests received since the peer was made; by method, or of all methods.
    size_t Requests(EcallMethod method);
    /// Waits until count requests for the method have come in all; false at the limit.
    bool AwaitRequests(EcallMethod method, size_t count, std::chrono::milliseconds limit = Journal::kLimit);

  private:
    /// The protobuf-c face of this peer: base is what the server library calls.
    struct Face {
        ProtobufCService base;
        EcallPeer* peer;
    };
    /// A reply that is still owed. Packed, because what it was made of changes.
    struct Owed {
        EcallPeer* peer;
        EcallMethod method;
        ProtobufCClosure closure;
        void* closureData;
        std::vector<uint8_t> packed;
        bool held;  ///< until Release; otherwise for the time of a timer
    };
    struct Task {
        const std::function<void()>* work;
        bool done = false;
    };

    static int32_t ThreadInit(xir_common_osal_thread_handle handle, void* context);
    static int32_t ThreadRun(xir_common_osal_thread_handle handle, void* context);
    static int32_t ThreadDestroy(xir_common_osal_thread_handle handle, void* context);

    void RunOnThread(const std::function<void()>& work);
    void RunTasks();
    bool OpenServer(xir_common_osal_thread_handle handle);
    void Serve(EcallMethod method, const ProtobufCMessage& request, ProtobufCClosure closure, void* closureData);
    void Reply(EcallMethod method, const ProtobufCMessage& reply, ProtobufCClosure closure, void* closureData);
    void Send(EcallMethod method, const ProtobufCMessage* reply, ProtobufCClosure closure, void* closureData);
    void Owe(EcallMethod method, const ProtobufCMessage& reply, ProtobufCClosure closure, void* closureData);
    void PayOff(const Owed& owed);
    void Notify();
    void NotifyIfChanged();
    void KeepTime();

    Journal& journal;
    const uint16_t port;
    Face face;

    // Only the peer's thread touches these while it runs, and only its owner while it does not.
    EcallService served;
    EcallState told;  ///< as last notified
    std::array<EcallAnswering, kEcallMethodCount> answerings{};
    std::list<Owed> debts;
    ProtobufCRPCDispatch* dispatch = nullptr;
    xir_common_rpc_server* server = nullptr;
    ProtobufCRPCDispatchTimer* lifeTimer = nullptr;
    bool stopping = false;
    uint64_t timedStep = 0;  ///< the step of the life that lifeTimer was set for

    xir_common_osal_thread_handle threadHandle = nullptr;
    int wake = -1;  ///< event descriptor: there are tasks

    std::mutex mutex;  ///< guards what follows; innermost
    std::condition_variable news;
    std::deque<Task*> tasks;
    std::array<size_t, kEcallMethodCount> requestCounts{};
};

#endif
