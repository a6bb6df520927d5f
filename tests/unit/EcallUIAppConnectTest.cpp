// What of the start-up no peer can bring about: no thread for the connection, no mutex for the log.
#include "EcallUIAppConnect.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "EcallUIData.h"
#include "EcallUIShared.h"
#include "Faults.h"
#include "OpenedProxy.h"
#include "ProtoBytes.h"
#include "Scarcity.h"
#include "ServerPeer.h"
#include "ServiceTest.h"
#include "Trace.h"
#include "XirEcallapp.h"

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

TEST(EcallUIAppConnect, WithoutADispatchThreadTheProcessEnds) {
    const std::string error = "XirEcallapp_createProxy error :  srvcResult = 0, pProxyEcallapp = 0x0 ";

    const Ended ended = EndOf([] {
        EcallUI_Configuration.ConnectEcallService = 1;
        ForbidNewThreads();
        ConnectEcallService();
    });

    EXPECT_EQ(0, ended.signal);
    EXPECT_EQ(1, ended.status);
    EXPECT_EQ(error + "\n\r", ended.logged.console);
    EXPECT_THAT(ended.logged.system, ElementsAre("5 " + error));
    EXPECT_THAT(ended.logged.Messages(), ElementsAre(error));
}

/// A proxy whose peer is in a state that does not exist, so that no output is touched.
class EcallUIAppConnectPull : public testing::Test {
  protected:
    EcallUIAppConnectPull() {
        const ProtoBytes state = ProtoBytes().Number(1, 50).Number(2, 0).Number(3, 5).Number(4, 0).Number(5, 0);
        peer.Answer(kRequestState, ProtoBytes().Number(1, 0).Message(2, ProtoBytes(state).Number(6, 2)).bytes);
        const XirConnection connection{"EcallAppClient", url.c_str()};
        EXPECT_EQ(0, XirEcallapp_createProxy(&proxy, &connection));
        AwaitOpened(proxy);
        pProxyEcallapp.exchange(proxy);
    }
    ~EcallUIAppConnectPull() override {
        pProxyEcallapp.exchange(nullptr);
        XirEcallapp_releaseProxy(proxy);
    }

    static constexpr unsigned kRequestState = 8;
    ServerPeer peer;
    const std::string url = peer.Url();
    IEcallAppPubProxy* proxy = nullptr;
};

TEST_F(EcallUIAppConnectPull, WithoutTheLogsMutexItIsInTheSystemLogWithoutAnyLineEnd) {
    const CallFault fault("pthread_mutex_lock", EINVAL, {.object = &TraceMutex.mutex});

    const Logged logged = LogOf(PullEcallStateOnceMore);

    EXPECT_THAT(logged.system, Contains("5 XirEcallapp_requestState "));
    EXPECT_THAT(logged.console, Not(HasSubstr("XirEcallapp_requestState")));
    EXPECT_EQ("", logged.file);
}

TEST_F(EcallUIAppConnectPull, WithTheLogsMutexItIsNotInTheSystemLog) {
    const Logged logged = LogOf(PullEcallStateOnceMore);

    EXPECT_THAT(logged.system, Not(Contains(HasSubstr("XirEcallapp_requestState"))));
    EXPECT_THAT(logged.console, HasSubstr("XirEcallapp_requestState \n\n\rcbCnt = "));
    EXPECT_THAT(logged.Messages().at(0), "XirEcallapp_requestState ");
}

}  // namespace
