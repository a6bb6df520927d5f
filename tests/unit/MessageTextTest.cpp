#include "MessageText.h"

#include <gtest/gtest.h>

#include "MessageBlank.h"
#include "lib_Ecall/src/ecallapp.pb-c.h"
#include "lib_Location/src/location.pb-c.h"

namespace {

TEST(MessageText, NothingIsEmpty) {
    EXPECT_EQ("", MessageText(nullptr));
}

TEST(MessageText, AMessageWithoutFieldsIsEmpty) {
    EXPECT_EQ("", MessageText(&MessageBlank(com__vantu__ecallapp__request_state_request__descriptor).Get()));
}

TEST(MessageText, FieldsStandInTheirOrderAndNestedOnesWithoutAName) {
    MessageBlank reply(com__vantu__ecallapp__get_cfg_parameter_response__descriptor);
    auto& record = reply.As<Com__Vantu__Ecallapp__GetCfgParameterResponse>();
    std::string text("two words");
    record.paramvalue->boolvalue = 1;
    record.paramvalue->intvalue = -5;
    record.paramvalue->strvalue = text.data();

    EXPECT_EQ("responsecode=0 boolValue=1 intValue=-5 StrValue=\"two words\"", MessageText(&reply.Get()));
}

TEST(MessageText, EnumerationsShowNameAndNumber) {
    MessageBlank request(com__vantu__ecallapp__get_cfg_parameter_request__descriptor);
    MessageSetEnums(request.Get(), std::array<uint32_t, 1>{53});

    EXPECT_EQ("cfgParamName=APP_AUDIO_CONFIG_NUMBER(53)", MessageText(&request.Get()));
}

TEST(MessageText, AValueOutsideItsEnumerationShowsItsNumber) {
    MessageBlank update(com__vantu__ecallapp__notify_notify_state_update__descriptor);
    ProtobufCMessage& state = update.As<Com__Vantu__Ecallapp__NotifyNotifyStateUpdate>().ecallappstate->base;
    MessageSetEnums(state, std::array<uint32_t, 6>{50, 0, 5, 9, 2, 0xFFFFFFFF});

    EXPECT_EQ(
        "serviceState=?(50) simProfileState=Commercial(0) networkState=CsFullService(5) callState=?(9) "
        "audioOutState=VoiceCall(2) selfTestState=?(-1)",
        MessageText(&update.Get()));
}

TEST(MessageText, NumbersOfEveryKindAreShown) {
    MessageBlank request(com__vantu__ecallapp__update_gnss_location_request__descriptor);
    auto& location = *request.As<Com__Vantu__Ecallapp__UpdateGnssLocationRequest>().location;
    location.isvalid = 1;
    location.utctime = 1700000000000ULL;
    location.latitude = -48.858222;
    location.speed = 12.5F;

    EXPECT_EQ(0U, MessageText(&request.Get()).find("isValid=1 utcTime=1700000000000 latitude=-48.85822 longitude=0 "));
    EXPECT_NE(std::string::npos, MessageText(&request.Get()).find(" speed=12.5 "));
}

TEST(MessageText, OfAlternativesTheChosenOneIsShown) {
    MessageBlank reply(com__vantu__ms__location__get_last_known_position_response__descriptor);
    auto& record = reply.As<Com__Vantu__Ms__Location__GetLastKnownPositionResponse>();
    EXPECT_EQ("responsecode=0", MessageText(&reply.Get()));

    record.result_case = COM__VANTU__MS__LOCATION__GET_LAST_KNOWN_POSITION_RESPONSE__RESULT_VALUE;
    EXPECT_EQ(0U, MessageText(&reply.Get()).find("responsecode=0 extra_info=null heading=0 "));

    record.result_case = COM__VANTU__MS__LOCATION__GET_LAST_KNOWN_POSITION_RESPONSE__RESULT_ERROR_CODE;
    record.error_code = {};
    EXPECT_EQ("responsecode=0 error_code=NO_POSITION_AVAILABLE(0)", MessageText(&reply.Get()));
}

TEST(MessageText, ATextThatIsMissingIsNotRead) {
    MessageBlank reply(com__vantu__ecallapp__get_version_response__descriptor);

    EXPECT_EQ("responsecode=0 strVersion=null", MessageText(&reply.Get()));
}

TEST(MessageBlank, EnumerationsComeBackAsTheyWereSet) {
    MessageBlank report(com__vantu__ecallapp__tself_test_all_devices_state__descriptor);
    std::array<uint32_t, 15> sent{};
    for (uint32_t value = 0; value < 15; ++value) {
        sent.at(value) = value;
    }
    MessageSetEnums(report.Get(), sent);

    std::array<uint32_t, 15> got{};
    MessageGetEnums(report.Get(), got);

    EXPECT_EQ(sent, got);
}

TEST(MessageBlank, OnlyAnUnsignedFieldTakesAnUnsignedValue) {
    MessageBlank reply(com__vantu__ecallapp__get_version_response__descriptor);

    MessageSetUnsigned(reply.Get(), 1, 7);
    MessageSetUnsigned(reply.Get(), 2, 8);
    MessageSetUnsigned(reply.Get(), 99, 9);

    EXPECT_EQ("responsecode=7 strVersion=null", MessageText(&reply.Get()));
}

}  // namespace
