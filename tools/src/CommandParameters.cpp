// Reading and setting single parameters. Everything is checked before the first is sent.
#include <algorithm>

#include "Changes.h"
#include "Commands.h"
#include "UiFields.h"

namespace {

/// A value with its quotes, if any, but without its unit is what "set" takes back.
OrderedJson ParameterJson(const ConfigurationField& field, const UiValue& value) {
    OrderedJson json;
    json["number"] = field.number;
    json["name"] = field.key;
    json["value"] = ValueJson(value);
    MarkBroken(json, {value});
    json["unit"] = field.range.unit;
    return json;
}

Assignment MakeAssignment(const std::string& name, const std::string& value) {
    const ConfigurationField& field = ParameterNamed(name);
    return {&field, ReadValue(field, value)};
}

/// "NAME VALUE" and "NAME=VALUE", mixed as one likes.
std::vector<Assignment> ReadAssignments(const std::vector<std::string>& words) {
    std::vector<Assignment> assignments;
    for (size_t at = 0; at < words.size(); ++at) {
        const size_t equals = words[at].find('=');
        if (equals != std::string::npos) {
            assignments.push_back(MakeAssignment(words[at].substr(0, equals), words[at].substr(equals + 1)));
        } else if (at + 1 < words.size()) {
            assignments.push_back(MakeAssignment(words[at], words[at + 1]));
            ++at;
        } else {
            throw Failure(kMisused,
                          "set " + std::string(ParameterNamed(words[at]).key) + " to what? Its value is missing");
        }
    }
    return assignments;
}

void RefuseRepetitions(const std::vector<Assignment>& assignments) {
    for (auto one = assignments.begin(); one != assignments.end(); ++one) {
        if (std::find_if(assignments.begin(), one,
                         [&](const Assignment& other) { return other.field == one->field; }) != one) {
            throw Failure(kMisused, std::string(one->field->key) + " is to be set twice: give it once");
        }
    }
}

}  // namespace

ExitStatus CommandGet(const Options& options, Output& output) {
    std::vector<const ConfigurationField*> fields;
    for (const std::string& name : options.words) {
        fields.push_back(&ParameterNamed(name));
    }
    UiClient client(options.url, LimitsOf(options));
    client.Connect();
    OrderedJson json = OrderedJson::array();
    for (const ConfigurationField* field : fields) {
        const UiValue value = client.Get(*field);
        json.push_back(ParameterJson(*field, value));
        if (!options.json) {
            output.Line(std::string(field->key) + " = " + ValueText(*field, value));
        }
    }
    if (options.json) {
        output.Document(json);
    }
    return kDone;
}

ExitStatus CommandSet(const Options& options, Output& output) {
    const std::vector<Assignment> assignments = ReadAssignments(options.words);
    RefuseRepetitions(assignments);
    UiClient client(options.url, LimitsOf(options));
    client.Connect();
    const std::vector<Change> changes = Apply(client, assignments, Existing::SendAll);
    if (options.json) {
        output.Document({{"changes", ChangesJson(changes)}});
    } else {
        ShowChanges(changes, output);
    }
    return StatusOf(changes);
}
