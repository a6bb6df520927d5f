// Parameters in files: from the service into JSON, from JSON into the service, and whether a file is any good.
#include <algorithm>

#include "Changes.h"
#include "Commands.h"
#include "ConfigFile.h"
#include "EcallUIDataJson.h"
#include "UiFields.h"

namespace {

std::string NameOf(const std::string& file) {
    return file == "-" ? "standard input" : WithoutControls(file);
}

/// As compilers write it, so that editors can jump there.
std::string FindingText(const std::string& file, const Finding& finding) {
    const LineColumn place = finding.place;
    const std::string where =
        place.line == 0 ? "" : ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
    return NameOf(file) + where + (finding.isError ? ": error: " : ": note: ") + finding.text;
}

OrderedJson FindingsJson(const ConfigFileVerdict& verdict) {
    OrderedJson list = OrderedJson::array();
    for (const Finding& finding : verdict.findings) {
        OrderedJson json;
        json["line"] = finding.place.line;
        json["column"] = finding.place.column;
        json["severity"] = finding.isError ? "error" : "note";
        json["message"] = finding.text;
        list.push_back(json);
    }
    return list;
}

bool IsGiven(const ConfigFileVerdict& verdict, const ConfigurationField& field) {
    return std::ranges::find(verdict.given, &field) != verdict.given.end();
}

std::string Counted(size_t count, const std::string& one) {
    return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

std::string Names(const std::vector<const ConfigurationField*>& fields) {
    std::string names;
    for (const ConfigurationField* field : fields) {
        names += std::string(names.empty() ? "" : ", ") + field->key;
    }
    return names;
}

std::vector<const ConfigurationField*> FieldsIf(const auto& condition) {
    std::vector<const ConfigurationField*> fields;
    for (const ConfigurationField& field : ConfigurationFields()) {
        if (condition(field)) {
            fields.push_back(&field);
        }
    }
    return fields;
}

void ShowCheck(const std::string& file, const ConfigFileVerdict& verdict, Output& output) {
    for (const Finding& finding : verdict.findings) {
        output.Line(FindingText(file, finding));
    }
    const auto missing = FieldsIf([&](const auto& field) { return !IsGiven(verdict, field); });
    if (!missing.empty() && !verdict.given.empty()) {
        output.Line(NameOf(file) + ": note: not in the file, so with their defaults: " + Names(missing));
    }
    const auto errors = static_cast<size_t>(std::ranges::count_if(verdict.findings, &Finding::isError));
    output.Line(NameOf(file) + ": " + (errors == 0 ? "good" : Counted(errors, "error")) + ", " +
                Counted(verdict.given.size(), "field") + " of " + std::to_string(ConfigurationFields().size()) +
                " taken from it");
}

OrderedJson CheckJson(const std::string& file, const ConfigFileVerdict& verdict) {
    OrderedJson json;
    json["file"] = NameOf(file);
    json["good"] = !verdict.HasErrors();
    json["findings"] = FindingsJson(verdict);
    json["loaded"] = OrderedJson::object();
    for (const ConfigurationField& field : ConfigurationFields()) {
        const UiValue value = ValueIn(verdict.loaded, field);
        json["loaded"][field.key] = ValueJson(value);
        MarkBroken(json, {value});
    }
    return json;
}

/// Complains about every finding; nothing is sent then.
ExitStatus RefuseFile(const Options& options, const ConfigFileVerdict& verdict, Output& output) {
    const std::string message = NameOf(options.file) + " has errors; nothing was sent";
    Complain(message);
    if (options.json) {
        OrderedJson json = ErrorJson(kBadFile, message);
        json["findings"] = FindingsJson(verdict);
        output.Document(json);
    }
    return kBadFile;
}

void TellFindings(const std::string& file, const ConfigFileVerdict& verdict) {
    for (const Finding& finding : verdict.findings) {
        Complain(FindingText(file, finding));
    }
    const auto fileOnly =
        FieldsIf([&](const auto& field) { return field.number == kNoFieldNumber && IsGiven(verdict, field); });
    if (!fileOnly.empty() && !verdict.HasErrors()) {
        Complain(std::string("not sent, because they are changed in ") + kConfigurationPath +
                 " only: " + Names(fileOnly));
    }
}

std::vector<Assignment> AssignmentsOf(const ConfigFileVerdict& verdict) {
    std::vector<Assignment> assignments;
    for (const ConfigurationField* field : Parameters()) {
        if (IsGiven(verdict, *field)) {
            assignments.push_back({field, ValueIn(verdict.loaded, *field)});
        }
    }
    return assignments;
}

}  // namespace

ExitStatus CommandCheck(const Options& options, Output& output) {
    const ConfigFileVerdict verdict = JudgeConfigFile(ReadConfigFile(options.file));
    if (options.json) {
        output.Document(CheckJson(options.file, verdict));
    } else {
        ShowCheck(options.file, verdict, output);
    }
    return verdict.HasErrors() ? kBadFile : kDone;
}

/// What is written can be loaded again, and says what the service holds; otherwise nothing is written.
ExitStatus CommandDump(const Options& options, Output& output) {
    UiClient client(options.url, LimitsOf(options));
    client.Connect();
    OrderedJson json;
    for (const ConfigurationField* field : Parameters()) {
        const UiValue value = client.Get(*field);
        if (IsBroken(value)) {
            throw Failure(kRefused, std::string(field->key) + " is no UTF-8, which no JSON can carry: set it anew");
        }
        json[field->key] = ValueJson(value);
    }
    output.Document(json);
    return kDone;
}

ExitStatus CommandLoad(const Options& options, Output& output) {
    const ConfigFileVerdict verdict = JudgeConfigFile(ReadConfigFile(options.file));
    TellFindings(options.file, verdict);
    if (verdict.HasErrors()) {
        return RefuseFile(options, verdict, output);
    }
    const std::vector<Assignment> assignments = AssignmentsOf(verdict);
    UiClient client(options.url, LimitsOf(options));
    client.Connect();
    const std::vector<Change> changes = Apply(client, assignments, Existing::SendDifferences);
    if (options.json) {
        output.Document({{"changes", ChangesJson(changes)}, {"findings", FindingsJson(verdict)}});
        return StatusOf(changes);
    }
    ShowChanges(changes, output);
    output.Line(Counted(changes.size(), "parameter") + " of " + std::to_string(assignments.size()) + " differed and " +
                (changes.size() == 1 ? "was" : "were") + " set");
    return StatusOf(changes);
}
