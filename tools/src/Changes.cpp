#include "Changes.h"

#include <algorithm>

#include "UiFields.h"

namespace {

bool IsKept(const Change& change) {
    return change.after == change.wanted;
}

std::string Names(const std::vector<Change>& changes) {
    std::string names;
    for (const Change& change : changes) {
        names += std::string(names.empty() ? "" : ", ") + change.field->key;
    }
    return names.empty() ? "none" : names;
}

std::vector<Change> Plan(UiClient& client, const std::vector<Assignment>& assignments, Existing existing) {
    std::vector<Change> plan;
    for (const auto& [field, value] : assignments) {
        const UiValue before = client.Get(*field);
        if (existing == Existing::SendAll || before != value) {
            plan.push_back({.field = field, .before = before, .wanted = value, .after = {}});
        }
    }
    return plan;
}

std::string Warning(const Change& change) {
    return change.before == change.after ? "" : ChangeWarning(*change.field, change.after);
}

std::string Summary(const Change& change) {
    const ConfigurationField& field = *change.field;
    if (change.before == change.after) {
        return std::string(field.key) + ": " + ValueText(field, change.after) + ", as before";
    }
    return std::string(field.key) + ": " + ValueText(change.before) + " -> " + ValueText(field, change.after);
}

}  // namespace

std::vector<Change> Apply(UiClient& client, const std::vector<Assignment>& assignments, Existing existing) {
    const std::vector<Change> plan = Plan(client, assignments, existing);
    std::vector<Change> done;
    try {
        for (Change change : plan) {
            client.Set(*change.field, change.wanted);
            change.after = client.Get(*change.field);
            done.push_back(change);
        }
    } catch (const Failure& failure) {
        throw Failure(failure.status, std::string(failure.what()) + "; set before that: " + Names(done) +
                                          "; perhaps set: " + plan.at(done.size()).field->key);
    }
    return done;
}

void ShowChanges(const std::vector<Change>& changes, Output& output) {
    for (const Change& change : changes) {
        output.Line(Summary(change));
        if (!IsKept(change)) {
            Complain(std::string(change.field->key) + " should be " + ValueText(*change.field, change.wanted) +
                     ", but the service holds " + ValueText(*change.field, change.after));
        }
        if (const std::string warning = Warning(change); !warning.empty()) {
            Complain(warning);
        }
    }
}

OrderedJson ChangesJson(const std::vector<Change>& changes) {
    OrderedJson list = OrderedJson::array();
    for (const Change& change : changes) {
        OrderedJson json;
        json["number"] = change.field->number;
        json["name"] = change.field->key;
        json["before"] = ValueJson(change.before);
        json["wanted"] = ValueJson(change.wanted);
        json["after"] = ValueJson(change.after);
        MarkBroken(json, {change.before, change.after});
        json["restart"] = RestartText(*change.field);
        json["warning"] = Warning(change);
        list.push_back(json);
    }
    return list;
}

ExitStatus StatusOf(const std::vector<Change>& changes) {
    return std::ranges::all_of(changes, IsKept) ? kDone : kRefused;
}
