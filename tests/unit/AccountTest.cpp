#include "Account.h"

#include <gmock/gmock.h>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kLed = "/sys/devices/vantu_pwm_led.1/";

/// An account and the entries that it is told, a millisecond apart.
struct Teller {
    Account account;
    std::chrono::nanoseconds now{0};

    std::vector<std::string> Tell(Kind kind, const std::string& subject, const std::string& text, int64_t result = 0,
                                  const std::string& peer = "") {
        now += 1ms;
        Entry entry;
        entry.peer = peer;
        entry.time = now;
        entry.kind = kind;
        entry.subject = subject;
        entry.text = text;
        entry.result = result;
        return Texts(account.Tell(entry));
    }

    std::vector<std::string> Write(const std::string& path, const std::string& text) {
        return Tell(Kind::Write, path, text, static_cast<int64_t>(text.size()));
    }

    std::vector<std::string> TellLocation(Kind kind, const std::string& subject, const std::string& text) {
        return Tell(kind, subject, text, 0, "LocationProvider");
    }

    static std::vector<std::string> Texts(const std::vector<AccountLine>& lines) {
        std::vector<std::string> texts;
        texts.reserve(lines.size());
        for (const AccountLine& line : lines) {
            texts.push_back(std::string(WhoName(line.who)) + ": " + line.text);
        }
        return texts;
    }
};

void Program(Teller& teller, const char* duty1, bool toggling) {
    teller.Write(kLed + "enable", "0");
    teller.Write(kLed + "cfg", "1");
    teller.Write(kLed + "cfg1_period", "10000000");
    teller.Write(kLed + "cfg1_duty", duty1);
    if (toggling) {
        teller.Write(kLed + "cfg2_period", "10000000");
        teller.Write(kLed + "cfg2_duty", "1");
        teller.Write(kLed + "toggle_time", "1000");
    }
    teller.Write(kLed + "toggle", toggling ? "1" : "0");
}

TEST(Account, ASteadyPatternIsToldWhenTheLedGoesOn) {
    Teller teller;
    Program(teller, "2500000", false);

    EXPECT_THAT(teller.Write(kLed + "enable", "1"), ElementsAre("led: 25 %, steady"));
}

TEST(Account, ABlinkingPatternTellsBothLevelsAndThePeriod) {
    Teller teller;
    Program(teller, "8999999", true);

    EXPECT_THAT(teller.Write(kLed + "enable", "1"), ElementsAre("led: 90 % / 0 %, every 1000 ms"));
}

TEST(Account, ReprogrammingTheSamePatternIsNoNews) {
    Teller teller;
    Program(teller, "2500000", false);
    teller.Write(kLed + "enable", "1");

    Program(teller, "2500000", false);

    EXPECT_THAT(teller.Write(kLed + "enable", "1"), IsEmpty());
    EXPECT_THAT(teller.account.Settle(teller.now + 1s), IsEmpty());
}

TEST(Account, ALedThatStaysOffIsToldDarkOnce) {
    Teller teller;
    teller.Write(kLed + "enable", "0");

    EXPECT_THAT(teller.account.Settle(teller.now + 99ms), IsEmpty());
    EXPECT_THAT(Teller::Texts(teller.account.Settle(teller.now + 100ms)), ElementsAre("led: dark"));
    EXPECT_THAT(teller.account.Settle(teller.now + 1s), IsEmpty());
}

TEST(Account, WhatAProgramBesideTheServicePrintsIsTold) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::Process, "ecalluictl", "started"), ElementsAre("tool: ecalluictl started"));
    EXPECT_THAT(teller.Tell(Kind::Console, "ecalluictl", "LedPwmPeriodMs = 10 ms"),
                ElementsAre("tool: LedPwmPeriodMs = 10 ms"));
    EXPECT_THAT(teller.Tell(Kind::Stderr, "ecalluictl", "no service"), ElementsAre("tool: no service"));
    EXPECT_THAT(teller.Tell(Kind::Console, "ecalluictl", ""), IsEmpty());
    EXPECT_THAT(teller.Tell(Kind::Process, "ecalluictl", "exited 0"), ElementsAre("tool: ecalluictl exited 0"));
    EXPECT_THAT(teller.Tell(Kind::Console, "XirEcallUIappSrvc", "InitGpio - Enter"), IsEmpty());
    EXPECT_THAT(teller.Tell(Kind::Stderr, "XirEcallUIappSrvc", "complaint"), IsEmpty());
}

