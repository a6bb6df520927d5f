#include "Journal.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace {

struct KindRow {
    Kind kind;
    const char* name;
};
constexpr KindRow kKinds[] = {
    {Kind::Open, "Open"},
    {Kind::Read, "Read"},
    {Kind::Write, "Write"},
    {Kind::I2c, "I2c"},
    {Kind::NetIoctl, "NetIoctl"},
    {Kind::Uevent, "Uevent"},
    {Kind::Console, "Console"},
    {Kind::Stderr, "Stderr"},
    {Kind::Syslog, "Syslog"},
    {Kind::Trace, "Trace"},
    {Kind::Script, "Script"},
    {Kind::Process, "Process"},
    {Kind::RpcConnect, "RpcConnect"},
    {Kind::RpcRequest, "RpcRequest"},
    {Kind::RpcReply, "RpcReply"},
    {Kind::RpcNotify, "RpcNotify"},
    {Kind::Note, "Note"},
};

// Line ends and other control characters would break the one-line form.
std::string Visible(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) {
            char code[8];
            snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(c));
            out += code;
        } else {
            out += c;
        }
    }
    return out;
}

Match KindAndSubject(Kind kind, std::string subject) {
    Match match;
    match.kind = kind;
    match.subject = std::move(subject);
    return match;
}

Match KindAndPart(Kind kind, std::string part) {
    Match match;
    match.kind = kind;
    match.contains = std::move(part);
    return match;
}

}  // namespace

const char* KindName(Kind kind) {
    const auto* row = std::find_if(std::begin(kKinds), std::end(kKinds), [=](auto& r) { return r.kind == kind; });
    return row == std::end(kKinds) ? "?" : row->name;
}

std::string Entry::Print() const {
    char head[96];
    snprintf(head, sizeof head, "%10.6f %-10s ", static_cast<double>(time.count()) / 1e9, KindName(kind));
    std::string line = head + peer + (peer.empty() ? "" : ".") + subject;
    if (!text.empty()) {
        line += (subject.empty() ? "" : "  ") + Visible(text);
    }
    if (result < 0) {
        line += std::string("  [") + strerror(static_cast<int>(-result)) + "]";
    }
    return line;
}

bool Match::operator()(const Entry& entry) const {
    return (!kind || *kind == entry.kind) && (!peer || *peer == entry.peer) &&
           (!subject || *subject == entry.subject) && (!text || *text == entry.text) &&
           (!contains || entry.text.find(*contains) != std::string::npos) && (!also || also(entry));
}

std::string Match::Print() const {
    std::string line = kind ? KindName(*kind) : "any entry";
    if (peer) {
        line += " with " + *peer;
    }
    if (subject) {
        line += " of " + *subject;
    }
    if (text) {
        line += " saying \"" + Visible(*text) + "\"";
    }
    if (contains) {
        line += " holding \"" + Visible(*contains) + "\"";
    }
    if (also) {
        line += " that fulfils its condition";
    }
    return line;
}

Match IsKind(Kind kind) {
    Match match;
    match.kind = kind;
    return match;
}

Match IsOpened(std::string path) {
    return KindAndSubject(Kind::Open, std::move(path));
}
Match IsRead(std::string path) {
    return KindAndSubject(Kind::Read, std::move(path));
}
Match IsWritten(std::string path) {
    return KindAndSubject(Kind::Write, std::move(path));
}

Match IsWritten(std::string path, std::string value) {
    Match match = IsWritten(std::move(path));
    match.text = std::move(value);
    return match;
}

Match IsTraced(std::string partOfMessage) {
    return KindAndPart(Kind::Trace, std::move(partOfMessage));
}
Match IsInSyslog(std::string partOfMessage) {
    return KindAndPart(Kind::Syslog, std::move(partOfMessage));
}
Match IsRpcRequest(std::string method) {
    return KindAndSubject(Kind::RpcRequest, std::move(method));
}

