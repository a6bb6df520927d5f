#include "Story.h"

#include <gmock/gmock.h>

#include <set>

namespace {

using testing::HasSubstr;

AccountLine Line(Who who, const std::string& text) {
    return {.time = std::chrono::nanoseconds(0), .who = who, .text = text};
}

Scene TwoLedsAndARelay() {
    return {.tell = "",
            .act = nullptr,
            .expected = {{Who::Led, "25 %"}, {Who::Relay, "on"}, {Who::Led, "90 %"}},
            .never = {{Who::Rpc, "trigger"}}};
}

TEST(SceneJudge, LinesOfOneWhoMustComeInOrderAndDifferentOnesInAny) {
    const Scene scene = TwoLedsAndARelay();
    SceneJudge judge(scene);

    EXPECT_FALSE(judge.See(Line(Who::Led, "90 %, steady")));
    EXPECT_TRUE(judge.See(Line(Who::Led, "25 %, steady")));
    EXPECT_TRUE(judge.See(Line(Who::Led, "90 %, steady")));
    EXPECT_FALSE(judge.IsDone());
    EXPECT_TRUE(judge.See(Line(Who::Relay, "audio relay on")));

    EXPECT_TRUE(judge.IsDone());
}

TEST(SceneJudge, OneLineMeetsOneExpectation) {
    const Scene scene{.tell = "", .act = nullptr, .expected = {{Who::Trace, "Wait"}, {Who::Trace, "Wait"}}};
    SceneJudge judge(scene);

    EXPECT_TRUE(judge.See(Line(Who::Trace, "Wait for an event")));
    EXPECT_FALSE(judge.IsDone());
    EXPECT_TRUE(judge.See(Line(Who::Trace, "Wait for an event")));

    EXPECT_TRUE(judge.IsDone());
    EXPECT_FALSE(judge.See(Line(Who::Trace, "Wait for an event")));
}

TEST(SceneJudge, WhatIsMissingIsListed) {
    const Scene scene = TwoLedsAndARelay();
    SceneJudge judge(scene);

    judge.See(Line(Who::Led, "25 %, steady"));

    ASSERT_EQ(2U, judge.Missing().size());
    EXPECT_EQ(Who::Relay, judge.Missing().front().who);
    EXPECT_EQ("90 %", judge.Missing().back().text);
}

TEST(SceneJudge, AForbiddenLineIsKept) {
    const Scene scene = TwoLedsAndARelay();
    SceneJudge judge(scene);

    judge.See(Line(Who::Rpc, "-> triggerEcall automatic=1"));

    ASSERT_EQ(1U, judge.Forbidden().size());
    EXPECT_THAT(judge.Forbidden().front().text, HasSubstr("trigger"));
}

TEST(SceneJudge, TheEndOfAProcessIsAlwaysForbidden) {
    const Scene scene = TwoLedsAndARelay();
    SceneJudge judge(scene);

    judge.See(Line(Who::Unit, "XirEcallUIappSrvc started"));
    EXPECT_TRUE(judge.Forbidden().empty());
    judge.See(Line(Who::Unit, "XirEcallUIappSrvc killed by SIGSEGV"));

    EXPECT_EQ(1U, judge.Forbidden().size());
}

TEST(Stories, HaveNamesOfTheirOwnAndSomethingToExpect) {
    std::set<std::string> names;
    for (const Story& story : Stories()) {
        EXPECT_TRUE(names.insert(story.name).second) << story.name;
        EXPECT_FALSE(story.about.empty());
        EXPECT_FALSE(story.scenes.front().expected.empty());
        EXPECT_EQ(&story, FindStory(story.name));
    }
    EXPECT_EQ(13U, names.size());
    EXPECT_EQ(nullptr, FindStory("crush"));
}

}  // namespace
