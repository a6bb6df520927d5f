#include "XirCommonRpcWorld.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

const ProtobufCServiceDescriptor& kEcallApp = com__vantu__ecallapp__iecall_app__descriptor;

namespace {

constexpr unsigned kTickMillis = 5;  // how soon a dispatch thread sees work given to it
constexpr int kPatienceMillis = 20'000;

uint8_t IsDispatchThread(xir_common_osal_thread_handle handle) {
    return static_cast<uint8_t>(xir_common_osal_is_same_thread(handle));
}

bool WaitReady(int fd, short events) {
    pollfd polled = {.fd = fd, .events = events, .revents = 0};
    return poll(&polled, 1, kPatienceMillis) == 1;
}

sockaddr_un LocalAddress(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

sockaddr_in TcpAddress(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

template <typename Address>
RawSocket ConnectTo(const Address& address, int family) {
    RawSocket socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const bool connected = connect(socket.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    return connected ? std::move(socket) : RawSocket();
}

template <typename Address>
RawSocket ListenOn(const Address& address, int family) {
    RawSocket socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int reuse = 1;
    setsockopt(socket.Fd(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
    const bool listening = bind(socket.Fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                           listen(socket.Fd(), SOMAXCONN) == 0;
    return listening ? std::move(socket) : RawSocket();
}

}  // namespace

Caller::Caller(std::function<void()> work)
    : thread([this, work = std::move(work)] {
          id = gettid();
          work();
      }) {}

void Caller::WaitAsleep() {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
        // "<id> (<name>) <state> ..."
        std::ifstream file("/proc/self/task/" + std::to_string(id.load()) + "/stat");
        std::string stat;
        std::getline(file, stat);
        const size_t name = stat.rfind(')');
        if (name != std::string::npos && stat.compare(name, 3, ") S") == 0) {
            return;
        }
        ASSERT_LT(std::chrono::steady_clock::now(), end) << "the caller does not sleep: " << stat;
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
}

void Caller::Join() {
    if (thread.joinable()) {
        thread.join();
    }
}

DispatchThread::DispatchThread(const char* name) {
    dispatch = protobuf_c_rpc_dispatch_new(nullptr);
    const int32_t result = xir_common_osal_createThread(name, this, nullptr, DispatchThread::Run, nullptr, &handle);
    EXPECT_EQ(0, result);
}

DispatchThread::~DispatchThread() {
    xir_common_osal_releaseThread(handle);
    protobuf_c_rpc_dispatch_free(dispatch);
}

int32_t DispatchThread::Run(xir_common_osal_thread_handle, void* context) {
    auto& self = *static_cast<DispatchThread*>(context);
    bool ticked = false;
    protobuf_c_rpc_dispatch_add_timer_millis(
        self.dispatch, kTickMillis, [](ProtobufCRPCDispatch*, void* done) { *static_cast<bool*>(done) = true; },
        &ticked);
    while (!ticked) {
        protobuf_c_rpc_dispatch_run(self.dispatch);
    }
    std::unique_lock lock(self.mutex);
    std::deque<std::function<void()>> works;
    works.swap(self.queue);
    lock.unlock();
    for (const auto& work : works) {
        work();
    }
    return 0;
}

void DispatchThread::Do(std::function<void()> work) {
    Signal done;
    {
        const std::scoped_lock lock(mutex);
        queue.emplace_back([&] {
            work();
            done.Raise();
        });
    }
    ASSERT_TRUE(done.Wait()) << "the dispatch thread is stuck";
}

Server::Server(int32_t transport, const std::string& address, Handler itsHandler) : handler(std::move(itsHandler)) {
    service.base = {.descriptor = &kEcallApp,
                    .invoke =
                        [](ProtobufCService* self, unsigned method, const ProtobufCMessage* request,
                           ProtobufCClosure closure, void* closureData) {
                            reinterpret_cast<Service*>(self)->owner->handler(method, request, closure, closureData);
                        },
                    .destroy = nullptr};
    service.owner = this;
    thread.Do([&] {
        const xir_common_rpc_interface interface = {.id = 112, .major = 2, .notification_count = 1};
        server = xir_common_rpc_server_new(transport, address.c_str(), &service.base, thread.Dispatcher(), &interface);
        if (server == nullptr) {
            return;
        }
        xir_common_rpc_server_configure_threading(server, IsDispatchThread, thread.Handle());
        xir_common_rpc_server_set_error_handler(
            server,
            [](int32_t code, const char* text, void* context) {
                static_cast<Server*>(context)->errors.Add(std::to_string(code) + ": " + text);
            },
            this);
        xir_common_rpc_server_register_connection_callback(
            server,
            [](xir_common_rpc_server*, void* context, const char* id, int32_t event) {
                static_cast<Server*>(context)->connections.Add((event == 0 ? "+" : "-") + std::string(id));
            },
            this);
    });
}

Server::~Server() {
    thread.Do([&] { xir_common_rpc_server_destroy(server, 0); });
}

int32_t Server::Notify(uint16_t method, const ProtobufCMessage& message) {
    return xir_common_rpc_server_notify(server, method, &message);
}

int32_t Server::NotifyState(uint32_t callState) {
    Com__Vantu__Ecallapp__TEcallappState state = COM__VANTU__ECALLAPP__TECALLAPP_STATE__INIT;
    state.callstate = static_cast<Com__Vantu__Ecallapp__TEcallappCallState>(callState);
    Com__Vantu__Ecallapp__NotifyNotifyStateUpdate update = COM__VANTU__ECALLAPP__NOTIFY_NOTIFY_STATE_UPDATE__INIT;
    update.ecallappstate = &state;
    return Notify(kNotifyState, update.base);
}

void Server::AnswerZero(unsigned, const ProtobufCMessage*, ProtobufCClosure closure, void* closureData) {
    Com__Vantu__Ms__Protobuf__VoidResponse reply = COM__VANTU__MS__PROTOBUF__VOID_RESPONSE__INIT;
    closure(&reply.base, closureData);
}

Client::Client(int32_t transport, const std::string& address) {
    thread.Do([&] {
        client = xir_common_rpc_client_new(transport, address.c_str(), &kEcallApp, thread.Dispatcher(), this);
        ASSERT_NE(nullptr, client);
        xir_common_rpc_client_configure_threading(client, IsDispatchThread, thread.Handle());
        xir_common_rpc_client_register_nonrpcmsg_callback(client, NoteMessage);
        xir_common_rpc_client_register_connection_callback(client, NoteConnection);
        xir_common_rpc_client_set_error_handler(
            client,
            [](int32_t code, const char* text, void* context) {
                static_cast<Client*>(context)->errors.Add(std::to_string(code) + ": " + text);
            },
            this);
    });
}

Client::~Client() {
    thread.Do([&] { protobuf_c_service_destroy(Service()); });
}

bool Client::WaitConnected() {
    return opened.Wait() && xir_common_rpc_client_is_connected(client) != 0;
}

void Client::OnMessage(std::function<void(const xir_common_rpc_header& header)> action) {
    thread.Do([&] { onMessage = std::move(action); });
}

void Client::OnConnection(std::function<void(int32_t event)> action) {
    thread.Do([&] { onConnection = std::move(action); });
}

void Client::NoteMessage(xir_common_rpc_client*, const xir_common_rpc_header* header, void* context) {
    auto& self = *static_cast<Client*>(context);
    std::string line = "method=" + std::to_string(header->method_index) + " kind=" + std::to_string(header->kind);
    if (header->message != nullptr && header->method_index == kNotifyState && header->kind == 2) {
        const auto* update = reinterpret_cast<const Com__Vantu__Ecallapp__NotifyNotifyStateUpdate*>(header->message);
        line += " callState=" + std::to_string(update->ecallappstate->callstate);
    }
    self.messages.Add(line);
    if (self.onMessage) {
        self.onMessage(*header);
    }
}

void Client::NoteConnection(xir_common_rpc_client*, void* context, int32_t event) {
    auto& self = *static_cast<Client*>(context);
    if (self.onConnection) {
        self.onConnection(event);
    }
    (event == XIR_COMMON_RPC_EVENT_OPENED ? self.opened : self.closed).Raise();
}

Call& Call::Start(unsigned method, const ProtobufCMessage& request) {
    xir_common_osal_init_flag(client.thread.Handle(), &flag);
    client.Service()->invoke(client.Service(), method, &request, Complete, this);
    return *this;
}

int64_t Call::Wait() {
    xir_common_osal_wait_flag(client.thread.Handle(), &flag);
    return result.load();
}

void Call::Complete(const ProtobufCMessage* reply, void* context) {
    auto& self = *static_cast<Call*>(context);
    self.completions.fetch_add(1);
    const auto* response = reinterpret_cast<const Com__Vantu__Ms__Protobuf__VoidResponse*>(reply);
    self.result.store(response == nullptr ? kMissing : int64_t{response->responsecode});
    xir_common_osal_notify_flag(self.client.thread.Handle(), &self.flag);
}

int64_t CallTrigger(Client& client) {
    Com__Vantu__Ecallapp__TriggerEcallRequest request = COM__VANTU__ECALLAPP__TRIGGER_ECALL_REQUEST__INIT;
    request.automatic = 1;
    return Call(client).Start(kTriggerEcall, request.base).Wait();
}

int64_t CallCancel(Client& client) {
    const Com__Vantu__Ecallapp__UserRequestCancelEcallRequest request =
        COM__VANTU__ECALLAPP__USER_REQUEST_CANCEL_ECALL_REQUEST__INIT;
    return Call(client).Start(kUserRequestCancel, request.base).Wait();
}

int64_t CallDisconnect(Client& client) {
    const Com__Vantu__Ecallapp__DisconnectEcallRequest request = COM__VANTU__ECALLAPP__DISCONNECT_ECALL_REQUEST__INIT;
    return Call(client).Start(kDisconnect, request.base).Wait();
}

namespace {

int64_t CallWithSubscription(Client& client, unsigned method, uint32_t messageId) {
    Com__Vantu__Ms__Protobuf__SubscribeRequest request = COM__VANTU__MS__PROTOBUF__SUBSCRIBE_REQUEST__INIT;
    request.messageid = messageId;
    std::string name = "tester";
    request.clientname = name.data();
    return Call(client).Start(method, request.base).Wait();
}

}  // namespace

int64_t CallSubscribe(Client& client, uint32_t messageId) {
    return CallWithSubscription(client, kSubscribe, messageId);
}

int64_t CallUnsubscribe(Client& client, uint32_t messageId) {
    return CallWithSubscription(client, kUnsubscribe, messageId);
}

TemporaryFolder::TemporaryFolder() {
    path = (std::filesystem::temp_directory_path() / "xir-XXXXXX").string();
    EXPECT_NE(nullptr, mkdtemp(path.data()));
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

uint16_t FreePort() {
    // Stays bound without listening, so the kernel gives the port to nobody else. A server can still bind it, because
    // both allow reuse.
    static std::vector<RawSocket> reserved;
    const RawSocket& socket = reserved.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int share = 1;
    EXPECT_EQ(0, setsockopt(socket.Fd(), SOL_SOCKET, SO_REUSEADDR, &share, sizeof share));
    sockaddr_in address = TcpAddress(0);
    socklen_t size = sizeof address;
    EXPECT_EQ(0, bind(socket.Fd(), reinterpret_cast<const sockaddr*>(&address), size));
    EXPECT_EQ(0, getsockname(socket.Fd(), reinterpret_cast<sockaddr*>(&address), &size));
    return ntohs(address.sin_port);
}

RawSocket RawSocket::ConnectLocal(const std::string& path) {
    return ConnectTo(LocalAddress(path), AF_UNIX);
}

RawSocket RawSocket::ConnectTcp(uint16_t port) {
    return ConnectTo(TcpAddress(port), AF_INET);
}

RawSocket RawSocket::ListenLocal(const std::string& path) {
    return ListenOn(LocalAddress(path), AF_UNIX);
}

RawSocket RawSocket::ListenTcp(uint16_t port) {
    return ListenOn(TcpAddress(port), AF_INET);
}

RawSocket RawSocket::Accept() const {
    return WaitReady(fd, POLLIN) ? RawSocket(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC)) : RawSocket();
}

void RawSocket::Close() {
    if (fd >= 0) {
        close(std::exchange(fd, -1));
    }
}

void RawSocket::Send(const Bytes& bytes) const {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t written = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (written <= 0) {
            return;
        }
        sent += static_cast<size_t>(written);
    }
}

Bytes RawSocket::Receive(size_t size) const {
    Bytes bytes(size);
    size_t got = 0;
    while (got < size && WaitReady(fd, POLLIN)) {
        const ssize_t received = recv(fd, bytes.data() + got, size - got, 0);
        if (received <= 0) {
            break;
        }
        got += static_cast<size_t>(received);
    }
    bytes.resize(got);
    return bytes;
}

Bytes RawSocket::ReceiveFrame() const {
    Bytes frame = Receive(12);
    if (frame.size() == 12) {
        const size_t length = frame[0] | static_cast<size_t>(frame[1]) << 8 | static_cast<size_t>(frame[2]) << 16 |
                              static_cast<size_t>(frame[3]) << 24;
        const Bytes payload = Receive(length);
        frame.insert(frame.end(), payload.begin(), payload.end());
    }
    return frame;
}

bool RawSocket::WaitClosed() const {
    while (WaitReady(fd, POLLIN)) {
        uint8_t skipped[4096];
        if (recv(fd, skipped, sizeof skipped, 0) <= 0) {
            return true;
        }
    }
    return false;
}

namespace {

/// Each descriptor of this process, and what the kernel calls it.
void ForEachDescriptor(const std::function<void(int fd, const std::string& target)>& visit) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const auto target = std::filesystem::read_symlink(entry.path(), gone);
        if (!gone) {
            visit(std::stoi(entry.path().filename()), target);
        }
    }
}

int Option(int fd, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(fd, level, name, &value, &size);
    return value;
}

}  // namespace

TcpOptions TcpOptionsOfConnectionTo(uint16_t port) {
    TcpOptions options;
    ForEachDescriptor([&](int fd, const std::string&) {
        sockaddr_in peer = {};
        socklen_t size = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0 && peer.sin_family == AF_INET &&
            ntohs(peer.sin_port) == port) {
            options = {.noDelay = Option(fd, IPPROTO_TCP, TCP_NODELAY),
                       .keepAlive = Option(fd, SOL_SOCKET, SO_KEEPALIVE),
                       .userTimeoutMillis = Option(fd, IPPROTO_TCP, TCP_USER_TIMEOUT)};
        }
    });
    return options;
}

std::vector<std::string> InheritableDescriptors() {
    std::vector<std::string> found;
    ForEachDescriptor([&](int fd, const std::string& target) {
        const bool ours = target.starts_with("socket:") || target.starts_with("anon_inode:");
        if (fd > STDERR_FILENO && ours && (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) {
            found.push_back(target);
        }
    });
    return found;
}

Bytes Frame(uint16_t method, uint8_t kind, uint8_t status, uint32_t id, const Bytes& payload) {
    const auto length = static_cast<uint32_t>(payload.size());
    Bytes frame;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        frame.push_back(static_cast<uint8_t>(length >> shift));
    }
    frame.push_back(static_cast<uint8_t>(method));
    frame.push_back(static_cast<uint8_t>(method >> 8));
    frame.push_back(kind);
    frame.push_back(status);
    for (unsigned shift = 0; shift < 32; shift += 8) {
        frame.push_back(static_cast<uint8_t>(id >> shift));
    }
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

uint32_t IdOf(const Bytes& frame) {
    uint32_t id = 0;
    std::memcpy(&id, frame.data() + 8, sizeof id);  // this machine is little-endian, too
    return id;
}

uint16_t MethodOf(const Bytes& frame) {
    return static_cast<uint16_t>(frame[4] | frame[5] << 8);
}

Bytes StatePayload(uint32_t callState) {
    Com__Vantu__Ecallapp__TEcallappState state = COM__VANTU__ECALLAPP__TECALLAPP_STATE__INIT;
    state.callstate = static_cast<Com__Vantu__Ecallapp__TEcallappCallState>(callState);
    Com__Vantu__Ecallapp__NotifyNotifyStateUpdate update = COM__VANTU__ECALLAPP__NOTIFY_NOTIFY_STATE_UPDATE__INIT;
    update.ecallappstate = &state;
    Bytes payload(protobuf_c_message_get_packed_size(&update.base));
    protobuf_c_message_pack(&update.base, payload.data());
    return payload;
}
