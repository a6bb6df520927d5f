// What the connection ends ask of the platform's library, call by call. The linker's --wrap puts a platform in front of
// it that notes each call before it passes it on.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <future>
#include <map>
#include <mutex>
#include <semaphore>
#include <set>
#include <thread>

#include "ProtoBytes.h"
#include "RawPeer.h"
#include "XirEcallapp.h"
#include "XirRpcClient.h"
#include "XirRpcServer.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"

using testing::ElementsAre;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

/// The steps of a thread, by its context.
struct Steps {
    xir_common_osal_thread_fn init;
    xir_common_osal_thread_fn run;
    xir_common_osal_thread_fn destroy;
};

struct Platform {
    std::mutex mutex;
    std::vector<std::string> notes;
    std::map<void*, Steps> threads;
    std::set<int32_t> runResults;
    bool refusesDispatchers = false;
    std::string instead;  ///< where clients really connect to, if not empty

    void Note(const std::string& note) {
        const std::lock_guard lock(mutex);
        notes.push_back(note);
    }
    std::vector<std::string> TakeNotes() {
        const std::lock_guard lock(mutex);
        return std::exchange(notes, {});
    }
};
Platform platform;

Steps StepsOf(void* context) {
    const std::lock_guard lock(platform.mutex);
    return platform.threads.at(context);
}

/// A thread that failed is run all the same, once, to see what it answers.
int32_t Init(xir_common_osal_thread_handle handle, void* context) {
    const Steps steps = StepsOf(context);
    const int32_t result = steps.init(handle, context);
    platform.Note("init " + std::to_string(result));
    if (result < 0) {
        platform.Note("run " + std::to_string(steps.run(handle, context)));
    }
    return result;
}

int32_t Run(xir_common_osal_thread_handle handle, void* context) {
    const int32_t result = StepsOf(context).run(handle, context);
    const std::lock_guard lock(platform.mutex);
    platform.runResults.insert(result);
    return result;
}

int32_t Destroy(xir_common_osal_thread_handle handle, void* context) {
    return StepsOf(context).destroy(handle, context);
}

std::string Hooks(bool serializes, bool deserializes) {
    return std::string("protocol") + (serializes ? " serialize" : "") + (deserializes ? " deserialize" : "");
}

/// Asked on the dispatch thread, as the ends install it there.
std::string Threading(xir_common_rpc_is_dispatch_thread_fn test, xir_common_osal_thread_handle handle) {
    uint8_t elsewhere = 1;
    std::thread([&] { elsewhere = test(handle); }).join();
    return "threading " + std::to_string(test(handle)) + std::to_string(elsewhere);
}

std::string Interface(const void* record) {
    const auto& interface = *static_cast<const xir_common_rpc_interface*>(record);
    return std::to_string(interface.id) + "/" + std::to_string(interface.major) + "/" +
           std::to_string(interface.notification_count);
}

}  // namespace