TEST(Account, LinesAreToldByWhatTheyDo) {
    Teller teller;

    EXPECT_THAT(teller.Write("/sys/class/ecall_gpio/lte-ecall-relay/value", "1"), ElementsAre("relay: audio relay on"));
    EXPECT_THAT(teller.Write("/sys/class/ecall_gpio/lte-ecall-relay/value", "0"),
                ElementsAre("relay: audio relay off"));
    EXPECT_THAT(teller.Write("/sys/class/ecall_gpio/ecall-nlock/value", "1"), ElementsAre("line: ECALL_nLOCK 1"));
    EXPECT_THAT(teller.Write("/sys/class/ecall_gpio/gnss-on-off/value", "1"), IsEmpty());
}

TEST(Account, TheRelayIsOffAtRestSoTheSwitchOffAtStartUpIsNoNews) {
    Teller teller;

    EXPECT_THAT(teller.Write("/sys/class/ecall_gpio/lte-ecall-relay/value", "0"), IsEmpty());
}

TEST(Account, AFailedWriteIsToldAsOne) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::Write, kLed + "enable", "1", -5),
                ElementsAre("line: writing " + kLed + "enable failed"));
}

TEST(Account, TheAntennaLineIsTheOneThatWasSelected) {
    Teller teller;
    teller.Write("/dev/vantu_gpio_num", "gpio_07");
    EXPECT_THAT(teller.Write("/dev/vantu_gpio_dir", "out"), IsEmpty());
    EXPECT_THAT(teller.Write("/dev/vantu_gpio_value", "hi"), ElementsAre("antenna: eCall antenna selected"));

    teller.Write("/dev/vantu_gpio_num", "gpio_05");

    EXPECT_THAT(teller.Write("/dev/vantu_gpio_value", "lo"), ElementsAre("antenna: antenna detection off"));
}

TEST(Account, NotificationsAreToldInShort) {
    Teller teller;
    const std::string fields =
        "serviceState=ActiveAutomaticECall(101) simProfileState=Commercial(0) networkState=CsFullService(5) "
        "callState=Dialing(2) audioOutState=Muted(0) selfTestState=";

    EXPECT_THAT(teller.Tell(Kind::RpcNotify, "notifyNotifyState", fields + "Unknown(2)"),
                ElementsAre("rpc: <= ActiveAutomaticECall, call Dialing, audio Muted"));
    EXPECT_THAT(teller.Tell(Kind::RpcNotify, "notifyNotifyState", fields + "Requested(3)"),
                ElementsAre("rpc: <= ActiveAutomaticECall, call Dialing, audio Muted, self-test Requested"));
}

TEST(Account, AStateWithoutANameIsToldByItsNumber) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::RpcNotify, "notifyNotifyState",
                            "serviceState=?(50) callState=?(9) audioOutState=Muted(0) selfTestState=Unknown(2)"),
                ElementsAre("rpc: <= ?(50), call ?(9), audio Muted"));
}

TEST(Account, RequestsAndRepliesShowWhichWayTheyGo) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::RpcRequest, "requestState", ""), ElementsAre("rpc: -> requestState"));
    EXPECT_THAT(teller.Tell(Kind::RpcReply, "triggerEcall", "responsecode=0"),
                ElementsAre("rpc: <- triggerEcall responsecode=0"));
}

