// A table of commands makes the parser, runs the command, and answers the shell's completion.
#include "CommandLine.h"

#include <strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "Commands.h"
#include "UiFields.h"

namespace {

constexpr const char* kProgram = "ecalluictl";
constexpr const char* kAbout = "Reads and changes the parameters of the eCall user-interface service.";
constexpr double kLongestSeconds = 86400;

/// What a command takes besides the options of all.
enum class Takes { Nothing, Names, NamesOrNothing, Assignments, File };

struct Command {
    const char* name;
    const char* about;
    Takes takes;
    ExitStatus (*run)(const Options& options, Output& output);
};

constexpr std::array kCommands{
    Command{"list", "Show all parameters with their values and meanings", Takes::Nothing, CommandList},
    Command{"get", "Show parameters", Takes::Names, CommandGet},
    Command{"set", "Set parameters, read them back, and say what changed", Takes::Assignments, CommandSet},
    Command{"watch", "Show changes of parameters until Ctrl-C, also over restarts of the service",
            Takes::NamesOrNothing, CommandWatch},
    Command{"dump", "Write all parameters as JSON, as \"load\" reads it", Takes::Nothing, CommandDump},
    Command{"load", "Set the parameters that differ from a JSON file; nothing when the file has errors", Takes::File,
            CommandLoad},
    Command{"check", "Judge a configuration file as the service would read it; needs no service", Takes::File,
            CommandCheck},
    Command{"version", "Show the versions of the service and of its interface", Takes::Nothing, CommandVersion},
    Command{"mic-test", "Let the service measure the analog microphone, and show the value", Takes::Nothing,
            CommandMicTest},
};

const Command* FindCommand(const std::string& word) {
    const auto* const found =
        std::ranges::find_if(kCommands, [&](const Command& command) { return command.name == word; });
    return found == kCommands.end() ? nullptr : found;
}

std::vector<std::string> CommandNames() {
    std::vector<std::string> names;
    std::ranges::transform(kCommands, std::back_inserter(names), &Command::name);
    return names;
}

// Parsing.

/// Goes before a word that begins with [ or with it: the parser takes [A,B] for two words, A and B.
constexpr char kGuard = '\x1f';

std::string Guarded(const std::string& word) {
    return word.starts_with('[') || word.starts_with(kGuard) ? kGuard + word : word;
}

void Unguard(std::string& word) {
    word.erase(0, word.starts_with(kGuard) ? 1 : 0);
}

void Unguard(Options& options) {
    Unguard(options.url);
    Unguard(options.file);
    for (std::string& word : options.words) {
        Unguard(word);
    }
}

/// The parser's own check of a range lets NaN through.
CLI::Validator SecondsFrom(double shortest) {
    using CLI::detail::to_string;
    const std::string range = to_string(shortest) + " to " + to_string(kLongestSeconds);
    const auto judge = [shortest, range](const std::string& text) {
        double seconds = 0;
        const bool isNumber = CLI::detail::lexical_cast(text, seconds);
        const bool isInRange = isNumber && seconds >= shortest && seconds <= kLongestSeconds;
        return isInRange ? "" : "may be " + range + " seconds, not " + Quoted(text);
    };
    return {judge, range};
}

std::string Footer() {
    std::string text =
        "NAME is a parameter's name in any case, its number, or its name in the interface.\n\nExit status:\n";
    for (size_t status = 0; status < kExitMeanings.size(); ++status) {
        text += "  " + std::to_string(status) + "  " + kExitMeanings.at(status) + "\n";
    }
    return text + "\n" + kProgram + " COMMAND --help tells more of a command.";
}

void AddCommonOptions(CLI::App& app, Options& options) {
    app.add_option("--url", options.url, "where the service listens")->capture_default_str();
    app.add_flag("--json", options.json, "output for programs, errors included");
    app.add_option(
           "--timeout", options.timeout,
           "seconds to wait for the service (otherwise 2 to connect, 10 for a reply, 30 for mic-test); for a reply "
           "never longer than 30")
        ->check(SecondsFrom(0.001));
    app.set_version_flag("--version",
                         std::string(kProgram) + " for " + kUiInterface + " " + std::to_string(kUiMajorVersion),
                         "which interface of the service the program speaks");
}

void AddWords(CLI::App& app, const Command& command, Options& options) {
    switch (command.takes) {
        case Takes::Nothing:
            break;
        case Takes::Names:
            app.add_option("NAME", options.words, "parameters to show")->required();
            break;
        case Takes::NamesOrNothing:
            app.add_option("NAME", options.words, "parameters to watch; all when none is given");
            break;
        case Takes::Assignments:
            app.add_option("NAME VALUE", options.words, "what to set, also as NAME=VALUE; several are possible")
                ->required();
            break;
        case Takes::File:
            app.add_option("FILE", options.file, "the file; - for standard input")->required();
            break;
    }
}

void AddOwnOptions(CLI::App& app, const Command& command, Options& options) {
    if (command.run == CommandList) {
        app.add_flag("--offline", options.offline, "without a service, and so without values");
        app.add_flag("--markdown", options.markdown, "the table for the documents; without a service");
    }
    if (command.run == CommandWatch) {
        app.add_option("--interval", options.interval, "seconds between two looks")
            ->capture_default_str()
            ->check(SecondsFrom(0.01));
    }
}

void Declare(CLI::App& app, Options& options) {
    app.footer(Footer());
    app.require_subcommand(1);
    AddCommonOptions(app, options);
    for (const Command& command : kCommands) {
        CLI::App* const sub = app.add_subcommand(command.name, command.about);
        sub->fallthrough();
        AddWords(*sub, command, options);
        AddOwnOptions(*sub, command, options);
    }
}

// Words that are typed.

struct Typed {
    std::vector<std::string> words;  ///< neither options nor values of options
    bool endsInOption = false;       ///< the value of the last option is still to come
    bool isKnown = true;             ///< there is no option before the first word that does not exist
};

/// Where the value that follows the option at the index ends; the shell makes words of their own of = and :.
size_t EndOfValue(const std::vector<std::string>& words, size_t at) {
    at += at + 1 < words.size() && words[at + 1] == "=" ? 2 : 1;
    while (at + 1 < words.size() && words[at + 1] == ":") {
        at += 2;
    }
    return at;
}

Typed WithoutOptions(const std::vector<std::string>& words) {
    CLI::App app;
    Options options;
    AddCommonOptions(app, options);
    for (const Command& command : kCommands) {
        AddOwnOptions(app, command, options);
    }
    Typed typed;
    for (size_t at = 0; at < words.size(); ++at) {
        if (!words[at].starts_with("--")) {
            typed.words.push_back(words[at]);
            continue;
        }
        const CLI::Option* const option = app.get_option_no_throw(words[at].substr(0, words[at].find('=')));
        typed.isKnown = typed.isKnown && (option != nullptr || !typed.words.empty());
        if (option != nullptr && option->get_items_expected_max() > 0 && words[at].find('=') == std::string::npos) {
            at = EndOfValue(words, at);
            typed.endsInOption = at >= words.size();
        }
    }
    return typed;
}

/// What is wrong with the command; empty when nothing is, or something before it is wrong.
std::string WrongCommand(const std::vector<std::string>& words) {
    const Typed typed = WithoutOptions(words);
    if (!typed.isKnown || typed.words.empty() || typed.words.front().starts_with("-") ||
        FindCommand(typed.words.front()) != nullptr) {
        return "";
    }
    constexpr size_t kFarthest = 2;
    const std::string& wrong = typed.words.front();
    const auto names = CommandNames();
    const auto distance = [&](const std::string& name) { return EditDistance(wrong.substr(0, 20), name); };
    const std::string nearest = *std::ranges::min_element(names, {}, distance);
    return "no command is called " + Quoted(wrong) +
           (distance(nearest) <= kFarthest ? ", did you mean " + nearest : "");
}

// Running.

/// Tells the failure on standard error and, for programs, in place of the result.
ExitStatus Report(ExitStatus status, const std::string& message, bool json, Output& output) {
    Complain(message);
    output.Clear();
    if (json && status != kNoOutput) {
        output.Document(ErrorJson(status, message));
    }
    return status;
}

ExitStatus Run(const Command& command, const Options& options, Output& output) try {
    return command.run(options, output);
} catch (const Failure& failure) {
    return Report(failure.status, failure.what(), options.json, output);
}

ExitStatus RefuseCommandLine(std::string why, bool json, Output& output) {
    std::erase(why, kGuard);
    return Report(kMisused, why + "; \"" + kProgram + " --help\" tells more", json, output);
}

/// The parser takes a value that begins with - for an option.
std::string Remedy(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    const bool isSet = !chosen.empty() && FindCommand(chosen.front()->get_name())->takes == Takes::Assignments;
    return isSet ? "; a value that begins with - is given as NAME=VALUE" : "";
}

ExitStatus ParseAndRun(const std::vector<std::string>& words, Output& output) {
    CLI::App app(kAbout, kProgram);
    Options options;
    Declare(app, options);
    std::vector<std::string> backwards;  // as the parser wants them
    std::ranges::transform(words.rbegin(), words.rend(), std::back_inserter(backwards), Guarded);
    try {
        app.parse(backwards);
    } catch (const CLI::CallForHelp&) {
        const auto chosen = app.get_subcommands();
        output.Line((chosen.empty() ? app : *chosen.front()).help());
        return kDone;
    } catch (const CLI::CallForVersion& version) {
        output.Line(version.what());
        return kDone;
    } catch (const CLI::ParseError& error) {
        const std::string wrong = WrongCommand(words);
        const bool isUnexpected = error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError);
        const std::string remedy = isUnexpected ? Remedy(app) : "";
        return RefuseCommandLine(wrong.empty() ? error.what() + remedy : wrong,
                                 std::ranges::find(words, "--json") != words.end(), output);
    }
    Unguard(options);
    return Run(*FindCommand(app.get_subcommands().front()->get_name()), options, output);
}

