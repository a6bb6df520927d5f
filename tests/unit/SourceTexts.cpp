#include "SourceTexts.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>

namespace {

constexpr size_t kNowhere = std::string_view::npos;

std::filesystem::path InProject(const std::string& path) {
    return std::filesystem::path(PROJECT_FOLDER) / path;
}

std::string ReadWhole(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path.string());
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

bool IsPartOfNumber(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0;
}

/// Behind the literal or character that begins at start; its quote ends it, unless a backslash is before it.
size_t EndOfQuoted(std::string_view code, size_t start) {
    size_t end = start + 1;
    while (end < code.size() && code[end] != code[start]) {
        end += code[end] == '\\' ? 2 : 1;
    }
    return std::min(end + 1, code.size());
}

/// Behind the white space or comment at start; start itself when there is none.
size_t EndOfGap(std::string_view code, size_t start) {
    const auto after = [&](std::string_view end) {
        const size_t found = code.find(end, start + 2);
        return found == kNowhere ? code.size() : found + end.size();
    };
    if (code.substr(start).starts_with("//")) {
        return after("\n");
    }
    if (code.substr(start).starts_with("/*")) {
        return after("*/");
    }
    return start + (std::isspace(static_cast<unsigned char>(code[start])) != 0 ? 1 : 0);
}

}  // namespace

std::string ReadProjectFile(const std::string& path) {
    return ReadWhole(InProject(path));
}

std::string ReadProjectSources(const std::vector<std::string>& folders) {
    std::set<std::filesystem::path> paths;
    for (const std::string& folder : folders) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(InProject(folder))) {
            if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h") {
                paths.insert(entry.path());
            }
        }
    }
    std::string sources;
    for (const auto& path : paths) {
        sources += ReadWhole(path);
    }
    return sources;
}

std::vector<std::string> LiteralsOf(std::string_view code) {
    std::vector<std::string> literals;
    bool isBesideLiteral = false;
    for (size_t at = 0; at < code.size();) {
        if (const size_t end = EndOfGap(code, at); end != at) {
            at = end;
            continue;
        }
        size_t end = at + 1;
        if (code[at] == '"') {
            end = EndOfQuoted(code, at);
            const std::string text(code.substr(at + 1, end - at - 2));
            if (isBesideLiteral) {
                literals.back() += text;
            } else {
                literals.push_back(text);
            }
        } else if (code[at] == '\'' && (at == 0 || !IsPartOfNumber(code[at - 1]))) {
            end = EndOfQuoted(code, at);
        }
        isBesideLiteral = code[at] == '"';
        at = end;
    }
    return literals;
}
