// The layer that every connection end shares: URLs, the server's thread, what both ends print.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <vector>

#include "ProtoBytes.h"
#include "RawPeer.h"
#include "Scarcity.h"
#include "ServerPeer.h"
#include "XirEcallapp.h"
#include "XirRpcServer.h"
#include "XirRpcThread.h"
#include "XirRpcUrl.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

namespace {

// --- URLs ---

TEST(XirRpcUrl, TcpAddressIsWhatFollowsTheScheme) {
    const auto address = XirRpcParseUrl("xirtcp://127.0.0.1:50911");
    ASSERT_TRUE(address);
    EXPECT_EQ(XIR_COMMON_RPC_TRANSPORT_TCP, address->transport);
    EXPECT_STREQ("127.0.0.1:50911", address->text);
}

TEST(XirRpcUrl, FileAddressIsWhatFollowsTheScheme) {
    const auto address = XirRpcParseUrl("xirfile:///tmp/socket");
    ASSERT_TRUE(address);
    EXPECT_EQ(XIR_COMMON_RPC_TRANSPORT_FILE, address->transport);
    EXPECT_STREQ("/tmp/socket", address->text);
}

TEST(XirRpcUrl, OneCharacterAfterTheSchemeIsAnAddress) {
    ASSERT_TRUE(XirRpcParseUrl("xirtcp://5"));
    EXPECT_STREQ("5", XirRpcParseUrl("xirtcp://5")->text);
    ASSERT_TRUE(XirRpcParseUrl("xirfile://s"));
    EXPECT_STREQ("s", XirRpcParseUrl("xirfile://s")->text);
}

TEST(XirRpcUrl, EverythingElseIsInvalid) {
    for (const char* url : {"", "xirtcp://", "xirfile://", "xirtcp:/", "XIRTCP://127.0.0.1:1", "xirTcp://127.0.0.1:1",
                            "XIRFILE:///tmp/s", "tcp://127.0.0.1:1", " xirtcp://127.0.0.1:1", "127.0.0.1:50911"}) {
        EXPECT_FALSE(XirRpcParseUrl(url)) << url;
    }
}

// --- Servers ---

constexpr XirRpcServerTexts kTexts{"IEcallUIAppSrvc", "iecalluiapp_srvcThread", "XirCreateIEcallUIAppSrvc"};
const ProtobufCService kService{&com__vantu__ecallapp__iecall_app__descriptor, protobuf_c_service_invoke_internal,
                                nullptr};
using Server = XirRpcServer<ProtobufCService>;

int32_t Create(Server** out, const std::vector<const char*>& urls) {
    return XirRpcCreateServer(out, kService, kTexts, {urls.size(), urls.data()});
}

/// What creating a server on these URLs answers, with what it prints; the server is not kept.
struct Creation {
    int32_t status = 0;
    std::string text;
};

Creation TryCreate(const std::vector<const char*>& urls) {
    Server* server = nullptr;
    CaptureStdout();
    const int32_t status = Create(&server, urls);
    const std::string text = GetCapturedStdout();
    EXPECT_EQ(status == 0, server != nullptr);
    XirRpcReleaseServer(server);
    return {status, text};
}

const std::string kNoServer =
    "starting iecalluiapp_srvcThread\\(service=0x[0-9a-f]+, dispatch=0x[0-9a-f]+, server=\\(nil\\)\\)\n";
const std::string kGivenUp =
    "iecalluiapp_srvcThread destroy serveriecalluiapp_srvcThread end"
    "ERROR\\.2: failed to create XirCreateIEcallUIAppSrvc ";

TEST(XirRpcServer, ServesOnALocalSocket) {
    const ScratchSocket place;
    const std::string url = place.Url();

    const Creation creation = TryCreate({url.c_str()});

    EXPECT_EQ(0, creation.status);
    EXPECT_THAT(creation.text, MatchesRegex("iecalluiapp_srvcThread binding url=" + url +
                                            "\nstarting iecalluiapp_srvcThread\\(service=0x[0-9a-f]+, "
                                            "dispatch=0x[0-9a-f]+, server=0x[0-9a-f]+\\)\n"
                                            "XirCreateIEcallUIAppSrvc - thread started "));
}

TEST(XirRpcServer, EndSaysWhatItDoes) {
    const ScratchSocket place;
    const std::string url = place.Url();
    Server* server = nullptr;
    ASSERT_EQ(0, Create(&server, {url.c_str()}));

    CaptureStdout();
    XirRpcReleaseServer(server);

    EXPECT_EQ("iecalluiapp_srvcThread destroy serveriecalluiapp_srvcThread end", GetCapturedStdout());
}

TEST(XirRpcServer, APortOfOneCharacterIsTakenForNone) {
    const Creation creation = TryCreate({"xirtcp://5"});

    EXPECT_EQ(-2, creation.status);
    EXPECT_THAT(creation.text, MatchesRegex("iecalluiapp_srvcThread binding url=xirtcp://5\n"
                                            "iecalluiapp_srvcThread - ERROR no port in srvcUrl"
                                            "\\(srvcUrl=xirtcp://5\\)\\)\n" +
                                            kNoServer + kGivenUp));
}

TEST(XirRpcServer, AnInvalidUrlBindsNothing) {
    const std::string refused = "iecalluiapp_srvcThread binding url=[^\n]*\n" + kNoServer + kGivenUp;
    for (const std::string url : {"xirtcp://", "XIRTCP://50101", "xirfile://", "50101"}) {
        const Creation creation = TryCreate({url.c_str()});
        EXPECT_EQ(-2, creation.status) << url;
        EXPECT_THAT(creation.text, MatchesRegex(refused));
        EXPECT_THAT(creation.text, HasSubstr("=" + url + "\n"));
    }
}

TEST(XirRpcServer, AFailedUrlEndsTheBinding) {
    const ScratchSocket place;
    const std::string url = place.Url();

    const Creation creation = TryCreate({url.c_str(), "bad", url.c_str()});

    EXPECT_EQ(-2, creation.status);
    EXPECT_THAT(creation.text, HasSubstr("binding url=" + url));
    EXPECT_THAT(creation.text, MatchesRegex(".*binding url=bad\n" + kNoServer + kGivenUp));
}

TEST(XirRpcServer, ThreeUrlsAreServed) {
    const ScratchSocket places[3];
    const std::string urls[] = {places[0].Url(), places[1].Url(), places[2].Url()};

    EXPECT_EQ(0, TryCreate({urls[0].c_str(), urls[1].c_str(), urls[2].c_str()}).status);
}

TEST(XirRpcServer, FourUrlsFailBeforeAnyBinding) {
    const ScratchSocket place;
    const std::string url = place.Url();

    const Creation creation = TryCreate({url.c_str(), url.c_str(), url.c_str(), url.c_str()});

    EXPECT_EQ(-2, creation.status);
    EXPECT_THAT(creation.text, MatchesRegex(kGivenUp));
    EXPECT_FALSE(std::filesystem::exists(place.Path()));
}

TEST(XirRpcServer, WithoutMemoryThereIsNoServer) {
    const NoMemory scarcity;

    EXPECT_EQ(-11, TryCreate({"xirfile:///nowhere"}).status);
}

TEST(XirRpcServerDeathTest, WithoutAThreadTheResultIsZeroAndTheOutArgumentStays) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto createWithoutThread = [] {
        ForbidNewThreads();
        Server server{};
        Server* out = &server;
        const int32_t status = Create(&out, {"xirfile:///nowhere"});
        _exit(status == 0 && out == &server ? 0 : 1);
    };
    EXPECT_EXIT(createWithoutThread(), testing::ExitedWithCode(0), "");
}

