// Watching: all is read again and again, and what differs from the last time is told. A service that goes away is
// waited for; what it has changed meanwhile is told when it is back.
#include <algorithm>
#include <array>
#include <ctime>

#include "Commands.h"
#include "UiFields.h"

namespace {

using std::chrono::milliseconds;

constexpr const char* kGone = "the service is gone; waiting for it";

std::string LocalTime() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(now).count();
    const auto millis = std::chrono::floor<milliseconds>(now).count() % 1000;
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 40> text{};
    const size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%03d", static_cast<int>(millis));
    return text.data();
}

class Watcher {
  public:
    Watcher(const Options& what, Output& where);
    ExitStatus Run();

  private:
    std::vector<UiValue> ReadAll();
    void Look();
    void TellAbsence(const std::string& event, const std::string& text);
    void Compare(const std::vector<UiValue>& values);
    void Tell(const std::string& event, const std::string& text, const OrderedJson& details,
              std::initializer_list<UiValue> shown = {});

    const Options& options;
    Output& output;
    UiClient client;
    std::vector<const ConfigurationField*> fields;
    std::vector<UiValue> last;
    std::string absence;  ///< the event that has told why nothing is seen: "gone" or "silent"; empty: all is seen
    unsigned knownLosses = 0;
};

Watcher::Watcher(const Options& what, Output& where)
    : options(what), output(where), client(what.url, LimitsOf(what)), fields(Parameters()) {
    if (!options.words.empty()) {
        fields.clear();
        std::ranges::transform(options.words, std::back_inserter(fields),
                               [](const std::string& name) { return &ParameterNamed(name); });
    }
}

/// A line at once: the reader waits for it.
void Watcher::Tell(const std::string& event, const std::string& text, const OrderedJson& details,
                   std::initializer_list<UiValue> shown) {
    const std::string time = LocalTime();
    if (options.json) {
        OrderedJson line{{"time", time}, {"event", event}};
        line.update(details);
        MarkBroken(line, shown);
        output.Line(JsonLine(line));
    } else {
        output.Line(time + "  " + text);
    }
    output.Flush();
}

std::vector<UiValue> Watcher::ReadAll() {
    std::vector<UiValue> values;
    std::ranges::transform(fields, std::back_inserter(values),
                           [this](const ConfigurationField* field) { return client.Get(*field); });
    return values;
}

void Watcher::Compare(const std::vector<UiValue>& values) {
    for (size_t index = 0; index < fields.size(); ++index) {
        const ConfigurationField& field = *fields[index];
        if (values[index] != last[index]) {
            Tell("change",
                 std::string(field.key) + ": " + ValueText(last[index]) + " -> " + ValueText(field, values[index]),
                 {{"number", field.number},
                  {"name", field.key},
                  {"before", ValueJson(last[index])},
                  {"after", ValueJson(values[index])}},
                 {last[index], values[index]});
        }
    }
    last = values;
}

/// Once for each cause. A stop ends the request that runs, which says nothing of the service.
void Watcher::TellAbsence(const std::string& event, const std::string& text) {
    if (event != absence && !client.IsStopped()) {
        absence = event;
        Tell(event, text, {{"message", text}});
    }
}

/// One look at the service. A connection that was lost since the last one may be to another process by now.
void Watcher::Look() try {
    if (client.Losses() != knownLosses || !client.IsConnected()) {
        if (absence.empty()) {
            TellAbsence("gone", kGone);
        }
        client.Connect();
        const std::vector<UiValue> values = ReadAll();
        absence.clear();
        knownLosses = client.Losses();
        Tell("back", "the service is back", OrderedJson::object());
        Compare(values);
    } else {
        Compare(ReadAll());
    }
} catch (const NoReply& failure) {
    TellAbsence("silent", failure.what());
} catch (const Failure& failure) {
    if (failure.status != kNoService) {
        throw;
    }
    TellAbsence("gone", kGone);
}

ExitStatus Watcher::Run() {
    client.Connect();
    last = ReadAll();
    knownLosses = client.Losses();
    client.StopOnSignals();
    OrderedJson details{{"values", OrderedJson::object()}};
    for (size_t index = 0; index < fields.size(); ++index) {
        details["values"][fields[index]->key] = ValueJson(last[index]);
        MarkBroken(details, {last[index]});
    }
    Tell("start", "watching " + std::to_string(fields.size()) + " parameters at " + client.Url() + ", until Ctrl-C",
         details);
    while (!client.IsStopped()) {
        if (Output::IsReaderGone()) {
            throw Failure(kNoOutput, "nobody reads the output any more");
        }
        client.Wait(milliseconds{static_cast<int64_t>(options.interval * 1000)});
        if (!client.IsStopped()) {
            Look();
        }
    }
    return kDone;
}

}  // namespace

ExitStatus CommandWatch(const Options& options, Output& output) {
    return Watcher(options, output).Run();
}
