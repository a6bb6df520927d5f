#include "JsonPlaces.h"

#include <gmock/gmock.h>

#include "EcallUIDataJson.h"

using testing::ElementsAre;

namespace {

/// Key and value of each member as the text has them, "key|value".
std::vector<std::string> Members(const std::string& text) {
    size_t end = 0;
    EXPECT_NE(nullptr, ParseConfiguration(text, end)) << text;
    std::vector<std::string> members;
    for (const MemberPlace& place : LocateMembers(text)) {
        EXPECT_EQ('"', text.at(place.key));
        members.push_back(text.substr(place.key, text.find('"', place.key + 1) + 1 - place.key) + "|" +
                          text.substr(place.value, place.valueEnd - place.value));
    }
    return members;
}

}  // namespace

TEST(JsonPlaces, AnOffsetIsALineAndAColumn) {
    const std::string text = "ab\n\ncd\r\n\xc3\xbc!";
    EXPECT_EQ((LineColumn{1, 1}), PlaceOf(text, 0));
    EXPECT_EQ((LineColumn{1, 3}), PlaceOf(text, 2));
    EXPECT_EQ((LineColumn{2, 1}), PlaceOf(text, 3));
    EXPECT_EQ((LineColumn{3, 2}), PlaceOf(text, 5));
    EXPECT_EQ((LineColumn{4, 1}), PlaceOf(text, 8));
    EXPECT_EQ((LineColumn{4, 2}), PlaceOf(text, 10)) << "a character of two bytes is one column";
    EXPECT_EQ((LineColumn{4, 3}), PlaceOf(text, 1000));
    EXPECT_EQ((LineColumn{1, 1}), PlaceOf("", 0));
    EXPECT_EQ((LineColumn{1, 2}), PlaceOf("\xef\xbb\xbf{}", 4)) << "a byte order mark is no column";
}

TEST(JsonPlaces, EveryMemberIsLocated) {
    EXPECT_THAT(Members(R"({"a":1,"b" : true ,
 "c":"x\"y,}","d":[1,{"e":"]"}],"f":{"a":"}"},"g":null , "h":-1.5e3})"),
                ElementsAre("\"a\"|1", "\"b\"|true", "\"c\"|\"x\\\"y,}\"", "\"d\"|[1,{\"e\":\"]\"}]",
                            "\"f\"|{\"a\":\"}\"}", "\"g\"|null", "\"h\"|-1.5e3"));
}

TEST(JsonPlaces, BlanksAreThoseOfTheServicesParser) {
    EXPECT_THAT(Members("\xef\xbb\xbf \x01{\x0b\"a\"\x0c:\x02 7\x03,\r\n\"b\":8\t}\n"),
                ElementsAre("\"a\"|7", "\"b\"|8"));
}

TEST(JsonPlaces, WhatIsNoObjectHasNoMembers) {
    EXPECT_THAT(Members("{}"), ElementsAre());
    EXPECT_THAT(Members(" { } "), ElementsAre());
    EXPECT_THAT(Members(R"([{"a":1}])"), ElementsAre());
    EXPECT_THAT(Members(R"("a")"), ElementsAre());
    EXPECT_THAT(Members("7"), ElementsAre());
    EXPECT_TRUE(LocateMembers("").empty());
}

TEST(JsonPlaces, ATextThatTheParserRefusesIsNeverReadBeyondItsEnd) {
    const std::string whole = R"({"a":"b\"","c":[1,{"d":"e"}],"f":true})";
    for (size_t length = 0; length < whole.size(); ++length) {
        const std::string cut = whole.substr(0, length);
        for (const MemberPlace& place : LocateMembers(cut)) {
            EXPECT_LE(place.valueEnd, cut.size()) << cut;
            EXPECT_LE(place.value, place.valueEnd) << cut;
        }
    }
}

TEST(JsonPlaces, TheFirstSyntaxFlawIsFoundWhereItIs) {
    const struct {
        const char* text;
        size_t offset;
        const char* words;
    } kRows[] = {
        {R"({"a":1,})", 7, "syntax error while parsing object key - unexpected '}'; expected string literal"},
        {R"({"a" 1})", 5, "syntax error while parsing object separator - unexpected number literal; expected ':'"},
        {R"({"a":1 "b":2})", 7, "syntax error while parsing object - unexpected string literal; expected '}'"},
        {R"({"a":1 true})", 7, "syntax error while parsing object - unexpected true literal; expected '}'"},
        {R"({"a":1 false})", 7, "syntax error while parsing object - unexpected false literal; expected '}'"},
        {R"({"a":tru})", 5, "syntax error while parsing value - invalid literal"},
        {R"({"a":1, "b": 2} trailing)", 16, "syntax error while parsing value - invalid literal"},
        {"{\"a\":1x}", 6, "syntax error while parsing object - invalid literal"},
        {R"({"a":1)", 6, "syntax error while parsing object - unexpected end of input; expected '}'"},
        {R"({"a":"x)", 7, "syntax error while parsing value - invalid string: missing closing quote"},
        {R"({'a':1})", 1, "syntax error while parsing object key - invalid literal"},
        {"{\"a\":01}", 6, "syntax error while parsing object - unexpected number literal; expected '}'"},
        {"", 0, "syntax error while parsing value - unexpected end of input; expected '[', '{', or a literal"},
        {R"({"a":1} x)", 8, "syntax error while parsing value - invalid literal"},
        {R"({"a":1e999})", 9, "number overflow parsing '1e999'"},
    };
    for (const auto& [text, offset, words] : kRows) {
        SyntaxFlaw flaw{};
        EXPECT_TRUE(FindSyntaxFlaw(text, flaw)) << text;
        EXPECT_EQ(offset, flaw.offset) << text;
        EXPECT_EQ(words, flaw.text) << text;
    }
}

TEST(JsonPlaces, GoodJsonHasNoFlaw) {
    SyntaxFlaw flaw{.offset = 99, .text = "as it was"};
    EXPECT_FALSE(FindSyntaxFlaw(R"({"a":[1,2.5e-3,null,"\u00fc"]})", flaw));
    EXPECT_EQ(99U, flaw.offset);
    EXPECT_EQ("as it was", flaw.text);
}