/// The thread's first step, run here.
int32_t InitHere(const std::vector<const char*>& urls) {
    XirRpcServerEnd end{};
    end.urls = {urls.size(), urls.data()};
    end.texts = &kTexts;
    const int32_t status = XirRpcServerThreadInit(nullptr, &end);
    EXPECT_EQ(0U, end.boundCount);
    protobuf_c_rpc_dispatch_free(end.dispatch);
    return status;
}

TEST(XirRpcServer, ThreadInitTellsTooManyUrlsFromOnesThatCannotBeBound) {
    EXPECT_EQ(-3, InitHere({"bad", "bad", "bad", "bad"}));
    EXPECT_EQ(-4, InitHere({"bad", "bad", "bad"}));
}

/// A whole exchange with the server, after which it has dealt with everything that came to it before.
void Settle(const ServerPeer& peer) {
    const std::string url = peer.Url();
    const XirConnection connection{"EcallAppClient", url.c_str()};
    IEcallAppPubProxy* proxy = nullptr;
    ASSERT_EQ(0, XirEcallapp_createProxy(&proxy, &connection));
    XirEcallapp_releaseProxy(proxy);
}

TEST(XirRpcServer, ClientsAreAnnouncedWhenTheyComeAndWhenTheyGo) {
    CaptureStdout();
    ServerPeer peer;
    Settle(peer);
    Settle(peer);
    const std::string text = GetCapturedStdout();

    EXPECT_THAT(text, MatchesRegex(".*connectionStatusCbFn - new client \\(idStr=[^\n]+\\)\n.*"
                                   "connectionStatusCbFn - client disconnected \\(idStr=[^\n]+\\)\n.*"));
}

