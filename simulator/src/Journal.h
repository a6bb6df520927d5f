/// One ordered list of everything that happens around the service. Tests, scenarios and stories all read this one list.
///
/// Entries never change once they are in, and keep the order in which they came. Every function here may be called from
/// any thread. The journal calls back only the matchers handed to it, and holds no lock while it does.
#ifndef JOURNAL_H
#define JOURNAL_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

enum class Kind {
    Open,        ///< attribute file opened; subject: path as the service sees it; text: open flags
    Read,        ///< attribute file read; subject: path; text: what it got
    Write,       ///< attribute file written; subject: path; text: what it wrote
    I2c,         ///< transfer on the bus; subject: device path; text: the messages; bytes: their data, in order
    NetIoctl,    ///< private ioctl of a network interface; subject: interface; text: "command 44"; bytes: the block
    Uevent,      ///< sent by the module; subject: first string; text: the others, joined by blanks; bytes: as sent
    Console,     ///< line on standard output, without its line end; subject: the process
    Stderr,      ///< line on standard error; subject: the process
    Syslog,      ///< subject: the sender's name; text: the message; result: priority and facility number
    Trace,       ///< line appended to the live trace file; subject: source file; text: message; bytes: the raw line
    Script,      ///< run of a script of the module; subject: its name; text: "begin ARGUMENTS" or "end STATUS"
    Process,     ///< subject: the process; text: "started" or "exited 0" or "killed by SIGKILL"; pid: its id
    RpcConnect,  ///< a client came or went; subject: who; text: "connected" or "disconnected"
    RpcRequest,  ///< request received by a peer; subject: method; text: its fields
    RpcReply,    ///< reply sent by a peer; subject: method; text: its fields; result: status of the reply
    RpcNotify,   ///< notification sent by a peer; subject: method; text: its fields
    Note,        ///< remark of the test or story itself
};

/// The kind's name, such as "Write".
const char* KindName(Kind kind);

struct Entry {
    uint64_t seq = 0;                  ///< place in the list, from 0
    std::chrono::nanoseconds time{0};  ///< since the journal's start, monotonic
    Kind kind = Kind::Note;
    std::string peer;  ///< of the Rpc kinds: the service whose wire it is, such as "IEcallApp"
    std::string subject;
    std::string text;
    std::string bytes;   ///< raw form where it says more than the text
    int64_t result = 0;  ///< count or 0 when it worked, negative errno when it failed; see the kinds for other meanings
    int pid = 0;         ///< thread that did it, in the module's numbering; 0 when unknown

    /// One aligned line without line end: seconds, kind, subject, text, a failure's errno.
    std::string Print() const;
};

/// Says which entries are meant. All conditions that are set must hold; an empty one matches everything.
struct Match {
    std::optional<Kind> kind = {};
    std::optional<std::string> peer = {};         ///< the service whose wire it is
    std::optional<std::string> subject = {};      ///< the whole subject
    std::optional<std::string> text = {};         ///< the whole text
    std::optional<std::string> contains = {};     ///< a part of the text
    std::function<bool(const Entry&)> also = {};  ///< called without a lock held, possibly several times for one entry

    bool operator()(const Entry& entry) const;
    std::string Print() const;
};

Match IsKind(Kind kind);
Match IsOpened(std::string path);
Match IsRead(std::string path);
Match IsWritten(std::string path);
Match IsWritten(std::string path, std::string value);
Match IsTraced(std::string partOfMessage);
Match IsOnConsole(std::string line);
/// Not every message on the console takes the log's mutex, so those of two threads can share a line.
Match IsWithinConsoleLine(std::string part);
Match IsInSyslog(std::string partOfMessage);
Match IsRpcRequest(std::string method);

/// What was awaited did not come; what() tells what was awaited and shows the journal's tail.
struct JournalTimeout : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Journal {
  public:
    using Clock = std::chrono::steady_clock;
    /// Long enough for a loaded machine under a sanitizer: a wait ends early when its event comes.
    static constexpr std::chrono::seconds kLimit{30};

    Journal() = default;
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// Numbers, stamps and stores an entry; its seq and time are set here. Answers its number.
    uint64_t Append(Entry entry);
    uint64_t Append(Kind kind, std::string subject, std::string text = {}, int64_t result = 0);
    /// Remarks in the list itself; answers its number, so it also serves as a mark to wait or search from.
    uint64_t Note(std::string text);

    /// Number that the next entry will get: "from here on".
    uint64_t Mark() const;
    std::chrono::nanoseconds Now() const { return Clock::now() - start; }
    Clock::time_point Start() const { return start; }

    /// The first entry numbered from or later that matches; waits for it up to limit.
    std::optional<Entry> WaitFor(const Match& match, uint64_t from = 0, std::chrono::milliseconds limit = kLimit) const;
    /// The same, but throws JournalTimeout when nothing came: a test or story that awaits it cannot go on.
    Entry Await(const Match& match, uint64_t from = 0, std::chrono::milliseconds limit = kLimit) const;
    /// Waits until count entries numbered from or later match; throws JournalTimeout.
    std::vector<Entry> AwaitCount(size_t count, const Match& match, uint64_t from = 0,
                                  std::chrono::milliseconds limit = kLimit) const;
    /// Everything numbered from or later, waiting up to limit until there is something; for readers that follow along.
    std::vector<Entry> Follow(uint64_t from, std::chrono::milliseconds limit) const;

    /// Present entries in [from, to) that match, without waiting. To prove a silence: send what must come next by the
    /// same road, await it, then look at everything before it.
    std::vector<Entry> All(const Match& match = {}, uint64_t from = 0, uint64_t to = UINT64_MAX) const;
    size_t Count(const Match& match, uint64_t from = 0, uint64_t to = UINT64_MAX) const;
    /// The texts of All, in order.
    std::vector<std::string> Texts(const Match& match, uint64_t from = 0, uint64_t to = UINT64_MAX) const;
    /// The last entries, a line each.
    std::string Dump(size_t last = 60) const;

  private:
    using Shared = std::shared_ptr<const Entry>;
    std::vector<Shared> Slice(uint64_t from, uint64_t to = UINT64_MAX) const;
    bool WaitBeyond(uint64_t number, Clock::time_point deadline) const;

    const Clock::time_point start = Clock::now();
    mutable std::mutex mutex;  ///< innermost: nothing else is locked or called under it
    mutable std::condition_variable grown;
    std::vector<Shared> entries;
};

#endif
