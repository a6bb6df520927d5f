#include "EcallUIGpioState.h"

#include <gtest/gtest.h>

namespace {

constexpr auto kUnchanged = OutputChange::Unchanged;
constexpr auto kOff = OutputChange::Off;
constexpr auto kOn = OutputChange::On;

struct Row {
    uint32_t serviceState;
    Phase phase;
    OutputChange amplifier;
    OutputChange relayMuted;
    OutputChange relayPrompt;
    OutputChange relayVoice;
    LedPattern led;

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.serviceState; }
};

constexpr Row kRows[] = {
    {0, Phase::Idle, kUnchanged, kOff, kOff, kOff, LedPattern::Error},
    {1, Phase::Idle, kUnchanged, kOff, kOff, kOff, LedPattern::Error},
    {2, Phase::Idle, kUnchanged, kOff, kOff, kOff, LedPattern::Error},
    {3, Phase::Idle, kOff, kOff, kUnchanged, kUnchanged, LedPattern::Idle},
    {4, Phase::Idle, kOff, kOff, kUnchanged, kUnchanged, LedPattern::Idle},
    {100, Phase::Call, kOn, kOn, kOn, kOn, LedPattern::Active},
    {101, Phase::Call, kOn, kOn, kOn, kOn, LedPattern::Active},
    {102, Phase::Call, kOn, kOn, kOn, kOn, LedPattern::Active},
    {103, Phase::Call, kOn, kOn, kOn, kOn, LedPattern::Active},
    {104, Phase::Call, kOn, kOff, kUnchanged, kUnchanged, LedPattern::Active},
    {105, Phase::Call, kOn, kOn, kOn, kOn, LedPattern::Active},
    {106, Phase::Call, kOn, kOn, kOn, kOn, LedPattern::Active},
};

class EcallUIGpioStateRow : public testing::TestWithParam<Row> {};

TEST_P(EcallUIGpioStateRow, DecidesAllOutputs) {
    const Row& row = GetParam();
    const auto decide = [&row](uint32_t audio) { return DecideServiceOutputs(row.serviceState, audio, {}); };

    for (const uint32_t audio : {0U, 1U, 2U}) {
        const ServiceOutputs outputs = decide(audio);
        EXPECT_EQ(row.phase, outputs.phase);
        EXPECT_EQ(row.amplifier, outputs.amplifier);
        EXPECT_EQ(kUnchanged, outputs.antenna);
        EXPECT_EQ(row.led, outputs.led);
    }
    EXPECT_EQ(row.relayMuted, decide(0).relay);
    EXPECT_EQ(row.relayPrompt, decide(1).relay);
    EXPECT_EQ(row.relayVoice, decide(2).relay);
}

INSTANTIATE_TEST_SUITE_P(All, EcallUIGpioStateRow, testing::ValuesIn(kRows));

TEST(EcallUIGpioState, StateThatDoesNotExistChangesNothing) {
    for (const uint32_t serviceState : {5U, 50U, 99U, 107U, 0xFFFFFFFFU}) {
        const ServiceOutputs outputs = DecideServiceOutputs(serviceState, 0, {102, 103});
        EXPECT_EQ(Phase::Unknown, outputs.phase);
        EXPECT_EQ(kUnchanged, outputs.amplifier);
        EXPECT_EQ(kUnchanged, outputs.antenna);
        EXPECT_EQ(kUnchanged, outputs.relay);
        EXPECT_EQ(LedPattern::Unchanged, outputs.led);
    }
}

TEST(EcallUIGpioState, AntennaIsGivenBackAfterATestCallOnly) {
    const auto antenna = [](uint32_t serviceState, uint32_t last, uint32_t beforeLast) {
        return DecideServiceOutputs(serviceState, 0, {last, beforeLast}).antenna;
    };

    EXPECT_EQ(kOff, antenna(3, 102, 4));
    EXPECT_EQ(kOff, antenna(3, 103, 4));
    EXPECT_EQ(kOff, antenna(3, 104, 102));
    EXPECT_EQ(kOff, antenna(3, 104, 103));
    EXPECT_EQ(kUnchanged, antenna(3, 100, 101));
    EXPECT_EQ(kUnchanged, antenna(3, 104, 105));
    EXPECT_EQ(kUnchanged, antenna(3, 106, 3));
    EXPECT_EQ(kUnchanged, antenna(4, 102, 103));
    EXPECT_EQ(kUnchanged, antenna(0, 102, 103));
    EXPECT_EQ(kUnchanged, antenna(100, 102, 103));
}

}  // namespace