extern "C" {
decltype(xir_common_osal_createThread) __real_xir_common_osal_createThread;
decltype(xir_common_rpc_client_new) __real_xir_common_rpc_client_new;
decltype(xir_common_rpc_client_set_error_handler) __real_xir_common_rpc_client_set_error_handler;
decltype(xir_common_rpc_client_set_rpc_protocol) __real_xir_common_rpc_client_set_rpc_protocol;
decltype(xir_common_rpc_client_configure_threading) __real_xir_common_rpc_client_configure_threading;
decltype(xir_common_rpc_client_register_nonrpcmsg_callback) __real_xir_common_rpc_client_register_nonrpcmsg_callback;
decltype(xir_common_rpc_client_register_connection_callback) __real_xir_common_rpc_client_register_connection_callback;
decltype(xir_common_rpc_server_new) __real_xir_common_rpc_server_new;
decltype(xir_common_rpc_server_set_error_handler) __real_xir_common_rpc_server_set_error_handler;
decltype(xir_common_rpc_server_set_rpc_protocol) __real_xir_common_rpc_server_set_rpc_protocol;
decltype(xir_common_rpc_server_configure_threading) __real_xir_common_rpc_server_configure_threading;
decltype(xir_common_rpc_server_register_connection_callback) __real_xir_common_rpc_server_register_connection_callback;
decltype(xir_common_rpc_server_destroy) __real_xir_common_rpc_server_destroy;
decltype(protobuf_c_rpc_dispatch_new) __real_protobuf_c_rpc_dispatch_new;
decltype(protobuf_c_rpc_dispatch_free) __real_protobuf_c_rpc_dispatch_free;
decltype(protobuf_c_service_destroy) __real_protobuf_c_service_destroy;

int32_t __wrap_xir_common_osal_createThread(const char* name, void* context, xir_common_osal_thread_fn init,
                                            xir_common_osal_thread_fn run, xir_common_osal_thread_fn destroy,
                                            xir_common_osal_thread_handle* handle) {
    platform.Note(std::string("thread ") + name);
    {
        const std::lock_guard lock(platform.mutex);
        platform.threads[context] = {init, run, destroy};
    }
    return __real_xir_common_osal_createThread(name, context, Init, Run, Destroy, handle);
}

xir_common_rpc_client* __wrap_xir_common_rpc_client_new(int32_t transport, const char* address,
                                                        const ProtobufCServiceDescriptor* descriptor,
                                                        ProtobufCRPCDispatch* dispatch, void* context) {
    platform.Note("client " + std::to_string(transport) + " " + address + " " + descriptor->name + " " +
                  Interface(context));
    if (platform.instead.empty()) {
        return __real_xir_common_rpc_client_new(transport, address, descriptor, dispatch, context);
    }
    return __real_xir_common_rpc_client_new(XIR_COMMON_RPC_TRANSPORT_FILE, platform.instead.c_str(), descriptor,
                                            dispatch, context);
}

int32_t __wrap_xir_common_rpc_client_set_error_handler(xir_common_rpc_client* client, xir_common_rpc_error_fn handler,
                                                       void* context) {
    platform.Note("error handler");
    return __real_xir_common_rpc_client_set_error_handler(client, handler, context);
}

int32_t __wrap_xir_common_rpc_client_set_rpc_protocol(xir_common_rpc_client* client,
                                                      xir_common_rpc_serialize_fn serialize,
                                                      xir_common_rpc_deserialize_fn deserialize) {
    platform.Note(Hooks(serialize == xir_common_rpc_client_serialize, deserialize == xir_common_rpc_deserialize));
    return __real_xir_common_rpc_client_set_rpc_protocol(client, serialize, deserialize);
}

int32_t __wrap_xir_common_rpc_client_configure_threading(xir_common_rpc_client* client,
                                                         xir_common_rpc_is_dispatch_thread_fn test,
                                                         xir_common_osal_thread_handle handle) {
    platform.Note(Threading(test, handle));
    return __real_xir_common_rpc_client_configure_threading(client, test, handle);
}

int32_t __wrap_xir_common_rpc_client_register_nonrpcmsg_callback(xir_common_rpc_client* client,
                                                                 xir_common_rpc_nonrpcmsg_fn callback) {
    platform.Note("message callback");
    return __real_xir_common_rpc_client_register_nonrpcmsg_callback(client, callback);
}

int32_t __wrap_xir_common_rpc_client_register_connection_callback(xir_common_rpc_client* client,
                                                                  xir_common_rpc_client_connection_fn callback) {
    platform.Note("connection callback");
    return __real_xir_common_rpc_client_register_connection_callback(client, callback);
}

xir_common_rpc_server* __wrap_xir_common_rpc_server_new(int32_t transport, const char* address,
                                                        ProtobufCService* service, ProtobufCRPCDispatch* dispatch,
                                                        const xir_common_rpc_interface* interface) {
    platform.Note("server " + std::to_string(transport) + " " + address + " " + service->descriptor->name + " " +
                  Interface(interface));
    return __real_xir_common_rpc_server_new(transport, address, service, dispatch, interface);
}

int32_t __wrap_xir_common_rpc_server_set_error_handler(xir_common_rpc_server* server, xir_common_rpc_error_fn handler,
                                                       void* context) {
    platform.Note("error handler");
    return __real_xir_common_rpc_server_set_error_handler(server, handler, context);
}

int32_t __wrap_xir_common_rpc_server_set_rpc_protocol(xir_common_rpc_server* server,
                                                      xir_common_rpc_serialize_fn serialize,
                                                      xir_common_rpc_deserialize_fn deserialize) {
    platform.Note(Hooks(serialize == xir_common_rpc_server_serialize, deserialize == xir_common_rpc_deserialize));
    return __real_xir_common_rpc_server_set_rpc_protocol(server, serialize, deserialize);
}

int32_t __wrap_xir_common_rpc_server_configure_threading(xir_common_rpc_server* server,
                                                         xir_common_rpc_is_dispatch_thread_fn test,
                                                         xir_common_osal_thread_handle handle) {
    platform.Note(Threading(test, handle));
    return __real_xir_common_rpc_server_configure_threading(server, test, handle);
}

int32_t __wrap_xir_common_rpc_server_register_connection_callback(xir_common_rpc_server* server,
                                                                  xir_common_rpc_server_connection_fn callback,
                                                                  void* context) {
    platform.Note("connection callback");
    return __real_xir_common_rpc_server_register_connection_callback(server, callback, context);
}

int32_t __wrap_xir_common_rpc_server_destroy(xir_common_rpc_server* server, int32_t flags) {
    platform.Note("server end " + std::to_string(flags));
    return __real_xir_common_rpc_server_destroy(server, flags);
}

ProtobufCRPCDispatch* __wrap_protobuf_c_rpc_dispatch_new(ProtobufCAllocator* allocator) {
    platform.Note(allocator != nullptr ? "dispatcher" : "dispatcher without allocator");
    return platform.refusesDispatchers ? nullptr : __real_protobuf_c_rpc_dispatch_new(allocator);
}

void __wrap_protobuf_c_rpc_dispatch_free(ProtobufCRPCDispatch* dispatch) {
    platform.Note(dispatch != nullptr ? "dispatcher end" : "no dispatcher end");
    __real_protobuf_c_rpc_dispatch_free(dispatch);
}

void __wrap_protobuf_c_service_destroy(ProtobufCService* service) {
    platform.Note("client end");
    __real_protobuf_c_service_destroy(service);
}
}

