/// What the tests of clients and servers share: connection ends on dispatch threads of their own, and a bare socket
/// that speaks and hears single bytes.
#ifndef XIR_COMMON_RPC_WORLD_H
#define XIR_COMMON_RPC_WORLD_H

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "lib_Ecall/src/ecallapp.pb-c.h"
#include "lib_c/src-gen/Basetypes.pb-c.h"
#include "xir_common_rpc.h"

using Bytes = std::vector<uint8_t>;

// Methods of the service under test, by their index.
constexpr uint16_t kTriggerEcall = 0;
constexpr uint16_t kUserRequestCancel = 1;
constexpr uint16_t kDisconnect = 2;
constexpr uint16_t kGetVersion = 17;
constexpr uint16_t kNotifyState = 18;
constexpr uint16_t kSubscribe = 19;
constexpr uint16_t kUnsubscribe = 20;

/// Longer than anything here takes, unless it hangs.
constexpr std::chrono::seconds kPatience{20};

extern const ProtobufCServiceDescriptor& kEcallApp;

/// Something that happens on one thread and is waited for on another.
class Signal {
  public:
    void Raise() {
        const std::scoped_lock lock(mutex);
        ++count;
        changed.notify_all();
    }
    /// False when it was not raised that often in time.
    bool Wait(int times = 1) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, kPatience, [&] { return count >= times; });
    }
    int Count() {
        const std::scoped_lock lock(mutex);
        return count;
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    int count = 0;
};

/// Lines written by any thread.
class Log {
  public:
    void Add(std::string line) {
        const std::scoped_lock lock(mutex);
        lines.push_back(std::move(line));
        changed.notify_all();
    }
    std::vector<std::string> Lines() {
        const std::scoped_lock lock(mutex);
        return lines;
    }
    /// False when there were not that many in time.
    bool Wait(size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, kPatience, [&] { return lines.size() >= count; });
    }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
};

/// A thread of a test that calls one function, and of which can be seen that it sleeps.
class Caller {
  public:
    explicit Caller(std::function<void()> work);
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;
    ~Caller() { Join(); }

    /// Returns when the kernel shows the thread as sleeping: it waits for something.
    void WaitAsleep();
    void Join();

  private:
    std::atomic<pid_t> id{0};
    std::thread thread;
};

/// A thread that runs a dispatcher, as the service's connection ends do it.
class DispatchThread {
  public:
    explicit DispatchThread(const char* name);
    DispatchThread(const DispatchThread&) = delete;
    DispatchThread& operator=(const DispatchThread&) = delete;
    ~DispatchThread();

    /// Runs the work on the thread and waits for its end.
    void Do(std::function<void()> work);
    xir_common_osal_thread_handle Handle() const { return handle; }
    ProtobufCRPCDispatch* Dispatcher() const { return dispatch; }

  private:
    static int32_t Run(xir_common_osal_thread_handle thread, void* context);

    ProtobufCRPCDispatch* dispatch = nullptr;
    xir_common_osal_thread_handle handle = nullptr;
    std::mutex mutex;
    std::deque<std::function<void()>> queue;
};

/// A server whose service is one function.
class Server {
  public:
    using Handler = std::function<void(unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure,
                                       void* closureData)>;
    Server(int32_t transport, const std::string& address, Handler itsHandler = AnswerZero);
    ~Server();

    bool IsBound() const { return server != nullptr; }
    int32_t Notify(uint16_t method, const ProtobufCMessage& message);
    int32_t NotifyState(uint32_t callState);

    /// Answers every request with responsecode 0.
    static void AnswerZero(unsigned method, const ProtobufCMessage* request, ProtobufCClosure closure,
                           void* closureData);

    DispatchThread thread{"server"};
    Log connections;  // "+name", "-name"
    Log errors;       // "code: text"
    xir_common_rpc_server* server = nullptr;

  private:
    struct Service {
        ProtobufCService base;
        Server* owner;
    };
    Service service;
    Handler handler;
};

/// A client on a thread of its own.
class Client {
  public:
    Client(int32_t transport, const std::string& address);
    ~Client();