ExitStatus Complete(const std::vector<std::string>& words, Output& output) {
    for (const std::string& candidate : Candidates(words)) {
        output.Line(candidate);
    }
    return kDone;
}

// Completion.

std::vector<std::string> OptionNames(const Command* command) {
    CLI::App app;
    Options options;
    AddCommonOptions(app, options);
    if (command != nullptr) {
        AddOwnOptions(app, *command, options);
    }
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::vector<std::string> ParameterNames() {
    std::vector<std::string> names;
    for (const ConfigurationField* field : Parameters()) {
        names.emplace_back(field->key);
    }
    return names;
}

/// The values that are few enough to choose from, otherwise the default.
std::vector<std::string> ValuesOf(const std::string& name) {
    constexpr int32_t kFew = 8;
    const ConfigurationField* const field = FindField(name);
    if (field == nullptr) {
        return {};
    }
    if (TypeOf(*field) == FieldType::Boolean) {
        return {"true", "false"};
    }
    if (TypeOf(*field) == FieldType::Text) {
        return {std::get<std::string>(DefaultOf(*field))};
    }
    if (field->range.maximum - field->range.minimum >= kFew) {
        return {ValueText(DefaultOf(*field))};
    }
    std::vector<std::string> values;
    for (int32_t value = field->range.minimum; value <= field->range.maximum; ++value) {
        values.push_back(std::to_string(value));
    }
    return values;
}

/// Of "set": names and values take turns. The shell makes three words of NAME=VALUE.
std::vector<std::string> AssignmentCandidates(const std::vector<std::string>& before, const std::string& current) {
    std::string name;
    for (const std::string& word : before) {
        if (word == "=") {
            continue;
        }
        const bool isWhole = word.find('=') != std::string::npos;
        name = name.empty() && !isWhole ? word : "";
    }
    return name.empty() && current != "=" ? ParameterNames() : ValuesOf(name);
}

std::vector<std::string> WordCandidates(const Command& command, const std::vector<std::string>& before,
                                        const std::string& current) {
    switch (command.takes) {
        case Takes::Nothing:
            return {};
        case Takes::Names:
        case Takes::NamesOrNothing:
            return ParameterNames();
        case Takes::Assignments:
            return AssignmentCandidates(before, current);
        case Takes::File:
            return {"@files"};
    }
    return {};
}

bool Continues(const std::string& candidate, const std::string& begun) {
    return candidate == "@files" || strncasecmp(candidate.c_str(), begun.c_str(), begun.size()) == 0;
}

}  // namespace

