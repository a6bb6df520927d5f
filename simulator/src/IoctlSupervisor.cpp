// The notification brings the arguments as numbers only: what they point to is read from the other process, and is only
// worth something if the notification is still valid afterwards, since its process id may have been given away anew.
// Each listener has one thread. It takes a notification at once and never sleeps on one: late answers wait in a list by
// their time, so a slow bus does not hold up the other threads of the service.
#include "IoctlSupervisor.h"

#include <fnmatch.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <net/if.h>
#include <poll.h>
#include <seccomp.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/uio.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>

namespace {

constexpr uint32_t kNetIoctl = 0x89F0;
constexpr char kBusDevices[] = "/dev/i2c-";
constexpr uint16_t kAmplifier = 0x72;
constexpr uint16_t kConverterWrite = 0x90;
constexpr uint16_t kConverterRead = 0x91;
constexpr uint8_t kConfigRegister = 1;

bool ReadFrom(pid_t pid, uint64_t address, void* out, size_t size) {
    iovec local{out, size};
    iovec remote{std::bit_cast<void*>(static_cast<uintptr_t>(address)), size};
    return size == 0 || process_vm_readv(pid, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size);
}

bool WriteTo(pid_t pid, uint64_t address, const std::string& data) {
    iovec local{const_cast<char*>(data.data()), data.size()};
    iovec remote{std::bit_cast<void*>(static_cast<uintptr_t>(address)), data.size()};
    return data.empty() || process_vm_writev(pid, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(data.size());
}

uint8_t ByteAt(const std::string& data, size_t index) {
    return static_cast<uint8_t>(data[index]);
}

std::string HexBytes(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        char code[4];
        snprintf(code, sizeof code, " %02x", static_cast<unsigned char>(byte));
        text += code;
    }
    return text;
}

}  // namespace

struct IoctlSupervisor::Request {
    pid_t pid = 0;
    int descriptor = -1;
    uint32_t command = 0;
    uint64_t argument = 0;
};

struct IoctlSupervisor::Message {
    uint16_t address = 0;
    uint16_t flags = 0;
    uint64_t buffer = 0;  ///< where the data lies in the other process
    std::string data;

    bool IsRead() const { return (flags & I2C_M_RD) != 0; }
    std::string Print() const {
        char head[48];
        snprintf(head, sizeof head, "%s 0x%02x flags 0x%04x:", IsRead() ? "read" : "write", address, flags);
        return head + HexBytes(data);
    }
};

struct IoctlSupervisor::Answer {
    int error = 0;  ///< errno or 0
    int value = 0;  ///< result of the call when error is 0
    std::chrono::milliseconds delay{0};
    std::vector<Message> writeBack;
};

IoctlSupervisor::IoctlSupervisor(Journal& theJournal, std::string theRoot)
    : journal(theJournal), root(std::move(theRoot)), stop(eventfd(0, EFD_CLOEXEC)) {}

IoctlSupervisor::~IoctlSupervisor() {
    eventfd_write(stop.Get(), 1);
    for (std::thread& thread : threads) {
        thread.join();
    }
}

std::vector<sock_filter> IoctlSupervisor::Filter() {
    const std::unique_ptr<void, void (*)(void*)> filter(seccomp_init(SCMP_ACT_ALLOW), seccomp_release);
    const Descriptor file(memfd_create("filter", MFD_CLOEXEC));
    // Only the low half of the command counts for the kernel, so only that is compared.
    for (const uint32_t command : {static_cast<uint32_t>(I2C_RDWR), kNetIoctl}) {
        const scmp_arg_cmp isCommand{1, SCMP_CMP_MASKED_EQ, 0xffffffff, command};
        seccomp_rule_add_array(filter.get(), SCMP_ACT_NOTIFY, SCMP_SYS(ioctl), 1, &isCommand);
    }
    seccomp_attr_set(filter.get(), SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_ALLOW);
    const bool isExported = seccomp_export_bpf(filter.get(), file.Get()) == 0;
    const auto size = static_cast<size_t>(std::max<off_t>(lseek(file.Get(), 0, SEEK_END), 0));
    std::vector<sock_filter> program(size / sizeof(sock_filter));
    const bool isRead = pread(file.Get(), program.data(), size, 0) == static_cast<ssize_t>(size);
    if (!isExported || !isRead || program.empty()) {
        throw std::runtime_error("building the ioctl filter failed");
    }
    return program;
}

void IoctlSupervisor::Serve(int listener) {
    const std::lock_guard lock(mutex);
    threads.emplace_back([this, owner = Descriptor(listener)] { Run(owner.Get()); });
}

