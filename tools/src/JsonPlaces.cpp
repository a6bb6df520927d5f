// The configuration's parser tells no positions, so a second pass over what it has taken finds them. That the text is
// well-formed by that parser's own rules is what keeps the pass this small; it still never reads beyond the text.
#include "JsonPlaces.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

namespace {

constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

/// The parser takes every control character for a blank.
bool IsBlank(char character) {
    return static_cast<unsigned char>(character) <= ' ';
}

size_t SkipBlanks(std::string_view text, size_t at) {
    while (at < text.size() && IsBlank(text[at])) {
        ++at;
    }
    return at;
}

char At(std::string_view text, size_t at) {
    return at < text.size() ? text[at] : '\0';
}

/// at: of the opening quote. Answers what is behind the closing one.
size_t SkipString(std::string_view text, size_t at) {
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        at += text[at] == '\\' ? 1 : 0;
    }
    return std::min(at + 1, text.size());
}

/// Of a number, true, false or null.
size_t SkipWord(std::string_view text, size_t at) {
    while (at < text.size() && !IsBlank(text[at]) && text[at] != ',' && text[at] != '}' && text[at] != ']') {
        ++at;
    }
    return at;
}

size_t SkipNested(std::string_view text, size_t at) {
    int depth = 0;
    do {
        const char character = At(text, at);
        depth += character == '{' || character == '[' ? 1 : 0;
        depth -= character == '}' || character == ']' ? 1 : 0;
        at = character == '"' ? SkipString(text, at) : at + 1;
    } while (depth > 0 && at < text.size());
    return at;
}

size_t SkipValue(std::string_view text, size_t at) {
    switch (At(text, at)) {
        case '"':
            return SkipString(text, at);
        case '{':
        case '[':
            return SkipNested(text, at);
        default:
            return SkipWord(text, at);
    }
}

/// Of a token that is right in itself, but not where it stands. What the parser gives as the last token begins earlier
/// for some kinds; otherwise 1: the last byte alone is wrong.
size_t WrongTokenLength(const std::string& message, const std::string& lastToken) {
    const auto says = [&](const char* part) { return message.find(part) != std::string::npos; };
    if (says("unexpected string") || says("unexpected number")) {
        return lastToken.size();
    }
    if (says("unexpected true") || says("unexpected null")) {
        return 4;
    }
    return says("unexpected false") ? 5 : 1;
}

/// Of the word of letters that leads up to the offset; the offset itself when none does.
size_t WordBegin(std::string_view text, size_t offset) {
    while (offset > 0 && std::isalpha(static_cast<unsigned char>(text[offset - 1])) != 0) {
        --offset;
    }
    return offset;
}

/// Only listens for the error.
class SyntaxJudge : public nlohmann::json_sax<nlohmann::json> {
  public:
    bool null() override { return true; }
    bool boolean(bool /*value*/) override { return true; }
    bool number_integer(number_integer_t /*value*/) override { return true; }
    bool number_unsigned(number_unsigned_t /*value*/) override { return true; }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return true; }
    bool string(string_t& /*value*/) override { return true; }
    bool binary(binary_t& /*value*/) override { return true; }
    bool start_object(std::size_t /*elements*/) override { return true; }
    bool key(string_t& /*value*/) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t /*elements*/) override { return true; }
    bool end_array() override { return true; }
    /// position: how many bytes have been read, the wrong one included. A word that is right in itself but wrong in its
    /// place is pointed at where it begins.
    bool parse_error(std::size_t position, const std::string& lastToken,
                     const nlohmann::json::exception& error) override {
        text = error.what();
        const size_t length = WrongTokenLength(text, lastToken);
        offset = position - std::min(position, length);
        return false;
    }

    size_t offset = 0;
    std::string text;
};

/// "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ...; last read: '...'": the middle.
std::string InWords(const std::string& message) {
    const size_t column = message.find(", column ");
    const size_t colon = column == std::string::npos ? column : message.find(": ", column);
    const size_t begin = (colon == std::string::npos ? message.find("] ") : colon) + 2;
    return message.substr(begin, message.find("; last read: ", begin) - begin);
}

}  // namespace

LineColumn PlaceOf(std::string_view text, size_t offset) {
    const std::string_view before = text.substr(0, offset);
    const auto lineFeeds = static_cast<size_t>(std::ranges::count(before, '\n'));
    std::string_view line = before.substr(before.rfind('\n') + 1);
    line.remove_prefix(line.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
    const auto characters = std::ranges::count_if(
        line, [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0U) != 0x80U; });  // not in mid-character
    return {.line = lineFeeds + 1, .column = static_cast<size_t>(characters) + 1};
}

std::vector<MemberPlace> LocateMembers(std::string_view text) {
    std::vector<MemberPlace> places;
    size_t at = SkipBlanks(text, text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
    if (At(text, at) != '{') {
        return places;
    }
    at = SkipBlanks(text, at + 1);
    while (At(text, at) == '"') {
        const size_t key = at;
        const size_t colon = SkipBlanks(text, SkipString(text, key));
        const size_t value = SkipBlanks(text, std::min(colon + 1, text.size()));
        const size_t end = SkipValue(text, value);
        places.push_back({.key = key, .value = value, .valueEnd = end});
        at = SkipBlanks(text, end);
        at = At(text, at) == ',' ? SkipBlanks(text, at + 1) : at;
    }
    return places;
}

bool FindSyntaxFlaw(std::string_view text, SyntaxFlaw& flaw) {
    SyntaxJudge judge;
    if (nlohmann::json::sax_parse(text.begin(), text.end(), &judge)) {
        return false;
    }
    flaw = {.offset = std::min(judge.offset, text.size()), .text = InWords(judge.text)};
    if (flaw.text.ends_with("invalid literal")) {
        flaw.offset = WordBegin(text, flaw.offset);
    }
    return true;
}
