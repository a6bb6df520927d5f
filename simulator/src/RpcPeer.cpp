// All work is done on the peer's thread, between two runs of its dispatcher: requests and timers by the dispatcher,
// orders from other threads as tasks, announced through an event descriptor. So what a peer knows needs no lock.
//
// Easy to get wrong: an entry is journalled before its bytes are sent, or the unit's answer could stand before its
// cause.
#include "RpcPeer.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <string_view>

#include "MessageBlank.h"
#include "MessageText.h"

namespace {

constexpr unsigned kResponsecodeField = 1;

/// What the serializer hook puts in the place of the reply that is being sent; the hook has no context of its own.
thread_local RpcGarbage garbage_to_send = RpcGarbage::None;

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

Bytes GarbageFor(const xir_common_rpc_header& header, RpcGarbage garbage) {
    constexpr uint8_t kNoKind = 0xEE;
    constexpr uint32_t kBeyondLimit = 2U << 20;
    const Bytes noMessage{0xFF, 0xFF, 0xFF, 0xFF};
    switch (garbage) {
        case RpcGarbage::None:
            break;
        case RpcGarbage::NoFrame:
            return Frame(header, 4, kNoKind, noMessage);
        case RpcGarbage::BadPayload:
            return Frame(header, 4, header.kind, noMessage);
        case RpcGarbage::TooLong:
            return Frame(header, kBeyondLimit, header.kind, noMessage);
        case RpcGarbage::CutOff:
            return Frame(header, 16, header.kind, noMessage);
    }
    return {};
}

int32_t Serialize(const xir_common_rpc_header* header, ProtobufCBuffer* out) {
    if (garbage_to_send == RpcGarbage::None) {
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

/// Only the service sends it, so nobody can ask for it.
bool IsNotification(const ProtobufCMethodDescriptor& method) {
    return std::string_view(method.name).starts_with("notify");
}

/// One server lives on each peer's thread, and it is the only one that asks there.
uint8_t IsDispatchThread(xir_common_osal_thread_handle handle) {
    return static_cast<uint8_t>(xir_common_osal_is_same_thread(handle));
}

}  // namespace

RpcPeer::RpcPeer(Journal& to, const ProtobufCServiceDescriptor& service, const char* thread, uint16_t atPort)
    : journal(to),
      descriptor(service),
      threadName(thread),
      port(atPort),
      face{},
      answerings(service.n_methods),
      requestCounts(service.n_methods) {
    face.base.descriptor = &service;
    face.base.invoke = [](ProtobufCService* base, unsigned method, const ProtobufCMessage* request,
                          ProtobufCClosure closure, void* closureData) {
        reinterpret_cast<Face*>(base)->peer->Serve(method, *request, closure, closureData);
    };
    face.peer = this;
}

RpcPeer::~RpcPeer() = default;

void RpcPeer::OnError(int32_t code, const char* message, void* context) {
    const auto& peer = *static_cast<RpcPeer*>(context);
    peer.journal.Note(std::string(peer.descriptor.short_name) + ": transport error " + std::to_string(code) + ": " +
                      message);
}

void RpcPeer::OnConnection(xir_common_rpc_server*, void* context, const char* id, int32_t event) {
    static_cast<RpcPeer*>(context)->Enter(Kind::RpcConnect, id,
                                          event == XIR_COMMON_RPC_EVENT_OPENED ? "connected" : "disconnected");
}

/// One entry about this peer's wire.
void RpcPeer::Enter(Kind kind, std::string subject, std::string text, int64_t result) {
    Entry entry;
    entry.kind = kind;
    entry.peer = descriptor.short_name;
    entry.subject = std::move(subject);
    entry.text = std::move(text);
    entry.result = result;
    journal.Append(std::move(entry));
}

// --- Life of the thread ---------------------------------------------------------------------------------------------

bool RpcPeer::Start() {
    if (IsRunning()) {
        return true;
    }
    wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake >= 0) {
        xir_common_osal_createThread(threadName, this, ThreadInit, ThreadRun, ThreadDestroy, &threadHandle);
    }
    if (!IsRunning()) {
        Stop();
    }
    return IsRunning();
}

void RpcPeer::Stop() {
    if (IsRunning()) {
        journal.Append(Kind::Process, descriptor.short_name, "stopped");
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

int32_t RpcPeer::ThreadInit(xir_common_osal_thread_handle handle, void* context) {
    auto& peer = *static_cast<RpcPeer*>(context);
    peer.dispatch = protobuf_c_rpc_dispatch_new(nullptr);
    if (peer.dispatch == nullptr || !peer.OpenServer(handle)) {
        return -1;
    }
    const auto onWake = [](ProtobufC_RPC_FD, unsigned, void* data) { static_cast<RpcPeer*>(data)->RunTasks(); };
    protobuf_c_rpc_dispatch_watch_fd(peer.dispatch, peer.wake, PROTOBUF_C_RPC_EVENT_READABLE, onWake, &peer);
    peer.Begin();
    return 0;
}

bool RpcPeer::OpenServer(xir_common_osal_thread_handle handle) {
    const xir_common_rpc_interface interface = Interface();
    server = xir_common_rpc_server_new(XIR_COMMON_RPC_TRANSPORT_TCP, std::to_string(port).c_str(), &face.base, dispatch,
                                       &interface);
    if (server == nullptr) {
        return false;
    }
    journal.Append(Kind::Process, descriptor.short_name, "started");
    xir_common_rpc_server_set_error_handler(server, OnError, this);
    xir_common_rpc_server_set_rpc_protocol(server, Serialize, xir_common_rpc_deserialize);
    xir_common_rpc_server_configure_threading(server, IsDispatchThread, handle);
    xir_common_rpc_server_register_connection_callback(server, OnConnection, this);
    return true;
}

int32_t RpcPeer::ThreadRun(xir_common_osal_thread_handle, void* context) {
    auto& peer = *static_cast<RpcPeer*>(context);
    protobuf_c_rpc_dispatch_run(peer.dispatch);
    return peer.stopping ? -1 : 0;
}

int32_t RpcPeer::ThreadDestroy(xir_common_osal_thread_handle, void* context) {
    auto& peer = *static_cast<RpcPeer*>(context);
    if (peer.server != nullptr) {
        xir_common_rpc_server_destroy(peer.server, 0);
    }
    protobuf_c_rpc_dispatch_free(peer.dispatch);
    peer.server = nullptr;
    peer.dispatch = nullptr;
    peer.debts.clear();
    peer.End();
    return 0;
}

void RpcPeer::RunOnThread(const std::function<void()>& work) {
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

void RpcPeer::RunTasks() {
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

void RpcPeer::Serve(unsigned method, const ProtobufCMessage& request, ProtobufCClosure closure, void* closureData) {
    Enter(Kind::RpcRequest, descriptor.methods[method].name, MessageText(&request));
    {
        const std::lock_guard lock(mutex);
        ++requestCounts.at(method);
        news.notify_all();
    }
    const RpcAnswering& answering = answerings.at(method);
    if (answering.missing || IsNotification(descriptor.methods[method])) {
        Send(method, nullptr, closure, closureData);
        return;
    }
    MessageBlank reply(*descriptor.methods[method].output);
    if (answering.code != 0) {
        MessageSetUnsigned(reply.Get(), kResponsecodeField, answering.code);
    } else {
        Fill(method, request, reply.Get());
    }
    Reply(method, reply.Get(), closure, closureData);
}

/// Sends the reply or owes it, and tells what the request has changed, in the order that the method is set to.
void RpcPeer::Reply(unsigned method, const ProtobufCMessage& reply, ProtobufCClosure closure, void* closureData) {
    const RpcAnswering& answering = answerings.at(method);
    if (answering.notifyFirst) {
        NotifyChanges();
    }
    if (answering.held || answering.delay.count() > 0) {
        Owe(method, reply, closure, closureData);
    } else {
        Send(method, &reply, closure, closureData);
    }
    NotifyChanges();
}

void RpcPeer::Send(unsigned method, const ProtobufCMessage* reply, ProtobufCClosure closure, void* closureData) {
    const bool missing = reply == nullptr;
    Enter(Kind::RpcReply, descriptor.methods[method].name, MessageText(reply),
          missing ? XIR_COMMON_RPC_STATUS_REFUSED : XIR_COMMON_RPC_STATUS_DELIVERED);
    garbage_to_send = answerings.at(method).garbage;
    closure(reply, closureData);
    garbage_to_send = RpcGarbage::None;
}

void RpcPeer::Notify(unsigned method, const ProtobufCMessage& update) {
    if (server == nullptr) {
        return;
    }
    Enter(Kind::RpcNotify, descriptor.methods[method].name, MessageText(&update));
    xir_common_rpc_server_notify(server, static_cast<uint16_t>(method), &update);
}

void RpcPeer::Owe(unsigned method, const ProtobufCMessage& reply, ProtobufCClosure closure, void* closureData) {
    const RpcAnswering& answering = answerings.at(method);
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
void RpcPeer::PayOff(const Owed& owed) {
    const std::unique_ptr<ProtobufCMessage, FreeMessage> reply(protobuf_c_message_unpack(
        descriptor.methods[owed.method].output, nullptr, owed.packed.size(), owed.packed.data()));
    Send(owed.method, reply.get(), owed.closure, owed.closureData);
    debts.remove_if([&](const Owed& other) { return &other == &owed; });
}

size_t RpcPeer::Release() {
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

// --- How it answers -------------------------------------------------------------------------------------------------

void RpcPeer::SetAnswering(unsigned method, const RpcAnswering& answering) {
    RunOnThread([&] { answerings.at(method) = answering; });
}

void RpcPeer::AnswerAll(const RpcAnswering& answering) {
    RunOnThread([&] { answerings.assign(answerings.size(), answering); });
}

size_t RpcPeer::CountRequests(unsigned method) {
    const std::lock_guard lock(mutex);
    return requestCounts.at(method);
}

bool RpcPeer::AwaitRequestCount(unsigned method, size_t count, std::chrono::milliseconds limit) {
    std::unique_lock lock(mutex);
    return news.wait_for(lock, limit, [&] { return requestCounts.at(method) >= count; });
}
