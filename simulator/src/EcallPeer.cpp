// All work is done on the peer's thread, between two runs of its dispatcher: requests and timers by the dispatcher,
// orders from other threads as tasks, announced through an event descriptor. So the service needs no lock.
//
// Easy to get wrong: an entry is journalled before its bytes are sent, or the unit's answer could stand before its
// cause.
#include "EcallPeer.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "MessageBlank.h"
#include "MessageText.h"

namespace {

constexpr unsigned kResponsecodeField = 1;

/// What the serializer hook puts in the place of the reply that is being sent; the hook has no context of its own.
thread_local EcallGarbage garbage_to_send = EcallGarbage::None;

using Bytes = std::vector<uint8_t>;

void PutLittleEndian(Bytes& bytes, uint32_t value, unsigned count) {
    for (unsigned byte = 0; byte < count; ++byte) {
        bytes.push_back(static_cast<uint8_t>(value >> (8 * byte)));
    }
}

Bytes Frame(const xir_common_rpc_header& header, uint32_t announced, uint8_t kind, const Bytes& payload) {
    Bytes frame;
    PutLittleEndian(frame, announced, 4);
    PutLittleEndian(frame, header.method_index, 2);
    frame.push_back(kind);
    frame.push_back(header.status);
    PutLittleEndian(frame, header.request_id, 4);
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

Bytes GarbageFor(const xir_common_rpc_header& header, EcallGarbage garbage) {
    constexpr uint8_t kNoKind = 0xEE;
    constexpr uint32_t kBeyondLimit = 2U << 20;
    const Bytes noMessage{0xFF, 0xFF, 0xFF, 0xFF};
    switch (garbage) {
        case EcallGarbage::None:
            break;
        case EcallGarbage::NoFrame:
            return Frame(header, 4, kNoKind, noMessage);
        case EcallGarbage::BadPayload:
            return Frame(header, 4, header.kind, noMessage);
        case EcallGarbage::TooLong:
            return Frame(header, kBeyondLimit, header.kind, noMessage);
        case EcallGarbage::CutOff:
            return Frame(header, 16, header.kind, noMessage);
    }
    return {};
}

int32_t Serialize(const xir_common_rpc_header* header, ProtobufCBuffer* out) {
    if (garbage_to_send == EcallGarbage::None) {
        return xir_common_rpc_server_serialize(header, out);
    }
    const Bytes bytes = GarbageFor(*header, garbage_to_send);
    out->append(out, bytes.size(), bytes.data());
    return 0;
}

Bytes Pack(const ProtobufCMessage& message) {
    Bytes bytes(protobuf_c_message_get_packed_size(&message));
    protobuf_c_message_pack(&message, bytes.data());
    return bytes;
}

struct FreeMessage {
    void operator()(ProtobufCMessage* message) const { protobuf_c_message_free_unpacked(message, nullptr); }
};

const ProtobufCMethodDescriptor& Descriptor(EcallMethod method) {
    return com__vantu__ecallapp__iecall_app__descriptor.methods[static_cast<size_t>(method)];
}

void OnError(int32_t code, const char* message, void* context) {
    static_cast<Journal*>(context)->Note("IEcallApp: transport error " + std::to_string(code) + ": " + message);
}

void OnConnection(xir_common_rpc_server*, void* context, const char* id, int32_t event) {
    static_cast<Journal*>(context)->Append(Kind::RpcConnect, id,
                                           event == XIR_COMMON_RPC_EVENT_OPENED ? "connected" : "disconnected");
}

/// One server lives on each peer's thread, and it is the only one that asks there.
uint8_t IsDispatchThread(xir_common_osal_thread_handle handle) {
    return static_cast<uint8_t>(xir_common_osal_is_same_thread(handle));
}

}  // namespace

EcallPeer::EcallPeer(Journal& to, EcallService service, uint16_t atPort)
    : journal(to), port(atPort), face{}, served(std::move(service)), told(served.state) {
    face.base.descriptor = &com__vantu__ecallapp__iecall_app__descriptor;
    face.base.invoke = [](ProtobufCService* base, unsigned method, const ProtobufCMessage* request,
                          ProtobufCClosure closure, void* closureData) {
        reinterpret_cast<Face*>(base)->peer->Serve(static_cast<EcallMethod>(method), *request, closure, closureData);
    };
    face.peer = this;
}

EcallPeer::~EcallPeer() {
    Stop();
}

// --- Life of the thread ---------------------------------------------------------------------------------------------

bool EcallPeer::Start() {
    if (IsRunning()) {
        return true;
    }
    wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake >= 0) {
        xir_common_osal_createThread("eCall service", this, ThreadInit, ThreadRun, ThreadDestroy, &threadHandle);
    }
    if (!IsRunning()) {
        Stop();
    }
    return IsRunning();
}

