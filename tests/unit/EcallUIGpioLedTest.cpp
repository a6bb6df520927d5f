#include "EcallUIGpioLed.h"

#include <gtest/gtest.h>

namespace {

TEST(EcallUIGpioLed, PeriodIsInNanoseconds) {
    EXPECT_EQ(10'000'000U, LedPeriodNs(10));
    EXPECT_EQ(500'000'000U, LedPeriodNs(500));
    EXPECT_EQ(0U, LedPeriodNs(0));
}

TEST(EcallUIGpioLed, PeriodBeyond32BitsOfNanosecondsWraps) {
    EXPECT_EQ(4'294'000'000U, LedPeriodNs(4294));
    EXPECT_EQ(4'295'000'000U - 0x1'0000'0000U, LedPeriodNs(4295));
    EXPECT_EQ(0xFFF0BDC0U, LedPeriodNs(static_cast<uint32_t>(-1)));
}

struct Duty {
    uint32_t brightnessPerCent;
    uint64_t periodNs;
    uint64_t dutyNs;

    friend void PrintTo(const Duty& duty, std::ostream* out) {
        *out << duty.brightnessPerCent << " % of " << duty.periodNs << " ns";
    }
};

class EcallUIGpioLedDuty : public testing::TestWithParam<Duty> {};

TEST_P(EcallUIGpioLedDuty, IsTheShareOfThePeriodInSinglePrecision) {
    EXPECT_EQ(GetParam().dutyNs, LedDutyNs(GetParam().brightnessPerCent, GetParam().periodNs));
}

INSTANTIATE_TEST_SUITE_P(Cases, EcallUIGpioLedDuty,
                         testing::Values(Duty{50, 1'000'000, 500'000},         // half of 1 ms
                                         Duty{25, 10'000'000, 2'500'000},      // the idle pattern
                                         Duty{90, 10'000'000, 9'000'000},      // the active pattern
                                         Duty{0, 10'000'000, 1},               // never dark for good
                                         Duty{0, 0, 1},                        // not even without a period
                                         Duty{100, 500'000'000, 499'999'999},  // never lit for good
                                         Duty{200, 10'000'000, 20'000'000},    // longer than the period
                                         Duty{33, 10'000'000, 3'300'000},      // a share that is no binary fraction
                                         Duty{7, 4'294'000'000, 300'580'000},  // near the end of 32 bits
                                         Duty{0xFFFFFFFF, 0xFFFFFFFF, 184467436613926912U}));  // the largest

}  // namespace
