/// The module's attribute files: a FUSE file system that behaves as sysfs does and journals every open, read and write.
///
/// As in sysfs, each write call stores one whole value, each read from offset 0 shows it afresh, and truncation does
/// nothing. Paths are those that the service sees, such as "/sys/class/ecall_gpio/ecall-nrqst/value".
/// All functions from any thread. Hooks run on a thread of the file system, while the service's call waits for them and
/// with no lock held; they may call back into this class, but must not touch the mounted files themselves.
#ifndef ATTRIBUTE_FS_H
#define ATTRIBUTE_FS_H

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Fault.h"
#include "Journal.h"

enum class Use { Open, Read, Write };

class AttributeFs {
  public:
    using WriteHook = std::function<void(const std::string& value)>;
    using ReadHook = std::function<std::string()>;

    explicit AttributeFs(Journal& journal);
    ~AttributeFs();
    AttributeFs(const AttributeFs&) = delete;
    AttributeFs& operator=(const AttributeFs&) = delete;

    /// Mounts the tree at an existing directory and serves it until Unmount or the end. Throws std::runtime_error.
    void Mount(const std::string& directory);
    /// Files opened before answer ENOTCONN from now on.
    void Unmount();

    /// Adds a file with its directories. Directories list their entries in the order in which they were added.
    void Add(const std::string& path, std::string value);
    /// Adds a file whose uses are not journaled; every write goes to hook.
    void AddSink(const std::string& path, WriteHook hook);
    /// Takes a file, or a directory with all below, away for good.
    void Remove(const std::string& path);
    bool Has(const std::string& path) const;

    /// Throw std::out_of_range for an unknown path.
    void Set(const std::string& path, std::string value);
    std::string Get(const std::string& path) const;
    void OnWrite(const std::string& path, WriteHook hook);
    void OnRead(const std::string& path, ReadHook hook);
    /// Whether the file can be found at all; ENOENT otherwise.
    void SetMissing(const std::string& path, bool missing = true);
    /// pattern  a path, with the wildcards of the shell: "*" also spans slashes.
    /// The rule added first that strikes decides; skip and times count all uses that match the pattern.
    void AddFault(const std::string& pattern, Use use, Fault fault);
    void ClearFaults();

  private:
    struct Node;
    struct Rule;
    struct Session;
    struct Operations;

    Node* Find(const std::string& path) const;
    Node& Known(const std::string& path) const;
    Node& AddNode(const std::string& path, bool isDirectory);
    Node* ByNumber(uint64_t number) const;
    Fault Judge(const Node& node, Use use);
    void Record(const Node& node, Kind kind, std::string text, int64_t result, int pid);
    void Pause(void* slowRequest, std::chrono::milliseconds delay);
    void WakePauses();
    void Serve();
    void FreeKeptInterrupts();

    Journal& journal;
    mutable std::mutex mutex;                  ///< guards all below; the journal's is taken inside it
    std::vector<std::unique_ptr<Node>> nodes;  ///< never shrinks, so that numbers stay valid; number = index + 1
    std::vector<Rule> rules;
    std::condition_variable stopping;
    bool stopped = false;

    std::unique_ptr<Session> session;
};

#endif