void EcallPeer::Stop() {
    if (IsRunning()) {
        journal.Append(Kind::Process, "IEcallApp", "stopped");
        RunOnThread([this] { stopping = true; });
    }
    xir_common_osal_releaseThread(threadHandle);
    threadHandle = nullptr;
    stopping = false;
    if (wake >= 0) {
        close(wake);
        wake = -1;
    }
}

int32_t EcallPeer::ThreadInit(xir_common_osal_thread_handle handle, void* context) {
    auto& peer = *static_cast<EcallPeer*>(context);
    peer.dispatch = protobuf_c_rpc_dispatch_new(nullptr);
    if (peer.dispatch == nullptr || !peer.OpenServer(handle)) {
        return -1;
    }
    const auto onWake = [](ProtobufC_RPC_FD, unsigned, void* data) { static_cast<EcallPeer*>(data)->RunTasks(); };
    protobuf_c_rpc_dispatch_watch_fd(peer.dispatch, peer.wake, PROTOBUF_C_RPC_EVENT_READABLE, onWake, &peer);
    EcallHappen(peer.served, EcallEvent::Restart);
    peer.told = peer.served.state;
    peer.KeepTime();
    return 0;
}

bool EcallPeer::OpenServer(xir_common_osal_thread_handle handle) {
    const xir_common_rpc_interface interface {
        .id = 112, .major = static_cast<uint8_t>(served.identity.major), .notification_count = 1
    };
    server = xir_common_rpc_server_new(XIR_COMMON_RPC_TRANSPORT_TCP, std::to_string(port).c_str(), &face.base, dispatch,
                                       &interface);
    if (server == nullptr) {
        return false;
    }
    journal.Append(Kind::Process, "IEcallApp", "started");
    xir_common_rpc_server_set_error_handler(server, OnError, &journal);
    xir_common_rpc_server_set_rpc_protocol(server, Serialize, xir_common_rpc_deserialize);
    xir_common_rpc_server_configure_threading(server, IsDispatchThread, handle);
    xir_common_rpc_server_register_connection_callback(server, OnConnection, &journal);
    return true;
}

int32_t EcallPeer::ThreadRun(xir_common_osal_thread_handle, void* context) {
    auto& peer = *static_cast<EcallPeer*>(context);
    protobuf_c_rpc_dispatch_run(peer.dispatch);
    return peer.stopping ? -1 : 0;
}

int32_t EcallPeer::ThreadDestroy(xir_common_osal_thread_handle, void* context) {
    auto& peer = *static_cast<EcallPeer*>(context);
    if (peer.server != nullptr) {
        xir_common_rpc_server_destroy(peer.server, 0);
    }
    protobuf_c_rpc_dispatch_free(peer.dispatch);
    peer.server = nullptr;
    peer.dispatch = nullptr;
    peer.lifeTimer = nullptr;
    peer.debts.clear();
    return 0;
}

void EcallPeer::RunOnThread(const std::function<void()>& work) {
    if (!IsRunning()) {
        work();
        return;
    }
    Task task{.work = &work};
    std::unique_lock lock(mutex);
    tasks.push_back(&task);
    eventfd_write(wake, 1);
    news.wait(lock, [&] { return task.done; });
}

void EcallPeer::RunTasks() {
    eventfd_t ignored = 0;
    eventfd_read(wake, &ignored);
    std::unique_lock lock(mutex);
    while (!tasks.empty()) {
        Task* task = tasks.front();
        tasks.pop_front();
        lock.unlock();
        (*task->work)();
        lock.lock();
        task->done = true;
        news.notify_all();
    }
}

// --- Requests and replies -------------------------------------------------------------------------------------------

void EcallPeer::Serve(EcallMethod method, const ProtobufCMessage& request, ProtobufCClosure closure,
                      void* closureData) {
    journal.Append(Kind::RpcRequest, EcallMethodName(method), MessageText(&request));
    {
        const std::lock_guard lock(mutex);
        ++requestCounts.at(static_cast<size_t>(method));
        news.notify_all();
    }
    const EcallAnswering& answering = answerings.at(static_cast<size_t>(method));
    if (answering.missing || method == EcallMethod::NotifyNotifyState) {
        Send(method, nullptr, closure, closureData);
        return;
    }
    MessageBlank reply(*Descriptor(method).output);
    if (answering.code != 0) {
        MessageSetUnsigned(reply.Get(), kResponsecodeField, answering.code);
    } else {
        EcallServe(served, method, request, reply.Get());
    }
    Reply(method, reply.Get(), closure, closureData);
}