TEST(Account, OnlyTellingTraceLinesAreTold) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::Trace, "EcallUIGpioEvent.cpp", "spurious signal on ecall-nrqst ==> do nothing"),
                ElementsAre("trace: spurious signal on ecall-nrqst ==> do nothing"));
    EXPECT_THAT(teller.Tell(Kind::Trace, "EcallUIGpio.cpp", "GpioWrite - Enter : GpioId = 6, value = 1 "), IsEmpty());
}

TEST(Account, TheConsoleIsNotTold) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::Console, "XirEcallUIappSrvc", "InitGpio - Enter"), IsEmpty());
}

TEST(Account, ARepliedStateIsToldInShort) {
    Teller teller;

    EXPECT_THAT(
        teller.Tell(Kind::RpcReply, "requestState",
                    "responsecode=0 serviceState=Available_Idle(3) callState=Inactive(0) audioOutState=Muted(0) "
                    "selfTestState=Unknown(2)"),
        ElementsAre("rpc: <- requestState Available_Idle, call Inactive, audio Muted"));
}

TEST(Account, ASelfTestReportLeavesOutWhatWasNotTested) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::RpcRequest, "updateSelfTestAllDevicesState",
                            "fwImageIntegrity=Success(0) simPresent=NotHandled(2) loudspeakerConnection=Failed(1)"),
                ElementsAre("rpc: -> updateSelfTestAllDevicesState fwImageIntegrity=Success(0) "
                            "loudspeakerConnection=Failed(1)"));
}

TEST(Account, AScriptsStartIsToldAndItsEndOnlyWhenItFails) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::Script, "audio.sh", "begin start"), ElementsAre("script: audio.sh start"));
    EXPECT_THAT(teller.Tell(Kind::Script, "audio.sh", "end 0"), IsEmpty());
    EXPECT_THAT(teller.Tell(Kind::Script, "audio.sh", "end 3"), ElementsAre("script: audio.sh end 3"));
}

TEST(Account, AnEventIsToldByDeviceAndText) {
    Teller teller;

    EXPECT_THAT(teller.Tell(Kind::Uevent, "change@/devices/vantu_pwm.0",
                            "ACTION=change DEVPATH=/devices/vantu_pwm.0 SUBSYSTEM=platform EVENT=NORMAL"),
                ElementsAre("kernel: uevent change@/devices/vantu_pwm.0 EVENT=NORMAL"));
    EXPECT_THAT(teller.Tell(Kind::Uevent, "change@/x", "A=B"), ElementsAre("kernel: uevent change@/x A=B"));
}

TEST(Account, OnlyChangesOfALineAreTold) {
    Teller teller;
    const std::string nlock = "/sys/class/ecall_gpio/ecall-nlock/value";
    teller.Write(nlock, "1");

    EXPECT_THAT(teller.Write(nlock, "1"), IsEmpty());
    EXPECT_THAT(teller.Write("/sys/class/ecall_gpio/amp-nstby/value", "1"), ElementsAre("line: amp-nstby 1"));
    EXPECT_THAT(teller.Write(nlock, "0"), ElementsAre("line: ECALL_nLOCK 0"));
    EXPECT_THAT(teller.Write(nlock, "1"), ElementsAre("line: ECALL_nLOCK 1"));
}

/// As the location service notifies it.
std::string Location(const std::string& heading, const std::string& place, const std::string& validity) {
    return "extra_info=\"sat=9\" heading=" + heading + " heading_accuracy=1 heading_mag=80 altitude=566.4 " + place +
           " altitude_msl=519.6 " + validity;
}