Match IsOnConsole(std::string line) {
    Match match = IsKind(Kind::Console);
    match.text = std::move(line);
    return match;
}

Match IsWithinConsoleLine(std::string part) {
    Match match = IsKind(Kind::Console);
    match.contains = std::move(part);
    return match;
}

uint64_t Journal::Append(Entry entry) {
    const std::lock_guard lock(mutex);
    entry.seq = entries.size();
    entry.time = Now();
    entries.push_back(std::make_shared<const Entry>(std::move(entry)));
    grown.notify_all();
    return entries.size() - 1;
}

uint64_t Journal::Append(Kind kind, std::string subject, std::string text, int64_t result) {
    Entry entry;
    entry.kind = kind;
    entry.subject = std::move(subject);
    entry.text = std::move(text);
    entry.result = result;
    return Append(std::move(entry));
}

uint64_t Journal::Note(std::string text) {
    return Append(Kind::Note, {}, std::move(text));
}

uint64_t Journal::Mark() const {
    const std::lock_guard lock(mutex);
    return entries.size();
}

std::vector<Journal::Shared> Journal::Slice(uint64_t from, uint64_t to) const {
    const std::lock_guard lock(mutex);
    const uint64_t end = std::min<uint64_t>(to, entries.size());
    if (from >= end) {
        return {};
    }
    return {entries.begin() + static_cast<ptrdiff_t>(from), entries.begin() + static_cast<ptrdiff_t>(end)};
}

bool Journal::WaitBeyond(uint64_t number, Clock::time_point deadline) const {
    std::unique_lock lock(mutex);
    return grown.wait_until(lock, deadline, [&] { return entries.size() > number; });
}

std::optional<Entry> Journal::WaitFor(const Match& match, uint64_t from, std::chrono::milliseconds limit) const {
    const auto deadline = Clock::now() + limit;
    do {
        for (const Shared& entry : Slice(from)) {
            if (match(*entry)) {
                return *entry;
            }
            from = entry->seq + 1;
        }
    } while (WaitBeyond(from, deadline));
    return std::nullopt;
}

Entry Journal::Await(const Match& match, uint64_t from, std::chrono::milliseconds limit) const {
    auto found = WaitFor(match, from, limit);
    if (!found) {
        throw JournalTimeout("Awaited in vain for " + std::to_string(limit.count()) + " ms: " + match.Print() +
                             ", from entry " + std::to_string(from) + " on. The journal's tail:\n" + Dump());
    }
    return std::move(*found);
}

std::vector<Entry> Journal::AwaitCount(size_t count, const Match& match, uint64_t from,
                                       std::chrono::milliseconds limit) const {
    const auto deadline = Clock::now() + limit;
    std::vector<Entry> found;
    while (found.size() < count) {
        const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
        found.push_back(Await(match, from, std::chrono::ceil<std::chrono::milliseconds>(left)));
        from = found.back().seq + 1;
    }
    return found;
}

std::vector<Entry> Journal::Follow(uint64_t from, std::chrono::milliseconds limit) const {
    WaitBeyond(from, Clock::now() + limit);
    return All({}, from);
}

std::vector<Entry> Journal::All(const Match& match, uint64_t from, uint64_t to) const {
    std::vector<Entry> found;
    for (const Shared& entry : Slice(from, to)) {
        if (match(*entry)) {
            found.push_back(*entry);
        }
    }
    return found;
}

size_t Journal::Count(const Match& match, uint64_t from, uint64_t to) const {
    return All(match, from, to).size();
}

std::vector<std::string> Journal::Texts(const Match& match, uint64_t from, uint64_t to) const {
    std::vector<std::string> texts;
    for (Entry& entry : All(match, from, to)) {
        texts.push_back(std::move(entry.text));
    }
    return texts;
}

std::string Journal::Dump(size_t last) const {
    const uint64_t end = Mark();
    std::string dump;
    for (const Entry& entry : All({}, end > last ? end - last : 0)) {
        dump += entry.Print() + "\n";
    }
    return dump;
}
