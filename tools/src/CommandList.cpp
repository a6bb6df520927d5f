// What there is to be read and set: the table of the fields, with the values of a service, or without.
#include <optional>

#include "Commands.h"
#include "EcallUIDataJson.h"
#include "UiFields.h"

namespace {

std::string NumberText(const ConfigurationField& field) {
    return field.number == kNoFieldNumber ? "-" : std::to_string(field.number);
}

/// A row of the table. value: "-" when it is not known.
std::vector<std::string> Row(const ConfigurationField& field, const std::string& value) {
    return {NumberText(field),
            field.key,
            TypeName(TypeOf(field)),
            *field.range.unit == '\0' ? "-" : field.range.unit,
            value,
            ValueText(DefaultOf(field)),
            RestartText(field),
            field.meaning};
}

/// value: null when it is not known.
OrderedJson RowJson(const ConfigurationField& field, const std::optional<UiValue>& value) {
    OrderedJson json;
    json["number"] = field.number == kNoFieldNumber ? OrderedJson() : OrderedJson(field.number);
    json["name"] = field.key;
    json["parameter"] = field.number == kNoFieldNumber ? OrderedJson() : OrderedJson(InterfaceName(field));
    json["type"] = TypeName(TypeOf(field));
    json["unit"] = field.range.unit;
    if (TypeOf(field) == FieldType::Number) {
        json["minimum"] = field.range.minimum;
        json["maximum"] = field.range.maximum;
    }
    json["value"] = value ? ValueJson(*value) : OrderedJson();
    MarkBroken(json, {value.value_or(UiValue())});
    json["default"] = ValueJson(DefaultOf(field));
    json["restart"] = RestartText(field);
    json["meaning"] = field.meaning;
    return json;
}

/// The fields with a number first, as people look for them.
std::vector<const ConfigurationField*> Listed() {
    std::vector<const ConfigurationField*> fields = Parameters();
    for (const ConfigurationField& field : ConfigurationFields()) {
        if (field.number == kNoFieldNumber) {
            fields.push_back(&field);
        }
    }
    return fields;
}

std::string Joined(const std::vector<std::string>& cells) {
    std::string line = "|";
    for (const std::string& cell : cells) {
        line += " " + cell + " |";
    }
    return line;
}

std::string Code(const std::string& text) {
    return text.empty() ? "" : "`" + text + "`";
}

/// Without what all names in the interface begin with.
std::string ShortInterfaceName(const ConfigurationField& field) {
    const std::string name = InterfaceName(field);
    return name.substr(name.find('_') + 1);
}

/// For the documents: nothing in it depends on a service.
void ListMarkdown(Output& output) {
    output.Line(Joined({"no.", "name", "in the interface", "type", "default", "range", "restart", "meaning"}));
    output.Line("|---|---|---|---|---|---|---|---|");
    for (const ConfigurationField* field : Listed()) {
        output.Line(
            Joined({NumberText(*field), Code(field->key), Code(ShortInterfaceName(*field)), TypeName(TypeOf(*field)),
                    Code(ValueText(DefaultOf(*field))), RangeText(*field), RestartText(*field), field->meaning}));
    }
}

}  // namespace

ExitStatus CommandList(const Options& options, Output& output) {
    if (options.markdown && options.json) {
        throw Failure(kMisused, "--markdown is for documents and --json for programs: give one of them");
    }
    if (options.markdown) {
        ListMarkdown(output);
        return kDone;
    }
    std::optional<UiClient> client;
    if (!options.offline) {
        client.emplace(options.url, LimitsOf(options));
        client->Connect();
    }
    std::vector<std::vector<std::string>> rows{
        {"no", "name", "type", "unit", "value", "default", "restart", "meaning"}};
    OrderedJson json = OrderedJson::array();
    for (const ConfigurationField* field : Listed()) {
        const bool isKnown = client && field->number != kNoFieldNumber;
        const auto value = isKnown ? std::optional(client->Get(*field)) : std::nullopt;
        rows.push_back(Row(*field, value ? ValueText(*value) : "-"));
        json.push_back(RowJson(*field, value));
    }
    if (options.json) {
        output.Document(json);
        return kDone;
    }
    output.Table(rows);
    output.Line("");
    output.Line(std::string("What has no number is changed in ") + kConfigurationPath +
                " only, while the service is stopped.");
    return kDone;
}
