/// One RPC client. Its chapters: xir_client.cpp makes, configures and ends it; xir_client_connection.cpp connects and
/// reconnects; xir_client_calls.cpp sends requests and completes them; xir_client_input.cpp reads.
///
/// Life of the connection (the phase is known to the dispatch thread only):
///
///   Waiting ──timer──→ Connecting ──established──→ Connected ──lost──→ Waiting ...
///      ↑───────────────refused──┘
///
/// Whoever reads or writes may find the connection lost; that one ends all calls. Closing the socket, telling the user
/// and connecting again is for the dispatch thread, after it has delivered what had been received before.
#ifndef XIR_CLIENT_H
#define XIR_CLIENT_H

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "xir_address.h"
#include "xir_common_rpc.h"
#include "xir_frame.h"
#include "xir_reader_seat.h"
#include "xir_stream.h"
#include "xir_subscription.h"
#include "xir_wake.h"

class XirClient;

/// A request without a reply completes as missing after this.
constexpr std::chrono::seconds kXirRequestLimit{30};
/// Pause after a failed attempt to connect: the first one, doubling up to the longest.
constexpr std::chrono::milliseconds kXirFirstBackOff{50};
constexpr std::chrono::milliseconds kXirLongestBackOff{1000};

/// What the user holds.
struct xir_common_rpc_client {
    ProtobufCService service;
    XirClient* client;
};

class XirClient : public XirSharedConnection, public std::enable_shared_from_this<XirClient> {
  public:
    /// What the user installs, before the dispatcher runs.
    struct Hooks {
        void* context = nullptr;
        xir_common_rpc_error_fn error = nullptr;
        void* errorContext = nullptr;
        xir_common_rpc_nonrpcmsg_fn message = nullptr;
        xir_common_rpc_client_connection_fn connection = nullptr;
        xir_common_rpc_is_dispatch_thread_fn isDispatchThread = nullptr;
        xir_common_osal_thread_handle thread = nullptr;
    };

    /// Null without memory or descriptors.
    static xir_common_rpc_client* Make(const XirAddress& address, const ProtobufCServiceDescriptor* descriptor,
                                       ProtobufCRPCDispatch* dispatch, void* context);
    XirClient(const XirAddress& itsAddress, const ProtobufCServiceDescriptor* descriptor,
              ProtobufCRPCDispatch* itsDispatch, void* context);

    void ConfigureThreading(xir_common_rpc_is_dispatch_thread_fn test, xir_common_osal_thread_handle thread);
    bool IsConnected() const { return connected.load(std::memory_order_acquire); }
    void Invoke(unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure, void* closureData);
    /// Ends the client; calls in flight complete as missing. On the dispatch thread.
    void End();

    bool HasCalls() const override { return callCount.load(std::memory_order_acquire) > 0; }
    XirClock::time_point NextLimit() const override;
    void ExpireCalls() override;
    std::shared_ptr<XirStream> OpenStream() const override;
    void ReadInPlace(XirStream& stream, int pollEvents) override;

    XirProtocol protocol;
    Hooks hooks;

  private:
    /// A request that waits for its reply.
    struct Call {
        ProtobufCClosure closure = nullptr;  // null: the library's own repetition of a subscription
        void* closureData = nullptr;
        uint16_t method = 0;
        XirClock::time_point limit;
        XirSubscriptionRequest subscription;
        std::vector<uint8_t> request;  // packed, of a subscription
    };
    using Calls = std::map<uint32_t, Call>;

    /// The next frame of a queue, and what is to be done with it.
    struct Incoming {
        enum class Kind { None, Reply, LateReply, Message, Broken };
        Kind kind = Kind::None;
        XirFrame frame;
        Call call;  // of a Reply
    };

    bool OnDispatchThread() const;
    /// Around each callback of the user.
    XirHandlerScope UserScope() const { return XirHandlerScope(OnDispatchThread() ? seat : nullptr); }
    void Report(int32_t code, const std::string& text) const;
    void TellConnection(int32_t event);

    // Connection; on the dispatch thread.
    ProtobufCRPCDispatchTimer* AddTimer(std::chrono::milliseconds delay, ProtobufCRPCDispatchTimerFunc func);
    void ConnectIn(std::chrono::milliseconds delay);
    void Connect();
    void OnConnecting();
    void OnAttemptFailed(int error);
    void Open();
    void Close();
    void RetryLater();
    void OnSocket(unsigned events);
    void OnWake();
    void WatchStream();
    void UnwatchStream();
    void ArmLimitTimer();
    void OnLimitTimer();

    // Calls; any thread.
    uint32_t NextId();
    Call MakeCall(unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure, void* closureData) const;
    std::shared_ptr<XirStream> AddCall(uint32_t id, const Call& call);
    bool TakeCall(uint32_t id, Call& call);
    void NoteCalls();
    bool PackRequest(uint32_t id, uint16_t method, ProtobufCMessage* request, XirFrameBuffer& frame) const;
    void SendFrame(XirStream& stream, uint32_t id, std::span<const uint8_t> frame);
    void Complete(const Call& call, const ProtobufCMessage* reply);
    void CompleteMissing(uint32_t id);
    void Settle(const Call& call, const ProtobufCMessage* reply);
    void RepeatSubscriptions(XirStream& stream);
    void RepeatRequest(XirStream& stream, const Call& call, ProtobufCMessage* request);
    /// Ends the calls of a connection that is of no use any more, once. code 0: nothing to report.
    void Lose(XirStream& stream, int32_t code, const std::string& text);
    void LoseByRead(XirStream& stream, XirReceived received, int error);
    /// Calls OnWake, or what matters of it, on the dispatch thread.
    void CallDispatchThread();

    // Input.
    Incoming Look(const XirByteQueue& queue);
    Incoming::Kind Classify(Incoming& incoming);
    Incoming::Kind ClassifyReply(Incoming& incoming);
    void Deliver();
    bool DeliverNext(const std::shared_ptr<XirStream>& stream);
    void HandleReply(const Incoming& incoming);
    void HandleMessage(const Incoming& incoming);
    void ReadForWaiter(XirStream& stream, std::unique_lock<std::mutex>& role);
    void GiveUp(XirStream& stream, std::unique_lock<std::mutex>& role, int32_t code, const char* text);

    const XirAddress address;
    std::shared_ptr<XirReaderSeat> seat;
    xir_common_rpc_client facade = {};
    std::shared_ptr<XirClient> keepAlive;  // until End

    // The dispatch thread's own.
    enum class Phase { Waiting, Connecting, Connected, Ended };
    ProtobufCRPCDispatch* const dispatch;
    Phase phase = Phase::Waiting;
    XirDescriptor connecting;
    unsigned watched = 0;  // events for which the stream is watched
    ProtobufCRPCDispatchTimer* retryTimer = nullptr;
    ProtobufCRPCDispatchTimer* limitTimer = nullptr;
    std::chrono::milliseconds backOff = kXirFirstBackOff;
    XirClock::time_point openedAt;
    bool refusalReported = false;

    // Everybody's.
    XirWake wake;
    std::atomic<bool> connected{false};
    std::atomic<uint32_t> lastId{0};
    std::atomic<size_t> callCount{0};
    std::atomic<XirClock::rep> nextLimit{XirClock::time_point::max().time_since_epoch().count()};
    mutable std::mutex mutex;  // for what follows
    std::shared_ptr<XirStream> current;
    Calls calls;                                             // ids go up, so the first is the oldest
    std::map<uint32_t, std::vector<uint8_t>> subscriptions;  // acknowledged requests, packed, by message id
    bool limitTimerRuns = false;
};

#endif
