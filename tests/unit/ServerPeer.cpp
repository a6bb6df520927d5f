#include "ServerPeer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "ProtoBytes.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"

namespace {

constexpr std::chrono::seconds kWait{60};
constexpr XirRpcServerTexts kTexts{"ServerPeer", "serverPeerThread", "CreateServerPeer"};

/// Frees what was unpacked.
struct FreeMessage {
    void operator()(ProtobufCMessage* message) const { protobuf_c_message_free_unpacked(message, nullptr); }
};
using Message = std::unique_ptr<ProtobufCMessage, FreeMessage>;

Message Unpack(const ProtobufCMessageDescriptor* type, const std::string& bytes) {
    return Message(
        protobuf_c_message_unpack(type, nullptr, bytes.size(), reinterpret_cast<const uint8_t*>(bytes.data())));
}

std::string Pack(const ProtobufCMessage& message) {
    std::string bytes(protobuf_c_message_get_packed_size(&message), '\0');
    protobuf_c_message_pack(&message, reinterpret_cast<uint8_t*>(bytes.data()));
    return bytes;
}

}  // namespace

const PeerService kEcallService{&com__vantu__ecallapp__iecall_app__descriptor, 21, 2, "com.vantu.ecallapp.iecallapp"};

std::string VersionReply(int code, int major, const std::string& name) {
    return ProtoBytes().Number(1, code).Number(2, major).Number(3, 7).Text(4, name).bytes;
}

ServerPeer::ServerPeer(const PeerService& service) : identity(service) {
    Answer(identity.versionMethod, VersionReply(0, identity.major, identity.interfaceName));
    Start();
}

void ServerPeer::Start() {
    const Service service{{identity.descriptor, Invoke, nullptr}, this};
    ASSERT_EQ(0, XirRpcCreateServer(&server, service, kTexts, {1, urls}));
    ASSERT_NE(nullptr, server);
}

void ServerPeer::Stop() {
    XirRpcReleaseServer(server);
    server = nullptr;
}

void ServerPeer::Handle(unsigned method, Handler handler) {
    const std::lock_guard lock(mutex);
    handlers[method] = std::move(handler);
}

ServerPeer::Handler ServerPeer::Record(const PeerRequest& request) {
    const std::lock_guard lock(mutex);
    requests.push_back(request);
    const auto handler = handlers.find(request.method);
    return handler != handlers.end() ? handler->second
                                     : [](const std::string& /*request*/) { return ProtoBytes().Number(1, 0).bytes; };
}

void ServerPeer::NoteAnswer() {
    const std::lock_guard lock(mutex);
    ++answered;
    changed.notify_all();
}

void ServerPeer::Invoke(ProtobufCService* service, unsigned method, const ProtobufCMessage* request,
                        ProtobufCClosure closure, void* closureData) {
    ServerPeer& peer = *reinterpret_cast<Service*>(service)->peer;
    const std::string payload = Pack(*request);
    const Handler handler = peer.Record({method, payload});
    const Message answer = Unpack(service->descriptor->methods[method].output, handler(payload));
    closure(answer.get(), closureData);
    peer.NoteAnswer();
}

int ServerPeer::Notify(uint16_t method, const std::string& payload) {
    const Message message = Unpack(identity.descriptor->methods[method].output, payload);
    EXPECT_NE(nullptr, message);
    return xir_common_rpc_server_notify(server->end.servers[0], method, message.get());
}

std::vector<PeerRequest> ServerPeer::Requests() const {
    const std::lock_guard lock(mutex);
    return requests;
}

PeerRequest ServerPeer::WaitFor(unsigned method, std::size_t count) const {
    std::unique_lock lock(mutex);
    PeerRequest found{};
    const bool came = changed.wait_for(lock, kWait, [&] {
        std::size_t seen = 0;
        for (std::size_t i = 0; i < answered && seen < count; ++i) {
            if (requests[i].method == method) {
                found = requests[i];
                ++seen;
            }
        }
        return seen == count;
    });
    EXPECT_TRUE(came) << "request " << count << " of method " << method;
    return found;
}
