// The service's own parser and its own reading of members decide what a file means; what is added here is where that
// stands and what is odd about it.
#include "ConfigFile.h"

#include <fcntl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "EcallUIDataJson.h"
#include "Failure.h"
#include "FileDescriptor.h"
#include "UiFields.h"
#include "UiValues.h"

namespace {

constexpr const char* kRefused = "; the service refuses the whole file and keeps its defaults";

/// One member of the file's object.
struct Member {
    const cJSON& json;
    MemberPlace place;
    std::string_view source;  ///< of the value
};

class Judge {
  public:
    explicit Judge(std::string_view judged) : text(judged) {}
    ConfigFileVerdict Run();

  private:
    void Add(size_t offset, bool isError, const std::string& what);
    bool IsFull() const { return verdict.findings.size() >= kMostFindings; }
    void JudgeRefusal(size_t end);
    void JudgeSyntax();
    void JudgeMembers(const cJSON& object);
    void JudgeMember(const Member& member);
    void JudgeRepetition(const Member& member, const ConfigurationField& field);
    void JudgeField(const Member& member, const ConfigurationField& field);
    void JudgeBoolean(const Member& member, const ConfigurationField& field);
    void JudgeNumber(const Member& member, const ConfigurationField& field);
    void JudgeText(const Member& member, const ConfigurationField& field);