/// Sends the reply or owes it, and tells what the request has changed, in the order that the method is set to.
void EcallPeer::Reply(EcallMethod method, const ProtobufCMessage& reply, ProtobufCClosure closure, void* closureData) {
    const EcallAnswering& answering = answerings.at(static_cast<size_t>(method));
    if (answering.notifyFirst) {
        NotifyIfChanged();
    }
    if (answering.held || answering.delay.count() > 0) {
        Owe(method, reply, closure, closureData);
    } else {
        Send(method, &reply, closure, closureData);
    }
    KeepTime();
    NotifyIfChanged();
}

void EcallPeer::Send(EcallMethod method, const ProtobufCMessage* reply, ProtobufCClosure closure, void* closureData) {
    const bool missing = reply == nullptr;
    journal.Append(Kind::RpcReply, EcallMethodName(method), MessageText(reply),
                   missing ? XIR_COMMON_RPC_STATUS_REFUSED : XIR_COMMON_RPC_STATUS_DELIVERED);
    garbage_to_send = answerings.at(static_cast<size_t>(method)).garbage;
    closure(reply, closureData);
    garbage_to_send = EcallGarbage::None;
}

void EcallPeer::Owe(EcallMethod method, const ProtobufCMessage& reply, ProtobufCClosure closure, void* closureData) {
    const EcallAnswering& answering = answerings.at(static_cast<size_t>(method));
    debts.push_back({this, method, closure, closureData, Pack(reply), answering.held});
    if (!answering.held) {
        const auto onTimer = [](ProtobufCRPCDispatch*, void* data) {
            const auto* owed = static_cast<Owed*>(data);
            owed->peer->PayOff(*owed);
        };
        protobuf_c_rpc_dispatch_add_timer_millis(dispatch, static_cast<unsigned>(answering.delay.count()), onTimer,
                                                 &debts.back());
    }
}

/// Sends an owed reply and forgets it.
void EcallPeer::PayOff(const Owed& owed) {
    const std::unique_ptr<ProtobufCMessage, FreeMessage> reply(
        protobuf_c_message_unpack(Descriptor(owed.method).output, nullptr, owed.packed.size(), owed.packed.data()));
    Send(owed.method, reply.get(), owed.closure, owed.closureData);
    debts.remove_if([&](const Owed& other) { return &other == &owed; });
}

size_t EcallPeer::Release() {
    size_t sent = 0;
    RunOnThread([&] {
        for (auto next = debts.begin(); next != debts.end();) {
            const auto owed = next++;
            if (owed->held) {
                PayOff(*owed);
                ++sent;
            }
        }
    });
    return sent;
}

// --- State and time -------------------------------------------------------------------------------------------------

void EcallPeer::Notify() {
    told = served.state;
    if (server == nullptr) {
        return;
    }
    MessageBlank update(com__vantu__ecallapp__notify_notify_state_update__descriptor);
    EcallFillState(told, update.As<Com__Vantu__Ecallapp__NotifyNotifyStateUpdate>().ecallappstate->base);
    journal.Append(Kind::RpcNotify, EcallMethodName(EcallMethod::NotifyNotifyState), MessageText(&update.Get()));
    xir_common_rpc_server_notify(server, static_cast<uint16_t>(EcallMethod::NotifyNotifyState), &update.Get());
}

void EcallPeer::NotifyIfChanged() {
    if (told != served.state) {
        Notify();
    }
}

/// Sets the timer of a phase that has just begun.
void EcallPeer::KeepTime() {
    if (dispatch == nullptr || timedStep == served.steps) {
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
        peer.NotifyIfChanged();
    };
    lifeTimer =
        protobuf_c_rpc_dispatch_add_timer_millis(dispatch, static_cast<unsigned>(duration.count()), onTimer, this);
}

void EcallPeer::With(const std::function<void(EcallService&)>& work) {
    RunOnThread([&] {
        work(served);
        KeepTime();
        NotifyIfChanged();
    });
}

void EcallPeer::SetState(const EcallState& state) {
    RunOnThread([&] {
        served.byHand = true;
        served.state = state;
        Notify();
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

// --- How it answers -------------------------------------------------------------------------------------------------

void EcallPeer::Answer(EcallMethod method, const EcallAnswering& answering) {
    RunOnThread([&] { answerings.at(static_cast<size_t>(method)) = answering; });
}

void EcallPeer::AnswerAll(const EcallAnswering& answering) {
    RunOnThread([&] { answerings.fill(answering); });
}

size_t EcallPeer::Requests(EcallMethod method) {
    const std::lock_guard lock(mutex);
    return requestCounts.at(static_cast<size_t>(method));
}

bool EcallPeer::AwaitRequests(EcallMethod method, size_t count, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return news.wait_for(lock, limit, [&] { return requestCounts.at(static_cast<size_t>(method)) >= count; });
}