void Complain(const std::string& message) {
    std::fprintf(stderr, "%s: %s\n", kProgram, WithoutControls(message).c_str());
}

OrderedJson ErrorJson(ExitStatus status, const std::string& message) {
    return {{"error", {{"status", static_cast<int>(status)}, {"message", message}}}};
}

UiLimits LimitsOf(const Options& options) {
    UiLimits limits;
    if (options.timeout > 0) {
        limits.reply = std::chrono::milliseconds{static_cast<int64_t>(std::ceil(options.timeout * 1000))};
        limits.connect = limits.reply;
        limits.micTest = limits.reply;
    }
    return limits;
}

std::vector<std::string> Candidates(const std::vector<std::string>& words) {
    if (words.empty()) {
        return CommandNames();
    }
    const std::string& current = words.back();
    const Typed before = WithoutOptions({words.begin(), words.end() - 1});
    const Command* const command = before.words.empty() ? nullptr : FindCommand(before.words.front());
    std::vector<std::string> candidates;
    if (before.endsInOption) {
        return {};
    }
    if (current.starts_with("-")) {
        candidates = OptionNames(command);
    } else if (before.words.empty()) {
        candidates = CommandNames();
    } else if (command != nullptr) {
        candidates = WordCandidates(*command, {before.words.begin() + 1, before.words.end()}, current);
    }
    const std::string begun = current == "=" ? "" : current;
    std::erase_if(candidates, [&](const std::string& candidate) { return !Continues(candidate, begun); });
    return candidates;
}

int RunCommandLine(std::vector<std::string> words) {
    Output output;
    ExitStatus status = kDone;
    try {
        if (!words.empty() && words.front() == "complete") {
            words.erase(words.begin());
            status = Complete(words, output);
        } else {
            status = ParseAndRun(words, output);
        }
        output.Flush();
    } catch (const Failure& failure) {
        return Report(failure.status, failure.what(), false, output);
    } catch (const std::exception& failure) {
        return Report(kRefused, failure.what(), false, output);
    }
    return status;
}
