/// Where things stand in a JSON text.
#ifndef JSON_PLACES_H
#define JSON_PLACES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// As editors count: both from 1, a column for each character. {0, 0}: nowhere in particular.
struct LineColumn {
    size_t line = 0;
    size_t column = 0;
    bool operator==(const LineColumn&) const = default;
};
/// An offset beyond the text stands for its end.
LineColumn PlaceOf(std::string_view text, size_t offset);

/// Offsets of a member's key and value, each of its first byte.
struct MemberPlace {
    size_t key;
    size_t value;
    size_t valueEnd;  ///< behind the last byte
};
/// The members of the object that the text holds, in their order; none when it holds no object.
/// text: must have been taken by the configuration's parser (ParseConfiguration).
std::vector<MemberPlace> LocateMembers(std::string_view text);

struct SyntaxFlaw {
    size_t offset;
    std::string text;  ///< what is wrong, in words
};
/// The first thing in the text that the JSON standard does not know; false when there is none. The configuration's
/// parser is less strict, and takes some texts all the same.
bool FindSyntaxFlaw(std::string_view text, SyntaxFlaw& flaw);

#endif
