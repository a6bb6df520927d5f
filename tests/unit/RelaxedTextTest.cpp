#include "RelaxedText.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

std::string TextOf(const RelaxedText<4>& text) {
    return text.get().c_str();
}

}  // namespace

TEST(RelaxedText, WithoutAnInitialTextItIsEmpty) {
    EXPECT_EQ("", TextOf(RelaxedText<4>()));
}

TEST(RelaxedText, AtMostAllButOneCharacterAreKept) {
    const std::pair<const char*, const char*> rows[] = {{"", ""}, {"ab", "ab"}, {"abc", "abc"}, {"abcd", "abc"}};
    for (const auto& [given, kept] : rows) {
        RelaxedText<4> text("xyz");

        text.set(given);

        EXPECT_EQ(kept, TextOf(text));
        EXPECT_EQ(kept, TextOf(RelaxedText<4>(given)));
    }
}

TEST(RelaxedText, AShorterTextLeavesNothingOfTheFormer) {
    RelaxedText<6> text("abcde");

    text.set("x");

    EXPECT_EQ((std::array<char, 6>{'x'}), text.get().text);
}

TEST(RelaxedText, TheTextMayEndWithoutATerminator) {
    const char letters[] = {'a', 'b', 'c', 'd'};

    EXPECT_EQ("ab", TextOf(RelaxedText<4>(std::string_view(letters, 2))));
}

TEST(RelaxedText, ACopyOfTheTextStaysAsItWas) {
    RelaxedText<4> text("old");
    const RelaxedText<4> other = text;
    const RelaxedText<4>::Copy copy = text.get();

    text.set("new");

    EXPECT_STREQ("old", copy.c_str());
    EXPECT_EQ("old", TextOf(other));
}

TEST(RelaxedText, AReaderSeesWholeCharactersAndAnEndWhileItChanges) {
    RelaxedText<8> text("aaaaaaa");
    Relaxed<bool> isOver = false;

    std::thread writer([&] {
        for (int i = 0; i < 10000; ++i) {
            text.set(i % 2 == 0 ? "bbbbbbb" : "aaaaaaa");
        }
        isOver = true;
    });
    while (!isOver) {
        const std::string seen = text.get().c_str();
        ASSERT_EQ(7U, seen.size());
        ASSERT_EQ(std::string::npos, seen.find_first_not_of("ab")) << seen;
    }
    writer.join();

    EXPECT_STREQ("aaaaaaa", text.get().c_str());
}