// Answers that wait for their time, each for one listener.
class IoctlSupervisor::Outbox {
  public:
    explicit Outbox(int theListener) : listener(theListener) {}

    void Add(const seccomp_notif_resp& reply, std::chrono::milliseconds delay) {
        pending.emplace(Clock::now() + delay, reply);
    }
    // Sends what is due; answers the milliseconds until the next, -1 when there is none.
    int SendDue() {
        while (!pending.empty()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(pending.begin()->first - Clock::now());
            if (left.count() > 0) {
                return static_cast<int>(left.count());
            }
            seccomp_notify_respond(listener, &pending.begin()->second);
            pending.erase(pending.begin());
        }
        return -1;
    }

  private:
    using Clock = std::chrono::steady_clock;
    const int listener;
    std::multimap<Clock::time_point, seccomp_notif_resp> pending;
};

void IoctlSupervisor::Run(int listener) {
    Outbox outbox(listener);
    for (;;) {
        pollfd waits[] = {{stop.Get(), POLLIN, 0}, {listener, POLLIN, 0}};
        poll(waits, 2, outbox.SendDue());
        if (waits[0].revents != 0 || (waits[1].revents & (POLLHUP | POLLERR)) != 0) {
            return;
        }
        if (waits[1].revents != 0) {
            AnswerNext(listener, outbox);
        }
    }
}

void IoctlSupervisor::AnswerNext(int listener, Outbox& outbox) {
    seccomp_notif* notification = nullptr;
    seccomp_notify_alloc(&notification, nullptr);  // the kernel's record may be longer than the header's
    const std::unique_ptr<seccomp_notif, void (*)(seccomp_notif*)> owner(
        notification, [](seccomp_notif* record) { seccomp_notify_free(record, nullptr); });
    if (notification == nullptr || seccomp_notify_receive(listener, notification) != 0) {
        return;  // its process was killed in the meantime
    }
    const auto& arguments = notification->data.args;
    const Request request{static_cast<pid_t>(notification->pid), static_cast<int>(arguments[0]),
                          static_cast<uint32_t>(arguments[1]), arguments[2]};
    const std::string file = FileName(request);
    seccomp_notif_resp reply{};
    reply.id = notification->id;
    if (!file.starts_with(request.command == kNetIoctl ? "socket:" : kBusDevices)) {
        reply.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;  // no hardware of ours: the kernel knows what to say of it
        outbox.Add(reply, {});
        return;
    }
    Answer answer = request.command == kNetIoctl ? HandleNetwork(request) : HandleI2c(request, file);
    if (seccomp_notify_id_valid(listener, notification->id) != 0) {
        return;
    }
    for (const Message& message : answer.writeBack) {
        if (!WriteTo(request.pid, message.buffer, message.data)) {
            answer.error = EFAULT;
        }
    }
    reply.error = -answer.error;
    reply.val = answer.error != 0 ? 0 : answer.value;
    outbox.Add(reply, answer.delay);
}

// The file behind a descriptor of the process, as the process names it; empty when there is none.
std::string IoctlSupervisor::FileName(const Request& request) const {
    std::error_code error;
    const std::string link = "/proc/" + std::to_string(request.pid) + "/fd/" + std::to_string(request.descriptor);
    std::string name = std::filesystem::read_symlink(link, error).string();
    return name.starts_with(root) ? name.substr(root.size()) : name;
}

// False when the process's memory cannot be read.
bool IoctlSupervisor::ReadMessages(const Request& request, std::vector<Message>& messages) {
    i2c_rdwr_ioctl_data header{};
    if (!ReadFrom(request.pid, request.argument, &header, sizeof header) || header.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return false;
    }
    for (uint32_t i = 0; i < header.nmsgs; ++i) {
        i2c_msg raw{};
        if (!ReadFrom(request.pid, reinterpret_cast<uint64_t>(header.msgs + i), &raw, sizeof raw)) {
            return false;
        }
        Message message{raw.addr, raw.flags, reinterpret_cast<uint64_t>(raw.buf), std::string(raw.len, '\0')};
        if (!message.IsRead() && !ReadFrom(request.pid, message.buffer, message.data.data(), raw.len)) {
            return false;
        }
        messages.push_back(std::move(message));
    }
    return true;
}

