#include "EcallUIGpioAnt.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(EcallUIGpioAnt, ReadingIsCutToWholeMillivolts) {
    EXPECT_EQ(900, AdcMillivolts("900000"));
    EXPECT_EQ(900, AdcMillivolts("900999\n"));
    EXPECT_EQ(0, AdcMillivolts("999"));
    EXPECT_EQ(-5, AdcMillivolts("-5999"));
}

TEST(EcallUIGpioAnt, TextWithoutNumberReadsZero) {
    EXPECT_EQ(0, AdcMillivolts(""));
    EXPECT_EQ(0, AdcMillivolts("\n"));
    EXPECT_EQ(0, AdcMillivolts("volts"));
}

TEST(EcallUIGpioAnt, NumberBeyondItsTypeIsTheLargestOne) {
    EXPECT_EQ(2'147'483'647, AdcMillivolts("2147483647999"));
    EXPECT_EQ(std::numeric_limits<int32_t>::max(), AdcMillivolts("2147483648000"));
    EXPECT_EQ(std::numeric_limits<int32_t>::max(), AdcMillivolts("9999999999999999"));
    EXPECT_EQ(std::numeric_limits<int32_t>::min(), AdcMillivolts("-999999999999999"));
}

}  // namespace