TEST(XirRpcServer, ATransportErrorGoesToStandardError) {
    CaptureStderr();
    ServerPeer peer;
    {
        RawClient stranger(peer.SocketPath());
        stranger.Send(std::string(12, '\xff'));
        stranger.WaitForEnd();
    }
    Settle(peer);

    EXPECT_THAT(GetCapturedStderr(), MatchesRegex("\\*\\*\\* error\\(srvcErrorHandler\\): -?[0-9]+: [^\n]+\n"));
}

// --- Threads ---

TEST(XirRpcThread, AProcessWithConnectionsOutlivesABrokenPipe) {
    std::signal(SIGPIPE, SIG_DFL);

    protobuf_c_rpc_dispatch_free(XirRpcPrepareDispatch());

    EXPECT_EQ(SIG_IGN, std::signal(SIGPIPE, SIG_DFL));
}

TEST(XirRpcThread, ASliceLastsTwoHundredMilliseconds) {
    ProtobufCRPCDispatch* dispatch = XirRpcPrepareDispatch();
    ProtobufCRPCDispatchTimer* timer = nullptr;
    const auto start = std::chrono::steady_clock::now();

    XirRpcDispatchSlice(dispatch, timer);

    const auto lasted = std::chrono::steady_clock::now() - start;
    EXPECT_GE(lasted, std::chrono::milliseconds(199));
    EXPECT_LT(lasted, std::chrono::seconds(15));
    EXPECT_EQ(nullptr, timer);
    protobuf_c_rpc_dispatch_free(dispatch);
}

TEST(XirRpcThread, ADroppedTimerIsGone) {
    ProtobufCRPCDispatch* dispatch = XirRpcPrepareDispatch();
    ProtobufCRPCDispatchTimer* timer = protobuf_c_rpc_dispatch_add_timer_millis(
        dispatch, 0, [](ProtobufCRPCDispatch*, void*) { ADD_FAILURE() << "the dropped timer expired"; }, nullptr);
    XirRpcDropTimer(timer);
    EXPECT_EQ(nullptr, timer);

    XirRpcDispatchSlice(dispatch, timer);
    protobuf_c_rpc_dispatch_free(dispatch);
}

}  // namespace