IoctlSupervisor::Answer IoctlSupervisor::HandleI2c(const Request& request, const std::string& file) {
    std::vector<Message> messages;
    const bool isReadable = ReadMessages(request, messages);
    const Fault fault = Judge(Print(messages));
    Answer answer;
    answer.delay = fault.delay;
    answer.error = !isReadable ? EFAULT : fault.error != 0 ? fault.error : Transfer(messages);
    answer.value = static_cast<int>(messages.size());
    Entry entry;
    entry.kind = Kind::I2c;
    entry.pid = request.pid;
    entry.subject = file;
    entry.text = Print(messages);
    for (const Message& message : messages) {
        entry.bytes += message.data;
    }
    entry.result = answer.error != 0 ? -answer.error : answer.value;
    journal.Append(std::move(entry));
    if (answer.error == 0) {
        std::erase_if(messages, [](const Message& message) { return !message.IsRead(); });
        answer.writeBack = std::move(messages);
    }
    return answer;
}

std::string IoctlSupervisor::Print(const std::vector<Message>& messages) {
    std::string text;
    for (const Message& message : messages) {
        text += (text.empty() ? "" : "; ") + message.Print();
    }
    return text;
}

int IoctlSupervisor::Transfer(std::vector<Message>& messages) {
    const std::lock_guard lock(mutex);
    for (Message& message : messages) {
        if (const int error = TransferOne(message)) {
            return error;
        }
    }
    return 0;
}

int IoctlSupervisor::TransferOne(Message& message) {
    if (message.address == kAmplifier && !message.IsRead()) {
        WriteAmplifier(message.data);
        return 0;
    }
    if (message.address != kConverterWrite && message.address != kConverterRead) {
        return ENXIO;
    }
    if (message.IsRead()) {
        ReadConverter(message.data);
    } else {
        WriteConverter(message.data);
    }
    return 0;
}

void IoctlSupervisor::WriteAmplifier(const std::string& data) {
    for (size_t i = 1; i < data.size(); ++i) {
        amplifier[(ByteAt(data, 0) + i - 1) % amplifier.size()] = ByteAt(data, i);
    }
}

// The first byte chooses the register. A register takes effect with its second byte; one byte alone changes nothing.
void IoctlSupervisor::WriteConverter(const std::string& data) {
    if (!data.empty()) {
        converterPointer = ByteAt(data, 0);
    }
    if (data.size() >= 3 && converterPointer == kConfigRegister) {
        converterConfig = static_cast<uint16_t>(ByteAt(data, 1) << 8 | ByteAt(data, 2));
    }
}

void IoctlSupervisor::ReadConverter(std::string& data) const {
    const size_t channel = (converterConfig >> 12) % converterInput.size();
    const uint16_t value = converterPointer == kConfigRegister ? converterConfig : converterInput[channel];
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<char>(i % 2 == 0 ? value >> 8 : value & 0xff);
    }
}

IoctlSupervisor::Answer IoctlSupervisor::HandleNetwork(const Request& request) {
    Answer answer;
    ifreq interface {};
    uint32_t block[3] = {};
    const bool readable = ReadFrom(request.pid, request.argument, &interface, sizeof interface) &&
                          ReadFrom(request.pid, reinterpret_cast<uint64_t>(interface.ifr_data), block, sizeof block);
    Entry entry;
    entry.kind = Kind::NetIoctl;
    entry.pid = request.pid;
    entry.subject = std::string(interface.ifr_name, strnlen(interface.ifr_name, IFNAMSIZ));
    entry.text = "command " + std::to_string(block[2]);
    entry.bytes = std::string(reinterpret_cast<const char*>(block), sizeof block);
    const Fault fault = Judge(entry.subject + " " + entry.text);
    answer.delay = fault.delay;
    answer.error = !readable ? EFAULT : fault.error;
    entry.result = -answer.error;
    journal.Append(std::move(entry));
    return answer;
}

Fault IoctlSupervisor::Judge(const std::string& request) {
    const std::lock_guard lock(mutex);
    for (auto& [pattern, fault] : rules) {
        if (fnmatch(pattern.c_str(), request.c_str(), 0) == 0 && fault.Strikes()) {
            return fault;
        }
    }
    return {};
}

uint8_t IoctlSupervisor::AmplifierRegister(uint8_t number) const {
    const std::lock_guard lock(mutex);
    return amplifier[number];
}

void IoctlSupervisor::SetConverterInput(unsigned channel, uint16_t value) {
    const std::lock_guard lock(mutex);
    converterInput.at(channel) = value;
}

void IoctlSupervisor::AddFault(const std::string& pattern, Fault fault) {
    const std::lock_guard lock(mutex);
    rules.emplace_back(pattern, fault);
}

void IoctlSupervisor::ClearFaults() {
    const std::lock_guard lock(mutex);
    rules.clear();
}