    /// False when it was not connected in time.
    bool WaitConnected();
    /// What a callback does besides noting that it was called.
    void OnMessage(std::function<void(const xir_common_rpc_header& header)> action);
    void OnConnection(std::function<void(int32_t event)> action);
    ProtobufCService* Service() { return reinterpret_cast<ProtobufCService*>(client); }

    DispatchThread thread{"client"};
    Signal opened;
    Signal closed;
    Log messages;  // "method=18 kind=2 callState=3"
    Log errors;    // "code: text"
    xir_common_rpc_client* client = nullptr;

  private:
    static void NoteMessage(xir_common_rpc_client*, const xir_common_rpc_header* header, void* context);
    static void NoteConnection(xir_common_rpc_client*, void* context, int32_t event);

    std::function<void(const xir_common_rpc_header& header)> onMessage;  // the dispatch thread's
    std::function<void(int32_t event)> onConnection;                     // likewise
};

/// A request made by one thread, and its completion.
class Call {
  public:
    static constexpr int64_t kMissing = -12;

    explicit Call(Client& itsClient) : client(itsClient) {}
    /// Starts the request; the completion may come at once.
    Call& Start(unsigned method, const ProtobufCMessage& request);
    /// Waits on the flag, as a proxy does. Answers the responsecode, or kMissing.
    int64_t Wait();
    /// How often the completion was called.
    int Completions() const { return completions.load(); }

  private:
    static void Complete(const ProtobufCMessage* reply, void* context);

    Client& client;
    uint8_t flag = 0;
    std::atomic<int64_t> result{0x7fffffff};
    std::atomic<int> completions{0};
};

/// Each the whole exchange: responsecode, or Call::kMissing.
int64_t CallTrigger(Client& client);
int64_t CallCancel(Client& client);
int64_t CallDisconnect(Client& client);
int64_t CallSubscribe(Client& client, uint32_t messageId = kNotifyState);
int64_t CallUnsubscribe(Client& client, uint32_t messageId = kNotifyState);

/// A folder that is gone with all it holds at the end.
class TemporaryFolder {
  public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();
    std::string File(const std::string& name) const { return path + "/" + name; }

  private:
    std::string path;
};

/// A TCP port of the loopback address that was free a moment ago.
uint16_t FreePort();

/// A bare stream socket: one end of a connection, byte by byte.
class RawSocket {
  public:
    RawSocket() = default;
    explicit RawSocket(int opened) : fd(opened) {}
    RawSocket(RawSocket&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    RawSocket& operator=(RawSocket&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~RawSocket() { Close(); }

    static RawSocket ConnectLocal(const std::string& path);
    static RawSocket ConnectTcp(uint16_t port);
    static RawSocket ListenLocal(const std::string& path);
    static RawSocket ListenTcp(uint16_t port);
    /// The next connection; invalid when none came in time.
    RawSocket Accept() const;

    bool IsOpen() const { return fd >= 0; }
    int Fd() const { return fd; }
    void Close();
    void Send(const Bytes& bytes) const;
    /// Exactly size bytes; fewer when the peer closed or the time was over.
    Bytes Receive(size_t size) const;
    /// One whole frame: header and payload.
    Bytes ReceiveFrame() const;
    /// True when the peer closes in time; skips what it still sends.
    bool WaitClosed() const;

  private:
    int fd = -1;
};

/// Options of this process's socket that is connected to the TCP port.
struct TcpOptions {
    int noDelay = -1;
    int keepAlive = -1;
    int userTimeoutMillis = -1;
};
TcpOptions TcpOptionsOfConnectionTo(uint16_t port);
/// Sockets, event and epoll descriptors of this process that a child program would inherit.
std::vector<std::string> InheritableDescriptors();

/// A frame as the document of the wire has it, made by hand.
Bytes Frame(uint16_t method, uint8_t kind, uint8_t status, uint32_t id, const Bytes& payload = {});
/// The request id of a frame.
uint32_t IdOf(const Bytes& frame);
uint16_t MethodOf(const Bytes& frame);
/// A state notification's payload with this call state.
Bytes StatePayload(uint32_t callState);

#endif
