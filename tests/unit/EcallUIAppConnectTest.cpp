// The end of a start-up that fails where no peer can make it fail.
#include "EcallUIAppConnect.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EcallUIData.h"
#include "Scarcity.h"
#include "ServiceTest.h"

using testing::ElementsAre;

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

}  // namespace