TEST(Account, APositionIsToldInTheWordsOfAPerson) {
    Teller teller;

    EXPECT_THAT(teller.TellLocation(Kind::RpcNotify, "notifyTheCurrentLocation",
                                    Location("86.96", "longitude=11.56781 latitude=48.12344",
                                             "valid_2d_fix=1 valid_3d_fix=1 speed=14.4 valid_flag=1")),
                ElementsAre("location: <= position 48.1234 N 11.5678 E, 52 km/h, heading 87°"));
    EXPECT_THAT(teller.TellLocation(Kind::RpcNotify, "notifyTheCurrentLocation",
                                    Location("0", "longitude=-70.5 latitude=-33.25",
                                             "valid_2d_fix=1 valid_3d_fix=0 speed=0 valid_flag=1")),
                ElementsAre("location: <= position 33.2500 S 70.5000 W, 0 km/h, heading 0°, 2D"));
    EXPECT_THAT(teller.TellLocation(Kind::RpcNotify, "notifyTheCurrentLocation",
                                    Location("nan", "longitude=inf latitude=91",
                                             "valid_2d_fix=0 valid_3d_fix=0 speed=1e+300 valid_flag=0")),
                ElementsAre(testing::AllOf(testing::StartsWith("location: <= position 91.0000 N inf E, 3600000"),
                                           testing::EndsWith(" km/h, heading nan°, not valid"))));
}

TEST(Account, AForwardedPositionIsToldLikewiseAndThatItWasTakenIsNot) {
    Teller teller;
    const std::string fields =
        "utcTime=1777882500 latitude=48.12344 longitude=11.56781 altitude=566.4 "
        "horizontalAccuracy=3.6 course=86.96 courseAccuracy=1 speed=14.4 speedAccuracy=0.1";

    EXPECT_THAT(teller.Tell(Kind::RpcRequest, "updateGnssLocation", "isValid=1 " + fields),
                ElementsAre("rpc: -> updateGnssLocation position 48.1234 N 11.5678 E, 52 km/h, heading 87°"));
    EXPECT_THAT(
        teller.Tell(Kind::RpcRequest, "updateGnssLocation", "isValid=0 " + fields),
        ElementsAre("rpc: -> updateGnssLocation position 48.1234 N 11.5678 E, 52 km/h, heading 87°, not valid"));
    EXPECT_THAT(teller.Tell(Kind::RpcReply, "updateGnssLocation", "responsecode=0"), IsEmpty());
    EXPECT_THAT(teller.Tell(Kind::RpcReply, "updateGnssLocation", "responsecode=1"),
                ElementsAre("rpc: <- updateGnssLocation responsecode=1"));
}

TEST(Account, OfAVehicleThatStandsTheFirstPositionIsToldInEachDirection) {
    Teller teller;
    const auto tell = [&](const std::string& latitude) {
        const std::string place = "longitude=11.5 latitude=" + latitude;
        const size_t told = teller
                                .TellLocation(Kind::RpcNotify, "notifyTheCurrentLocation",
                                              Location("0", place, "valid_3d_fix=1 speed=0 valid_flag=1"))
                                .size();
        return told + teller.Tell(Kind::RpcRequest, "updateGnssLocation", "isValid=1 " + place).size();
    };

    EXPECT_EQ(2U, tell("48.1"));
    EXPECT_EQ(0U, tell("48.1"));
    EXPECT_EQ(2U, tell("48.2"));
    EXPECT_EQ(2U, tell("48.1"));
}

TEST(Account, TheLocationServicesWireIsToldAsItsOwn) {
    Teller teller;

    EXPECT_THAT(teller.TellLocation(Kind::RpcConnect, "127.0.0.1:40000", "connected"),
                ElementsAre("location: client connected"));
    EXPECT_THAT(teller.TellLocation(Kind::RpcRequest, "subscribe", "messageid=3"),
                ElementsAre("location: -> subscribe messageid=3"));
    EXPECT_THAT(teller.TellLocation(Kind::RpcReply, "subscribe", "responsecode=0"),
                ElementsAre("location: <- subscribe responsecode=0"));
    EXPECT_THAT(teller.TellLocation(Kind::RpcNotify, "notifyTheCurrentProviderState", "status=UPDATE(7)"),
                ElementsAre("location: <= notifyTheCurrentProviderState status=UPDATE(7)"));
}

}  // namespace