namespace {

const std::string kVersionReply =
    ProtoBytes().Number(1, 0).Number(2, 2).Number(3, 0).Text(4, "com.vantu.ecallapp.iecallapp").bytes;

class XirRpcPlatform : public testing::Test {
  protected:
    XirRpcPlatform() {
        platform.TakeNotes();
        platform.threads.clear();
        platform.runResults.clear();
        platform.refusesDispatchers = false;
        platform.instead.clear();
    }

    /// A client of the peer that goes by this URL.
    void Connect(const std::string& url) {
        const XirConnection connection{"EcallAppClient", url.c_str()};
        auto creation = std::async(std::launch::async, [&] { return XirEcallapp_createProxy(&proxy, &connection); });
        peer.Accept();
        peer.Serve(kVersionReply);
        ASSERT_EQ(0, creation.get());
    }
    /// What creating a client by this URL answers that cannot be made.
    int32_t TryConnect(const std::string& url) {
        const XirConnection connection{"EcallAppClient", url.c_str()};
        return XirEcallapp_createProxy(&proxy, &connection);
    }
    void Release() { XirEcallapp_releaseProxy(std::exchange(proxy, nullptr)); }

    RawPeer peer;
    const std::string path = peer.Url().substr(std::string("xirfile://").size());
    IEcallAppPubProxy* proxy = nullptr;
};

TEST_F(XirRpcPlatform, AClientIsMadeAndEquippedInThisOrder) {
    std::signal(SIGPIPE, SIG_DFL);

    Connect(peer.Url());

    EXPECT_THAT(platform.TakeNotes(), ElementsAre("thread IEcallApp", "dispatcher",
                                                  "client 0 " + path + " com.vantu.ecallapp.IEcallApp 112/2/1",
                                                  "error handler", "protocol serialize deserialize", "threading 10",
                                                  "message callback", "connection callback", "init 0"));
    EXPECT_EQ(SIG_IGN, std::signal(SIGPIPE, SIG_IGN));
    Release();
    EXPECT_THAT(platform.TakeNotes(), ElementsAre("client end", "dispatcher end"));
    EXPECT_THAT(platform.runResults, ElementsAre(0));
}

TEST_F(XirRpcPlatform, AClientTakesTheRestOfATcpUrlUnchecked) {
    for (const std::string rest : {"5", "127.0.0.1:50911", "xirtcp://"}) {
        platform.instead = path;

        Connect("xirtcp://" + rest);

        EXPECT_THAT(platform.TakeNotes(),
                    testing::Contains("client 1 " + rest + " com.vantu.ecallapp.IEcallApp 112/2/1"));
        Release();
    }
}

TEST_F(XirRpcPlatform, AThreadWithoutAClientAnswersSo) {
    EXPECT_EQ(-2, TryConnect("xirtcp://"));

    EXPECT_THAT(platform.TakeNotes(),
                ElementsAre("thread IEcallApp", "dispatcher", "init -4", "run -4", "dispatcher end"));
}

TEST_F(XirRpcPlatform, AThreadWithoutADispatcherHasNoClient) {
    platform.refusesDispatchers = true;

    EXPECT_EQ(-2, TryConnect(peer.Url()));

    EXPECT_THAT(platform.TakeNotes(),
                ElementsAre("thread IEcallApp", "dispatcher", "init -4", "run -4", "no dispatcher end"));
}

// --- Servers ---

constexpr XirRpcServerTexts kTexts{"IEcallUIAppSrvc", "iecalluiapp_srvcThread", "XirCreateIEcallUIAppSrvc"};
const ProtobufCService kService{&com__vantu__ecallapp__iecall_app__descriptor, protobuf_c_service_invoke_internal,
                                nullptr};

/// What creating a server on these URLs answers; the server is not kept.
int32_t TryServe(const std::vector<const char*>& urls) {
    XirRpcServer<ProtobufCService>* server = nullptr;
    const int32_t status = XirRpcCreateServer(&server, kService, kTexts, {urls.size(), urls.data()});
    XirRpcReleaseServer(server);
    return status;
}

TEST_F(XirRpcPlatform, EachServerIsMadeAndEquippedInThisOrder) {
    const ScratchSocket places[2];
    const std::string urls[] = {places[0].Url(), places[1].Url()};
    const auto made = [](const ScratchSocket& place) {
        return "server 0 " + place.Path() + " com.vantu.ecallapp.IEcallApp 112/1/0";
    };

    EXPECT_EQ(0, TryServe({urls[0].c_str(), urls[1].c_str()}));

    EXPECT_THAT(platform.TakeNotes(),
                ElementsAre("thread IEcallUIAppSrvc", "dispatcher", made(places[0]), "error handler",
                            "protocol serialize deserialize", "threading 10", "connection callback", made(places[1]),
                            "error handler", "protocol serialize deserialize", "threading 10", "connection callback",
                            "init 0", "server end 0", "server end 0", "dispatcher end"));
    EXPECT_THAT(platform.runResults, testing::AnyOf(ElementsAre(), ElementsAre(0)));
}

TEST_F(XirRpcPlatform, AServerOfTcpGetsThePort) {
    TryServe({"xirtcp://99999"});  // no port, but it is the platform that has to know

    EXPECT_THAT(platform.TakeNotes(), testing::Contains("server 1 99999 com.vantu.ecallapp.IEcallApp 112/1/0"));
}

TEST_F(XirRpcPlatform, AServerThreadWithoutAllItsServersAnswersSo) {
    const ScratchSocket place;
    const std::string url = place.Url();

    EXPECT_EQ(-2, TryServe({url.c_str(), "bad"}));
    EXPECT_THAT(platform.TakeNotes(), testing::IsSupersetOf({"init -4", "run -4", "server end 0", "dispatcher end"}));

    EXPECT_EQ(-2, TryServe({"bad", "bad", "bad", "bad"}));
    EXPECT_THAT(platform.TakeNotes(),
                ElementsAre("thread IEcallUIAppSrvc", "dispatcher", "init -3", "run -4", "dispatcher end"));
}

TEST_F(XirRpcPlatform, AServerThreadWithoutADispatcherBindsNothing) {
    platform.refusesDispatchers = true;

    CaptureStdout();
    EXPECT_EQ(-2, TryServe({"xirfile:///nowhere"}));

    EXPECT_EQ(
        "iecalluiapp_srvcThread destroy serveriecalluiapp_srvcThread end"
        "ERROR.2: failed to create XirCreateIEcallUIAppSrvc ",
        GetCapturedStdout());
    EXPECT_THAT(platform.TakeNotes(),
                ElementsAre("thread IEcallUIAppSrvc", "dispatcher", "init -4", "run -4", "no dispatcher end"));
}

// --- The table of notifications ---

std::vector<std::string> handled;  // the dispatch thread's, as long as there is one
std::counting_semaphore<> handlings(0);

void Handle(const char* row) {
    handled.emplace_back(row);
    handlings.release();
}
void First(const ProtobufCMessage& /*message*/, XirRpcCallback /*callback*/) {
    Handle("first");
}
void Second(const ProtobufCMessage& /*message*/, XirRpcCallback /*callback*/) {
    Handle("second");
}

/// A service whose table has these rows, so many of which count.
XirRpcClientService ServiceWith(uint8_t count, std::array<XirRpcNotification, kXirRpcMaxNotifications> rows) {
    return {.threadName = "Table",
            .createName = "create",
            .releaseName = "release",
            .interfaceName = "com.vantu.ecallapp.iecallapp",
            .interface = {1, 2, count},
            .descriptor = &com__vantu__ecallapp__iecall_app__descriptor,
            .getVersion = com__vantu__ecallapp__iecall_app__get_iecall_app_version,
            .subscribe = com__vantu__ecallapp__iecall_app__subscribe,
            .unsubscribe = com__vantu__ecallapp__iecall_app__unsubscribe,
            .notifications = rows};
}

/// The rows that a notification of method 17 and one of method 15 reach, so many in all.
std::vector<std::string> RowsOf(const XirRpcClientService& service, int count) {
    RawPeer peer;
    const std::string url = peer.Url();
    XirRpcProxy* proxy = nullptr;
    handled.clear();
    auto creation = std::async(std::launch::async, [&] {
        return XirRpcCreateProxy(&proxy, service, XirConnection{"c", url.c_str()});
    });
    peer.Accept();
    peer.Serve(kVersionReply);
    EXPECT_EQ(0, creation.get());
    peer.Notify(17, ProtoBytes().Number(1, 0).Text(2, "1.0").bytes);
    peer.Notify(15, ProtoBytes().Number(1, 0).Number(2, 0).bytes);
    for (int each = 0; each < count; ++each) {
        EXPECT_TRUE(handlings.try_acquire_for(std::chrono::seconds(60)));
    }
    XirRpcReleaseProxy(proxy);
    return handled;
}

TEST_F(XirRpcPlatform, TheFirstRowOfANotificationWinsAmongThoseThatCount) {
    EXPECT_THAT(RowsOf(ServiceWith(2, {{{15, First}, {17, Second}}}), 2), ElementsAre("second", "first"));
    EXPECT_THAT(RowsOf(ServiceWith(2, {{{17, First}, {17, Second}}}), 1), ElementsAre("first"));
    EXPECT_THAT(RowsOf(ServiceWith(1, {{{15, First}, {17, Second}}}), 1), ElementsAre("first"));
}

}  // namespace
