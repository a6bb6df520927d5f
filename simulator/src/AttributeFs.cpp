// The kernel asks by node number; a node once made keeps its number. Time-outs of zero and direct_io make the kernel
// ask for every single use, so the journal misses nothing. The easy mistake: touching the mounted tree from a thread
// that serves it waits for itself.
#define FUSE_USE_VERSION 312
#include "AttributeFs.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <fuse3/fuse_lowlevel.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mount.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "Descriptor.h"

struct AttributeFs::Node {
    std::string path;
    std::string name;
    bool isDirectory = false;
    bool isJournaled = true;
    bool isMissing = false;
    bool isRemoved = false;
    std::string value;
    WriteHook onWrite;
    ReadHook onRead;
    uint64_t number = 0;
    std::vector<Node*> children;

    Node* Child(std::string_view wanted) const {
        const auto found =
            std::find_if(children.begin(), children.end(), [&](const Node* child) { return child->name == wanted; });
        return found == children.end() ? nullptr : *found;
    }
    struct stat Status() const {
        struct stat status {};
        status.st_ino = number;
        status.st_mode = isDirectory ? S_IFDIR | 0755 : S_IFREG | 0644;
        status.st_nlink = isDirectory ? 2 : 1;
        status.st_size = isDirectory ? 0 : 4096;
        return status;
    }
};

struct AttributeFs::Rule {
    std::string pattern;
    Use use;
    Fault fault;
};

struct AttributeFs::Session {
    // One request may be asleep in each thread (a slow file) while the others go on; the service has six threads.
    static constexpr int kThreads = 8;

    fuse_session* handle = nullptr;
    Descriptor stop;
    std::mutex receiving;     ///< one thread waits for the next request, so the others sleep undisturbed
    unsigned interrupts = 0;  ///< received so far; under receiving
    std::vector<std::thread> threads;
};

// What the kernel asks, as libfuse hands it over.
struct AttributeFs::Operations {
    static AttributeFs& Self(fuse_req_t request) { return *static_cast<AttributeFs*>(fuse_req_userdata(request)); }
    static int Caller(fuse_req_t request) { return static_cast<int>(fuse_req_ctx(request)->pid); }

    static void Lookup(fuse_req_t request, fuse_ino_t parent, const char* name) {
        AttributeFs& self = Self(request);
        fuse_entry_param entry{};
        {
            const std::lock_guard lock(self.mutex);
            const Node* directory = self.ByNumber(parent);
            const Node* node = directory == nullptr ? nullptr : directory->Child(name);
            if (node != nullptr && !node->isMissing) {
                entry.ino = node->number;
                entry.attr = node->Status();
            } else if (node != nullptr) {
                self.Record(*node, Kind::Open, {}, -ENOENT, Caller(request));
            }
        }
        if (entry.ino == 0) {
            fuse_reply_err(request, ENOENT);
        } else {
            fuse_reply_entry(request, &entry);
        }
    }

    static void GetAttr(fuse_req_t request, fuse_ino_t number, fuse_file_info* /*info*/) {
        AttributeFs& self = Self(request);
        std::optional<struct stat> status;
        {
            const std::lock_guard lock(self.mutex);
            if (const Node* node = self.ByNumber(number)) {
                status = node->Status();
            }
        }
        if (status) {
            fuse_reply_attr(request, &*status, 0);
        } else {
            fuse_reply_err(request, ENOENT);
        }
    }

    // Truncation, owner, mode and times: accepted, without effect.
    static void SetAttr(fuse_req_t request, fuse_ino_t number, struct stat* /*attr*/, int /*to_set*/,
                        fuse_file_info* info) {
        GetAttr(request, number, info);
    }

    static void OpenDirectory(fuse_req_t request, fuse_ino_t number, fuse_file_info* info) {
        AttributeFs& self = Self(request);
        auto names = std::make_unique<std::vector<std::pair<std::string, struct stat>>>();
        {
            const std::lock_guard lock(self.mutex);
            const Node* node = self.ByNumber(number);
            for (const Node* child : node == nullptr ? std::vector<Node*>() : node->children) {
                if (!child->isMissing) {
                    names->emplace_back(child->name, child->Status());
                }
            }
        }
        info->fh = reinterpret_cast<uint64_t>(names.release());
        fuse_reply_open(request, info);
    }

    static auto* Names(const fuse_file_info* info) {
        return std::bit_cast<std::vector<std::pair<std::string, struct stat>>*>(static_cast<uintptr_t>(info->fh));
    }

