/// What every service beside the module shares: a real RPC server on its own address and thread, whose answers a test
/// can bend. Everything that goes over its wire is in the journal with decoded fields, in the order in which it went.
///
/// The public functions may be called from any thread but the peer's own, one at a time; each has taken effect when it
/// returns.
#ifndef RPC_PEER_H
#define RPC_PEER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <mutex>
#include <vector>

#include "Journal.h"
#include "xir_common_rpc.h"

/// Bytes that are no reply.
enum class RpcGarbage {
    None,
    NoFrame,     ///< nothing that a frame could start with
    BadPayload,  ///< a right frame whose message cannot be unpacked
    TooLong,     ///< a frame that announces more than any frame may have
    CutOff       ///< half a frame, and then nothing more
};

/// How a peer answers a method. The empty value: as the service itself does, at once.
struct RpcAnswering {
    uint32_t code = 0;     ///< not 0: this responsecode, and the request has no effect
    bool missing = false;  ///< refused by the transport: the caller gets no message, the request no effect
    bool held = false;     ///< the request takes effect, its reply waits for RpcPeer::Release
    std::chrono::milliseconds delay{0};     ///< the same, but the reply comes by itself after this time
    bool notifyFirst = false;               ///< what the request changes is notified before the reply goes
    RpcGarbage garbage = RpcGarbage::None;  ///< instead of the reply
};

class RpcPeer {
  public:
    virtual ~RpcPeer();
    RpcPeer(const RpcPeer&) = delete;
    RpcPeer& operator=(const RpcPeer&) = delete;

    /// Starts to listen; false when the port cannot be bound. After a Stop the service has restarted: it has forgotten
    /// its subscribers.
    bool Start();
    /// The service dies: connections break, replies that were owed never come. Its memory stays for the next Start.
    void Stop();
    bool IsRunning() const { return server != nullptr; }

    /// How all methods are answered from now on: {.held = true} is a silent service, {} an ordinary one.
    void AnswerAll(const RpcAnswering& answering);
    /// Sends the held replies, in the order of their requests, and answers their number.
    size_t Release();

  protected:
    /// to: the journal; service: its generated descriptor; thread: the name of the peer's thread. All borrowed for the
    /// peer's life. Not started yet. A derived class calls Stop in its destructor: its own parts serve until then.
    RpcPeer(Journal& to, const ProtobufCServiceDescriptor& service, const char* thread, uint16_t atPort);

    // What makes a service of a peer; all on the peer's thread.

    /// What its server says of itself to the transport.
    virtual xir_common_rpc_interface Interface() const = 0;
    /// The server listens, and no request has come yet.
    virtual void Begin() {}
    /// The server and every timer are gone.
    virtual void End() {}
    /// Answers one request, for any method but a notification: fills the reply, a blank of the method's response.
    virtual void Fill(unsigned method, const ProtobufCMessage& request, ProtobufCMessage& reply) = 0;
    /// Notifies what a request has changed: after the reply, or before it when the method is so set.
    virtual void NotifyChanges() {}

    /// Work of another thread, done on the peer's thread while it runs, otherwise by the caller.
    void RunOnThread(const std::function<void()>& work);
    /// Sends a notification to its subscribers; nothing while the peer does not run. On the peer's thread.
    void Notify(unsigned method, const ProtobufCMessage& update);
    /// For timers; null while the peer does not run. On the peer's thread.
    ProtobufCRPCDispatch* Dispatch() const { return dispatch; }

    void SetAnswering(unsigned method, const RpcAnswering& answering);
    size_t CountRequests(unsigned method);
    bool AwaitRequestCount(unsigned method, size_t count, std::chrono::milliseconds limit);

  private:
    /// The protobuf-c face of this peer: base is what the server library calls.
    struct Face {
        ProtobufCService base;
        RpcPeer* peer;
    };
    /// A reply that is still owed. Packed, because what it was made of changes.
    struct Owed {
        RpcPeer* peer;
        unsigned method;
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
    static void OnError(int32_t code, const char* message, void* context);
    static void OnConnection(xir_common_rpc_server* server, void* context, const char* id, int32_t event);

    void RunTasks();
    bool OpenServer(xir_common_osal_thread_handle handle);
    void Serve(unsigned method, const ProtobufCMessage& request, ProtobufCClosure closure, void* closureData);
    void Reply(unsigned method, const ProtobufCMessage& reply, ProtobufCClosure closure, void* closureData);
    void Send(unsigned method, const ProtobufCMessage* reply, ProtobufCClosure closure, void* closureData);
    void Owe(unsigned method, const ProtobufCMessage& reply, ProtobufCClosure closure, void* closureData);
    void PayOff(const Owed& owed);
    void Enter(Kind kind, std::string subject, std::string text, int64_t result = 0);

    Journal& journal;
    const ProtobufCServiceDescriptor& descriptor;
    const char* const threadName;
    const uint16_t port;
    Face face;

    // Only the peer's thread touches these while it runs, and only its owner while it does not.
    std::vector<RpcAnswering> answerings;  ///< by method
    std::list<Owed> debts;
    ProtobufCRPCDispatch* dispatch = nullptr;
    xir_common_rpc_server* server = nullptr;
    bool stopping = false;

    xir_common_osal_thread_handle threadHandle = nullptr;
    int wake = -1;  ///< event descriptor: there are tasks

    std::mutex mutex;  ///< guards what follows; innermost
    std::condition_variable news;
    std::deque<Task*> tasks;
    std::vector<size_t> requestCounts;  ///< by method
};

/// A peer whose methods have names. Method: their enumeration; the number is the index on the wire.
template <typename Method>
class RpcPeerOf : public RpcPeer {
  public:
    /// How a method is answered from now on.
    void Answer(Method method, const RpcAnswering& answering) {
        SetAnswering(static_cast<unsigned>(method), answering);
    }
    /// Requests for the method received since the peer was made.
    size_t Requests(Method method) { return CountRequests(static_cast<unsigned>(method)); }
    /// Waits until count requests for the method have come in all; false at the limit.
    bool AwaitRequests(Method method, size_t count, std::chrono::milliseconds limit = Journal::kLimit) {
        return AwaitRequestCount(static_cast<unsigned>(method), count, limit);
    }

  protected:
    using RpcPeer::RpcPeer;
};

#endif
