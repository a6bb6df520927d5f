#include "Fault.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

// "x" for each of the uses that goes wrong, "." for each that goes well.
std::string Strikes(Fault fault, int uses) {
    std::string strikes;
    for (int i = 0; i < uses; ++i) {
        strikes += fault.Strikes() ? 'x' : '.';
    }
    return strikes;
}

}  // namespace

TEST(Fault, LastsUnlessToldOtherwise) {
    EXPECT_EQ("xxxx", Strikes(Fault::Error(EIO), 4));
}

TEST(Fault, OncePassesAfterTheFirstUse) {
    EXPECT_EQ("x...", Strikes(Fault::Error(EIO).Once(), 4));
}

TEST(Fault, FromTheThirdUseOnLasts) {
    EXPECT_EQ("..xx", Strikes(Fault::Error(EIO).FromThe(3), 4));
}

TEST(Fault, TheSecondAndThirdUseOnly) {
    EXPECT_EQ(".xx.", Strikes(Fault::Error(EIO).FromThe(2).Times(2), 4));
}

TEST(Fault, ThatNeverStrikesIsNoFault) {
    EXPECT_EQ("....", Strikes(Fault::Error(EIO).Times(0), 4));
}