    static void ReadDirectory(fuse_req_t request, fuse_ino_t /*number*/, size_t size, off_t offset,
                              fuse_file_info* info) {
        const auto& names = *Names(info);
        std::string page(size, '\0');
        size_t used = 0;
        for (auto index = static_cast<size_t>(offset); index < names.size(); ++index) {
            const auto& [name, status] = names[index];
            const size_t room = size - used;
            const size_t needed =
                fuse_add_direntry(request, &page[used], room, name.c_str(), &status, static_cast<off_t>(index + 1));
            if (needed > room) {
                break;
            }
            used += needed;
        }
        fuse_reply_buf(request, page.data(), used);
    }

    static void ReleaseDirectory(fuse_req_t request, fuse_ino_t /*number*/, fuse_file_info* info) {
        delete Names(info);
        fuse_reply_err(request, 0);
    }

    static void Open(fuse_req_t request, fuse_ino_t number, fuse_file_info* info) {
        AttributeFs& self = Self(request);
        Fault fault;
        {
            const std::lock_guard lock(self.mutex);
            const Node* node = self.ByNumber(number);
            fault = node == nullptr || node->isMissing ? Fault::Error(ENOENT) : self.Judge(*node, Use::Open);
            if (node != nullptr) {
                self.Record(*node, Kind::Open, FlagText(info->flags), -fault.error, Caller(request));
            }
        }
        self.Pause(request, fault.delay);
        info->direct_io = 1;
        if (fault.error != 0) {
            fuse_reply_err(request, fault.error);
        } else {
            fuse_reply_open(request, info);
        }
    }

    static std::string FlagText(int flags) {
        constexpr const char* kAccess[] = {"read", "write", "read-write", "?"};
        std::string text = kAccess[flags & O_ACCMODE];
        text += (flags & O_SYNC) == O_SYNC ? " sync" : "";
        text += (flags & O_TRUNC) != 0 ? " truncate" : "";
        return text;
    }

    static void Read(fuse_req_t request, fuse_ino_t number, size_t size, off_t offset, fuse_file_info* /*info*/) {
        AttributeFs& self = Self(request);
        ReadHook hook;
        {
            const std::lock_guard lock(self.mutex);
            if (const Node* node = self.ByNumber(number)) {
                hook = node->onRead;
            }
        }
        const std::optional<std::string> computed = hook ? std::optional(hook()) : std::nullopt;
        Fault fault = Fault::Error(EIO);
        std::string text;
        {
            const std::lock_guard lock(self.mutex);
            if (const Node* node = self.ByNumber(number)) {
                fault = self.Judge(*node, Use::Read);
                const std::string& value = computed ? *computed : node->value;
                if (fault.error == 0 && static_cast<size_t>(offset) < value.size()) {
                    text = value.substr(static_cast<size_t>(offset), std::min(size, fault.atMost.value_or(size)));
                }
                const auto count = static_cast<int64_t>(text.size());
                self.Record(*node, Kind::Read, text, fault.error != 0 ? -fault.error : count, Caller(request));
            }
        }
        self.Pause(request, fault.delay);
        if (fault.error != 0) {
            fuse_reply_err(request, fault.error);
        } else {
            fuse_reply_buf(request, text.data(), text.size());
        }
    }

    static void Write(fuse_req_t request, fuse_ino_t number, const char* data, size_t size, off_t /*offset*/,
                      fuse_file_info* /*info*/) {
        AttributeFs& self = Self(request);
        Fault fault = Fault::Error(EIO);
        WriteHook hook;
        const std::string text(data, size);
        size_t count = 0;
        {
            const std::lock_guard lock(self.mutex);
            if (Node* node = self.ByNumber(number)) {
                fault = self.Judge(*node, Use::Write);
                count = std::min(size, fault.atMost.value_or(size));
                if (fault.error == 0) {
                    node->value = text.substr(0, count);
                    hook = node->onWrite;
                }
                self.Record(*node, Kind::Write, text, fault.error != 0 ? -fault.error : static_cast<int64_t>(count),
                            Caller(request));
            }
        }
        if (hook) {
            hook(text.substr(0, count));
        }
        self.Pause(request, fault.delay);
        if (fault.error != 0) {
            fuse_reply_err(request, fault.error);
        } else {
            fuse_reply_write(request, count);
        }
    }

