#include "EcallUIGpioI2c.h"

#include <gtest/gtest.h>

namespace {

TEST(EcallUIGpioI2c, ConverterIsConfiguredForOneConversionOfTheChannel) {
    using Bytes = std::array<uint8_t, 2>;
    EXPECT_EQ((Bytes{0x45, 0x83}), Ads1015Configuration(0));
    EXPECT_EQ((Bytes{0x55, 0x83}), Ads1015Configuration(1));
    EXPECT_EQ((Bytes{0x65, 0x83}), Ads1015Configuration(2));
    EXPECT_EQ((Bytes{0x75, 0x83}), Ads1015Configuration(3));
}

}  // namespace