    std::string_view text;
    std::map<const ConfigurationField*, MemberPlace> firsts;  ///< those that the service takes
    ConfigFileVerdict verdict;
};

const char* KindOf(const cJSON& json) {
    if (cJSON_IsString(&json)) {
        return "a text";
    }
    if (cJSON_IsNumber(&json)) {
        return "a number";
    }
    if (cJSON_IsBool(&json)) {
        return "a boolean";
    }
    return cJSON_IsObject(&json) ? "an object" : cJSON_IsArray(&json) ? "an array" : "null";
}

/// The field that the key names for the service, which has no other names and no numbers here.
const ConfigurationField* FieldOfKey(const std::string& key) {
    const auto fields = ConfigurationFields();
    const auto found = std::ranges::find_if(
        fields, [&](const ConfigurationField& field) { return strcasecmp(field.key, key.c_str()) == 0; });
    return found == fields.end() ? nullptr : &*found;
}

/// The text as the file has it; what the service holds ends at the first NUL.
std::string WholeText(std::string_view source) {
    const auto json = nlohmann::json::parse(source, nullptr, false);
    return json.is_string() ? json.get<std::string>() : "";
}

void Judge::Add(size_t offset, bool isError, const std::string& what) {
    if (!IsFull()) {
        verdict.findings.push_back({PlaceOf(text, offset), isError, what});
    } else if (verdict.findings.size() == kMostFindings) {
        verdict.findings.push_back({{}, true, "and so on: this is no configuration file"});
    }
}

/// What the standard finds wrong comes first, because it is told in words; otherwise where the service's parser
/// stopped.
void Judge::JudgeRefusal(size_t end) {
    SyntaxFlaw flaw{};
    if (text.empty()) {
        Add(0, true, std::string("the file is empty") + kRefused);
    } else if (text.find('\0') != std::string_view::npos) {
        Add(end, true, std::string("a NUL byte") + kRefused);
    } else if (FindSyntaxFlaw(text, flaw)) {
        Add(flaw.offset, true, "no JSON: " + flaw.text + kRefused);
    } else {
        Add(end, true, std::string("cannot be read from here on") + kRefused);
    }
}

void Judge::JudgeSyntax() {
    SyntaxFlaw flaw{};
    if (FindSyntaxFlaw(text, flaw)) {
        Add(flaw.offset, false, "not quite JSON, though the service reads it: " + flaw.text);
    }
}

void Judge::JudgeBoolean(const Member& member, const ConfigurationField& field) {
    if (!cJSON_IsBool(&member.json)) {
        Add(member.place.value, true,
            std::string(field.key) + " is a boolean, not " + KindOf(member.json) + ": the service takes " +
                Harmless(member.source) + " for " + ValueText(ValueIn(verdict.loaded, field)));
    }
}

void Judge::JudgeNumber(const Member& member, const ConfigurationField& field) {
    const int32_t taken = std::get<int32_t>(ValueIn(verdict.loaded, field));
    const std::string takes = ": the service takes " + std::to_string(taken);
    const bool isNumber = cJSON_IsNumber(&member.json) != 0;
    const bool isExact = isNumber && member.json.valuedouble == static_cast<double>(taken);
    if (!isNumber) {
        Add(member.place.value, true,
            std::string(field.key) + " is a number, not " + KindOf(member.json) + takes + " for " +
                Harmless(member.source));
    } else if (!isExact) {
        Add(member.place.value, true,
            std::string(field.key) + " " + Harmless(member.source) + " is no whole number that fits" + takes);
    } else if (!IsInRange(field, taken)) {
        Add(member.place.value, true,
            std::string(field.key) + " may be " + RangeText(field) + ", but is " + std::to_string(taken) +
                ", which the service takes all the same");
    }
}

void Judge::JudgeText(const Member& member, const ConfigurationField& field) {
    const std::string taken = std::get<std::string>(ValueIn(verdict.loaded, field));
    const std::string value = cJSON_IsString(&member.json) ? member.json.valuestring : "";
    if (!cJSON_IsString(&member.json)) {
        Add(member.place.value, true,
            std::string(field.key) + " is a text, not " + KindOf(member.json) + ": the service keeps its default " +
                ValueText(taken));
    } else if (value.size() > LongestText(field)) {
        Add(member.place.value, true,
            std::string(field.key) + " holds at most " + std::to_string(LongestText(field)) + " bytes, not " +
                std::to_string(value.size()) + ": the service takes " + Quoted(taken));
    } else if (WholeText(member.source).find('\0') != std::string::npos) {
        Add(member.place.value, true,
            std::string(field.key) + " has a NUL in it, where it ends for the service, which takes " + Quoted(taken));
    }
}

void Judge::JudgeField(const Member& member, const ConfigurationField& field) {
    if (ReadConfigurationMember(member.json, field.member, verdict.loaded)) {
        verdict.given.push_back(&field);
    }
    if (std::string_view(field.key) != member.json.string) {
        Add(member.place.key, false, Quoted(member.json.string) + " is read as " + field.key);
    }
    switch (TypeOf(field)) {
        case FieldType::Boolean:
            JudgeBoolean(member, field);
            break;
        case FieldType::Number:
            JudgeNumber(member, field);
            break;
        case FieldType::Text:
            JudgeText(member, field);
            break;
    }
}

/// Of many findings only the first are told; the others must not be long in the making.
void Judge::JudgeRepetition(const Member& member, const ConfigurationField& field) {
    const LineColumn first = IsFull() ? LineColumn{} : PlaceOf(text, firsts.at(&field).key);
    Add(member.place.key, true,
        std::string(field.key) + " once more: the service takes the first one, in line " + std::to_string(first.line) +
            ", column " + std::to_string(first.column));
}

void Judge::JudgeMember(const Member& member) {
    const std::string key = member.json.string;
    const ConfigurationField* const field = FieldOfKey(key);
    if (field == nullptr) {
        Add(member.place.key, true,
            "the service knows no key " + Quoted(key) + " and passes over it" + (IsFull() ? "" : DidYouMean(key)));
    } else if (firsts.try_emplace(field, member.place).second) {
        JudgeField(member, *field);
    } else {
        JudgeRepetition(member, *field);
    }
}

void Judge::JudgeMembers(const cJSON& object) {
    const std::vector<MemberPlace> places = LocateMembers(text);
    auto place = places.begin();
    for (const cJSON* one = object.child; one != nullptr && place != places.end(); one = one->next, ++place) {
        JudgeMember({*one, *place, text.substr(place->value, place->valueEnd - place->value)});
    }
}

ConfigFileVerdict Judge::Run() {
    if (text.size() > kLongestConfiguration) {
        verdict.findings.push_back(
            {{}, true, "the file is longer than " + std::to_string(kLongestConfiguration) + " bytes" + kRefused});
        return std::move(verdict);
    }
    size_t end = 0;
    const Json json = ParseConfiguration(text, end);
    if (!json) {
        JudgeRefusal(end);
        return std::move(verdict);
    }
    JudgeSyntax();
    if (!cJSON_IsObject(json.get())) {
        Add(text.find_first_not_of(" \t\r\n"), true,
            std::string("the file holds ") + KindOf(*json) +
                " instead of an object: the service finds no key in it and keeps its defaults");
        return std::move(verdict);
    }
    JudgeMembers(*json);
    return std::move(verdict);
}

[[noreturn]] void CannotRead(const std::string& path) {
    const int error = errno;
    const std::string hint =
        error == ENOENT ? "; a service that finds no configuration file creates one with its defaults" : "";
    throw Failure(kBadFile, "cannot read " + path + ": " + std::strerror(error) + hint);
}

std::string ReadAll(int file, const std::string& path) {
    std::string text;
    std::array<char, 65536> piece{};
    for (;;) {
        const ssize_t count = read(file, piece.data(), piece.size());
        if (count < 0 && errno != EINTR) {
            CannotRead(path);
        }
        if (count == 0 || text.size() > kLongestConfiguration) {
            return text;
        }
        text.append(piece.data(), static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
}

}  // namespace

bool ConfigFileVerdict::HasErrors() const {
    return std::ranges::any_of(findings, &Finding::isError);
}

ConfigFileVerdict JudgeConfigFile(std::string_view text) {
    return Judge(text).Run();
}

std::string ReadConfigFile(const std::string& path) {
    if (path == "-") {
        return ReadAll(STDIN_FILENO, "standard input");
    }
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.IsOpen()) {
        CannotRead(path);
    }
    return ReadAll(file.get(), path);
}