    static fuse_lowlevel_ops Table() {
        fuse_lowlevel_ops table{};
        table.lookup = Lookup;
        table.getattr = GetAttr;
        table.setattr = SetAttr;
        table.opendir = OpenDirectory;
        table.readdir = ReadDirectory;
        table.releasedir = ReleaseDirectory;
        table.open = Open;
        table.read = Read;
        table.write = Write;
        return table;
    }
};

AttributeFs::AttributeFs(Journal& theJournal) : journal(theJournal) {
    Node& root = *nodes.emplace_back(std::make_unique<Node>());
    root.isDirectory = true;
    root.number = FUSE_ROOT_ID;
}

AttributeFs::~AttributeFs() {
    Unmount();
}

void AttributeFs::Mount(const std::string& directory) {
    char name[] = "ecall-sim";
    char* arguments[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    const fuse_lowlevel_ops table = Operations::Table();
    auto next = std::make_unique<Session>();
    next->handle = fuse_session_new(&args, &table, sizeof table, this);
    fuse_opt_free_args(&args);
    if (next->handle == nullptr || fuse_session_mount(next->handle, directory.c_str()) != 0) {
        const int error = errno;
        if (next->handle != nullptr) {
            fuse_session_destroy(next->handle);
        }
        throw std::runtime_error(std::string("mounting the attribute files: ") + strerror(error) +
                                 "; /dev/fuse must exist and be open to this user (mode 0666; in a container: "
                                 "--device /dev/fuse)");
    }
    // Without waiting: a request that poll has announced is gone again when its caller is killed meanwhile.
    fcntl(fuse_session_fd(next->handle), F_SETFL, O_NONBLOCK);
    next->stop = Descriptor(eventfd(0, EFD_CLOEXEC));
    session = std::move(next);
    stopped = false;
    for (int i = 0; i < Session::kThreads; ++i) {
        session->threads.emplace_back([this] { Serve(); });
    }
}

void AttributeFs::Unmount() {
    if (!session) {
        return;
    }
    {
        const std::lock_guard lock(mutex);
        stopped = true;
    }
    stopping.notify_all();
    eventfd_write(session->stop.Get(), 1);
    for (std::thread& thread : session->threads) {
        thread.join();
    }
    FreeKeptInterrupts();
    fuse_session_unmount(session->handle);
    fuse_session_destroy(session->handle);
    session.reset();
}

void AttributeFs::Serve() {
    fuse_buf buffer{};
    for (;;) {
        {
            const std::lock_guard turn(session->receiving);
            pollfd waits[] = {{session->stop.Get(), POLLIN, 0}, {fuse_session_fd(session->handle), POLLIN, 0}};
            while (poll(waits, 2, -1) < 0 && errno == EINTR) {
            }
            if (waits[0].revents != 0 || (waits[1].revents & (POLLERR | POLLHUP)) != 0) {
                break;
            }
            const int received = fuse_session_receive_buf(session->handle, &buffer);
            if (received == -EINTR || received == -EAGAIN) {
                continue;
            }
            if (received <= 0) {
                break;
            }
            session->interrupts += static_cast<const fuse_in_header*>(buffer.mem)->opcode == FUSE_INTERRUPT ? 1 : 0;
        }
        fuse_session_process_buf(session->handle, &buffer);
    }
    free(buffer.mem);
}

// libfuse keeps an interrupt whose request it does not know (any more), frees one of them with each later request, and
// loses the rest with the session. So there are as many later requests: of a kind that changes nothing here and has no
// answer.
void AttributeFs::FreeKeptInterrupts() {
    struct {
        fuse_in_header header{};
        fuse_forget_in body{};
    } request;
    request.header.len = sizeof request;
    request.header.opcode = FUSE_FORGET;
    request.header.nodeid = FUSE_ROOT_ID;
    fuse_buf buffer{};
    buffer.size = sizeof request;
    buffer.mem = &request;
    for (unsigned i = 0; i < session->interrupts; ++i) {
        fuse_session_process_buf(session->handle, &buffer);
    }
}

// Ends early when the file system stops and when the caller gets a signal: the kernel keeps even a killed one waiting
// for its answer.
void AttributeFs::Pause(void* slowRequest, std::chrono::milliseconds delay) {
    if (delay.count() == 0) {
        return;
    }
    const auto request = static_cast<fuse_req_t>(slowRequest);
    const auto wake = [](fuse_req_t /*request*/, void* self) { static_cast<AttributeFs*>(self)->WakePauses(); };
    fuse_req_interrupt_func(request, wake, this);
    {
        std::unique_lock lock(mutex);
        stopping.wait_until(lock, Journal::Clock::now() + delay,
                            [&] { return stopped || fuse_req_interrupted(request) != 0; });
    }
    fuse_req_interrupt_func(request, nullptr, nullptr);
}

void AttributeFs::WakePauses() {
    const std::lock_guard lock(mutex);
    stopping.notify_all();
}

Fault AttributeFs::Judge(const Node& node, Use use) {
    if (!node.isJournaled) {
        return {};
    }
    for (Rule& rule : rules) {
        if (rule.use == use && fnmatch(rule.pattern.c_str(), node.path.c_str(), 0) == 0 && rule.fault.Strikes()) {
            return rule.fault;
        }
    }
    return {};
}

void AttributeFs::Record(const Node& node, Kind kind, std::string text, int64_t result, int pid) {
    if (!node.isJournaled) {
        return;
    }
    Entry entry;
    entry.kind = kind;
    entry.subject = node.path;
    entry.text = std::move(text);
    entry.result = result;
    entry.pid = pid;
    journal.Append(std::move(entry));
}

AttributeFs::Node* AttributeFs::ByNumber(uint64_t number) const {
    if (number == 0 || number > nodes.size()) {
        return nullptr;
    }
    Node* node = nodes[number - 1].get();
    return node->isRemoved ? nullptr : node;
}

AttributeFs::Node* AttributeFs::Find(const std::string& path) const {
    Node* node = ByNumber(FUSE_ROOT_ID);
    for (size_t begin = 0; node != nullptr && begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin) {
            node = node->Child(std::string_view(path).substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return node;
}

AttributeFs::Node& AttributeFs::Known(const std::string& path) const {
    Node* node = Find(path);
    if (node == nullptr) {
        throw std::out_of_range("no attribute file " + path);
    }
    return *node;
}

AttributeFs::Node& AttributeFs::AddNode(const std::string& path, bool isDirectory) {
    if (Node* present = Find(path)) {
        return *present;
    }
    const size_t slash = path.rfind('/');
    Node& parent = slash == 0 || slash == std::string::npos ? *nodes.front() : AddNode(path.substr(0, slash), true);
    Node& node = *nodes.emplace_back(std::make_unique<Node>());
    node.path = path;
    node.name = path.substr(slash + 1);
    node.isDirectory = isDirectory;
    node.number = nodes.size();
    parent.children.push_back(&node);
    return node;
}

void AttributeFs::Add(const std::string& path, std::string value) {
    const std::lock_guard lock(mutex);
    AddNode(path, false).value = std::move(value);
}

void AttributeFs::AddSink(const std::string& path, WriteHook hook) {
    const std::lock_guard lock(mutex);
    Node& node = AddNode(path, false);
    node.isJournaled = false;
    node.onWrite = std::move(hook);
}

void AttributeFs::Remove(const std::string& path) {
    const std::lock_guard lock(mutex);
    Node& node = Known(path);
    for (const auto& other : nodes) {
        std::erase(other->children, &node);
        other->isRemoved |= other.get() == &node || other->path.starts_with(path + "/");
    }
}

bool AttributeFs::Has(const std::string& path) const {
    const std::lock_guard lock(mutex);
    return Find(path) != nullptr;
}

void AttributeFs::Set(const std::string& path, std::string value) {
    const std::lock_guard lock(mutex);
    Known(path).value = std::move(value);
}

std::string AttributeFs::Get(const std::string& path) const {
    const std::lock_guard lock(mutex);
    return Known(path).value;
}

void AttributeFs::OnWrite(const std::string& path, WriteHook hook) {
    const std::lock_guard lock(mutex);
    Known(path).onWrite = std::move(hook);
}

void AttributeFs::OnRead(const std::string& path, ReadHook hook) {
    const std::lock_guard lock(mutex);
    Known(path).onRead = std::move(hook);
}

void AttributeFs::SetMissing(const std::string& path, bool missing) {
    const std::lock_guard lock(mutex);
    Known(path).isMissing = missing;
}

void AttributeFs::AddFault(const std::string& pattern, Use use, Fault fault) {
    const std::lock_guard lock(mutex);
    rules.push_back({pattern, use, fault});
}

void AttributeFs::ClearFaults() {
    const std::lock_guard lock(mutex);
    rules.clear();
}
