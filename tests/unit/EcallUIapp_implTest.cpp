// The operations behind the methods when memory is short, and the server when its port or its thread is not to be had.
#include "EcallUIapp_impl.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "EcallUIData.h"
#include "Faults.h"
#include "ProtoBytes.h"
#include "RawPeer.h"
#include "Scarcity.h"
#include "ScratchSocket.h"
#include "ServiceTest.h"
#include "UiParameters.h"
#include "XirEcallUIapp.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr uint8_t kRefused = 3;

struct EndServer {
    void operator()(IEcallUIAppServer* server) const { XirRpcReleaseServer(server); }
};

/// The service's own server on a local socket, with one client. Requests are served on its thread.
class EcallUIAppImpl : public testing::Test {
  protected:
    EcallUIAppImpl() {
        EcallUI_Configuration = EcallUIConfiguration();
        IEcallUIAppServer* made = nullptr;
        EXPECT_EQ(0, XirCreateIEcallUIAppSrvc(&made, {1, urls}));
        server.reset(made);
    }
    RawFrame Call(UiMethod method, const std::string& payload) { return RawClient(place.Path()).Call(method, payload); }

    const ScratchSocket place;
    const std::string url = place.Url();
    const char* const urls[1] = {url.c_str()};
    std::unique_ptr<IEcallUIAppServer, EndServer> server;
};

TEST_F(EcallUIAppImpl, WithoutMemoryForARecordARequestIsRefused) {
    const NoRecordMemory none(0);

    for (const UiMethod method : {kGetUiCfgParameter, kGetUiVersion, kRunAnalogMicTest}) {
        const RawFrame reply = Call(method, method == kGetUiCfgParameter ? UiGetRequest(7) : "");
        EXPECT_EQ(kRefused, reply.status);
        EXPECT_EQ("", reply.payload);
    }
}

TEST_F(EcallUIAppImpl, WithoutMemoryForARecordASetTakesEffectAllTheSame) {
    const NoRecordMemory none(0);

    const RawFrame reply = Call(kSetUiCfgParameter, UiSetRequest(7, {.number = 33}));

    EXPECT_EQ(kRefused, reply.status);
    EXPECT_EQ(33, EcallUI_Configuration.LedPwmPeriodMs);
}

TEST_F(EcallUIAppImpl, WithoutMemoryForAParametersTextAnEmptyOneIsSent) {
    const NoRecordMemory oneBlock(1);
    RawFrame reply;

    const Logged logged = LogOf([&] { reply = Call(kGetUiCfgParameter, UiGetRequest(22)); });

    EXPECT_EQ(UiGetReply({}), reply.payload);
    EXPECT_THAT(logged.system,
                ElementsAre("5 xir_allocate_and_attach pGetCfgParameterResponse->paramValue.StrValue ERROR"));
}

TEST_F(EcallUIAppImpl, WithoutMemoryForTheVersionsCopyAnEmptyTextIsSent) {
    const NoRecordMemory oneBlock(1);
    RawFrame reply;

    const Logged logged = LogOf([&] { reply = Call(kGetUiVersion, ""); });

    EXPECT_EQ(ProtoBytes().Number(1, 0).Text(2, "").bytes, reply.payload);
    EXPECT_THAT(logged.system, ElementsAre("5 xir_allocate_and_attach pGetVersionResponse->strVersion ERROR"));
    EXPECT_THAT(logged.Messages(), Contains("pVersion =  0.1.0-r1, V0.22 "));
}

TEST(EcallUIAppImplAlone, AResultThatIsKeptOutlivesItsRelease) {
    EcallUI_Configuration = EcallUIConfiguration();
    auto* const result = get_cfg_parameter_impl(nullptr, 22);
    ASSERT_NE(nullptr, result);

    EXPECT_EQ(2, result->retain(result));
    EXPECT_EQ(1, result->release(result));
    EXPECT_STREQ("DTR", result->paramValue.StrValue);
    EXPECT_EQ(0, result->release(result));
}

// No server here: its thread would be out of memory, too.
TEST(EcallUIAppImplAlone, WithoutABufferForTheVersionAnEmptyTextIsAnswered) {
    const CallFault fault("malloc", ENOMEM);

    const Logged logged = LogOf([&] {
        auto* const result = com_vantu_ecalluiapp_iecalluiapp_get_version_impl(nullptr);
        EXPECT_EQ(0U, result->responsecode);
        EXPECT_EQ(nullptr, result->strVersion);
        result->release(result);
    });

    EXPECT_THAT(logged.system, ElementsAre("5 Error malloc"));
    EXPECT_THAT(logged.Messages(), Not(Contains(HasSubstr("pVersion"))));
}

// --- The server's start ---

TEST(EcallUIAppImplStart, WithoutMemoryTheServerIsNotMade) {
    IEcallUIAppServer* server = nullptr;
    const char* const url = "xirtcp://50101";
    const NoMemory none;

    EXPECT_EQ(-11, XirCreateIEcallUIAppSrvc(&server, {1, &url}));
}

TEST(EcallUIAppImplStart, WithoutMemoryItIsLoggedOnly) {
    const Logged logged = LogOf([] {
        const NoMemory none;
        XirCreateIEcallUIApp();
    });

    EXPECT_THAT(logged.system, ElementsAre("5 XirCreateIEcallUIApp failed (result=-11)"));
}

TEST(EcallUIAppImplStart, WithoutAThreadNothingIsMadeAndNothingIsAnError) {
    const Ended ended = EndOf([] {
        ForbidNewThreads();
        XirCreateIEcallUIApp();
    });

    EXPECT_EQ(0, ended.signal);
    EXPECT_THAT(ended.logged.Messages(), ElementsAre("XirCreateIEcallUIApp (protobuf) : OK"));
    EXPECT_THAT(ended.logged.console, Not(HasSubstr("thread started")));
}

TEST(EcallUIAppImplStart, ATakenPortIsLoggedOnly) {
    const TakenPort taken(kUiPort);

    const Logged logged = LogOf(XirCreateIEcallUIApp);

    EXPECT_THAT(logged.Messages(), ElementsAre("XirCreateIEcallUIApp failed (result=-2)"));
    EXPECT_THAT(logged.system, ElementsAre("5 XirCreateIEcallUIApp failed (result=-2)"));
    EXPECT_THAT(logged.console, HasSubstr("ERROR.2: failed to create XirCreateIEcallUIAppSrvc "));
}

TEST(EcallUIAppImplStart, AServerThatStandsIsLoggedAndServes) {
    const Ended ended = EndOf([] {
        XirCreateIEcallUIApp();
        printf("status %d", RawClient(kUiPort).Call(kGetIEcallUIAppVersion, "").status);
    });

    EXPECT_EQ(0, ended.signal);
    EXPECT_THAT(ended.logged.Messages(), ElementsAre("XirCreateIEcallUIApp (protobuf) : OK"));
    EXPECT_THAT(ended.logged.system, IsEmpty());
    EXPECT_THAT(ended.logged.console, HasSubstr("iecalluiapp_srvcThread binding url=xirtcp://50101\n"));
    EXPECT_THAT(ended.logged.console,
                HasSubstr("XirCreateIEcallUIAppSrvc - thread started XirCreateIEcallUIApp (protobuf) : OK\n\r"));
    EXPECT_THAT(ended.logged.console, HasSubstr("status 0"));
}

}  // namespace
