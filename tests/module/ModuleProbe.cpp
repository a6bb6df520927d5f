// Stands in for the service in the simulator's own tests: does what its arguments say, in order, and prints the
// results.
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/netlink.h>
#include <net/if.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

namespace {

const char* Outcome(bool good) {
    return good ? "ok" : strerror(errno);
}

// read PATH
void Read(char** words) {
    const int fd = open(words[0], O_RDONLY);
    char text[64] = {};
    const ssize_t count = fd < 0 ? -1 : read(fd, text, sizeof text - 1);
    printf("read %zd %s %s\n\r", count, Outcome(count >= 0), text);
    close(fd);
}

// write PATH TEXT
void Write(char** words) {
    const int fd = open(words[0], O_RDWR | O_SYNC);
    const ssize_t count = fd < 0 ? -1 : write(fd, words[1], strlen(words[1]));
    printf("write %zd %s\n\r", count, Outcome(count >= 0));
    close(fd);
}

// say TEXT, complain TEXT, syslog TEXT
void Say(char** words) {
    printf("%s\n\r", words[0]);
}
void Complain(char** words) {
    fprintf(stderr, "%s\n", words[0]);
}
void Log(char** words) {
    syslog(LOG_NOTICE, "%s", words[0]);
}

// append PATH TEXT
void Append(char** words) {
    FILE* file = fopen(words[0], "a");
    printf("append %s\n\r", Outcome(file != nullptr && fprintf(file, "%s\n", words[1]) > 0 && fclose(file) == 0));
}

// run COMMAND: by the shell
void Run(char** words) {
    const int status = system(words[0]);
    printf("run %d\n\r", WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

// put ADDRESS REGISTER VALUE: writes a register on the bus
void Put(char** words) {
    unsigned char data[2] = {static_cast<unsigned char>(strtoul(words[1], nullptr, 0)),
                             static_cast<unsigned char>(strtoul(words[2], nullptr, 0))};
    i2c_msg message{static_cast<__u16>(strtoul(words[0], nullptr, 0)), 0, sizeof data, data};
    i2c_rdwr_ioctl_data transfer{&message, 1};
    const int fd = open("/dev/i2c-2", O_RDWR);
    const int result = ioctl(fd, I2C_RDWR, &transfer);
    printf("put %d %s\n\r", result, Outcome(result >= 0));
    close(fd);
}

// convert CONFIG: writes the converter's configuration, high byte first, and reads its conversion register
void Convert(char** words) {
    const unsigned long config = strtoul(words[0], nullptr, 0);
    unsigned char setting[3] = {1, static_cast<unsigned char>(config >> 8), static_cast<unsigned char>(config & 0xff)};
    unsigned char number = 0;
    unsigned char value[2] = {};
    i2c_msg write{0x90, 0, sizeof setting, setting};
    i2c_msg read[2] = {{0x91, 0x4000, 1, &number}, {0x91, I2C_M_RD, sizeof value, value}};
    i2c_rdwr_ioctl_data first{&write, 1};
    i2c_rdwr_ioctl_data second{read, 2};
    const int fd = open("/dev/i2c-2", O_RDWR);
    const int results[] = {ioctl(fd, I2C_RDWR, &first), ioctl(fd, I2C_RDWR, &second)};
    printf("convert %d %d %02x%02x\n\r", results[0], results[1], value[0], value[1]);
    close(fd);
}

// recover COMMAND: the network interface's private ioctl, with junk in the upper half of the request number
void Recover(char** words) {
    unsigned block[3] = {0, 0, static_cast<unsigned>(strtoul(words[0], nullptr, 0))};
    ifreq request{};
    strcpy(request.ifr_name, "eth0");
    request.ifr_data = reinterpret_cast<char*>(block);
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int result = ioctl(fd, 0x7700000089F0UL, &request);
    printf("recover %d %s\n\r", result, Outcome(result == 0));
    close(fd);
}

// listen COUNT: prints uevents, their strings joined by blanks
void Listen(char** words) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = static_cast<__u32>(getpid());
    address.nl_groups = 0xFFFFFFFF;
    const int fd = socket(AF_NETLINK, SOCK_DGRAM, NETLINK_KOBJECT_UEVENT);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        printf("bind %s\n\r", strerror(errno));
    }
    printf("listening\n\r");
    for (int left = atoi(words[0]); left > 0; --left) {
        char text[4096] = {};
        sockaddr_nl sender{};
        socklen_t size = sizeof sender;
        const ssize_t count = recvfrom(fd, text, sizeof text, 0, reinterpret_cast<sockaddr*>(&sender), &size);
        for (ssize_t i = 0; i + 1 < count; ++i) {
            text[i] = text[i] == '\0' ? ' ' : text[i];
        }
        printf("uevent port %u groups %u: %s\n\r", sender.nl_pid, sender.nl_groups, text);
    }
    close(fd);
}

// passthrough: an ioctl that the kernel answers itself
void PassThrough(char** /*words*/) {
    ifreq request{};
    strcpy(request.ifr_name, "lo");
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const int result = ioctl(fd, SIOCGIFFLAGS, &request);
    printf("passthrough %d lo is %s\n\r", result, (request.ifr_flags & IFF_UP) != 0 ? "up" : "down");
    close(fd);
}

// wrongfile: a transfer on a file that is no bus
void WrongFile(char** /*words*/) {
    i2c_rdwr_ioctl_data transfer{nullptr, 0};
    const int fd = open("/dev/null", O_RDWR);
    printf("wrongfile %s\n\r", Outcome(ioctl(fd, I2C_RDWR, &transfer) >= 0));
    close(fd);
}

// badpointer: ioctls whose arguments lie nowhere
void BadPointer(char** /*words*/) {
    i2c_rdwr_ioctl_data transfer{reinterpret_cast<i2c_msg*>(8), 1};
    i2c_msg message{0x91, I2C_M_RD, 2, reinterpret_cast<__u8*>(8)};
    i2c_rdwr_ioctl_data transferOfNothing{&message, 1};
    const int fd = open("/dev/i2c-2", O_RDWR);
    for (void* argument :
         {static_cast<void*>(nullptr), static_cast<void*>(&transfer), static_cast<void*>(&transferOfNothing)}) {
        printf("badpointer %s\n\r", Outcome(ioctl(fd, I2C_RDWR, argument) >= 0));
    }
    close(fd);
}

int SendEvent(unsigned port, unsigned groups, bool withHeader) {
    struct {
        nlmsghdr header;
        char text[32];
    } message{};
    message.header.nlmsg_len = sizeof message;
    message.header.nlmsg_type = NLMSG_MIN_TYPE;
    message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    strcpy(message.text, "EVENT=EMERGENCY");
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    address.nl_groups = groups;
    const int fd = socket(AF_NETLINK, SOCK_DGRAM, NETLINK_KOBJECT_UEVENT);
    const void* begin = withHeader ? static_cast<const void*>(&message) : message.text;
    const size_t size = withHeader ? sizeof message : sizeof message.text;
    int error = sendto(fd, begin, size, 0, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0 ? errno : 0;
    if (error == 0 && withHeader) {
        struct {
            nlmsghdr header;
            nlmsgerr error;
            char original[256];
        } reply{};
        recv(fd, &reply, sizeof reply, 0);
        error = -reply.error.error;
    }
    close(fd);
    return error;
}

// forge PORT: sends an event to all listeners, to one, and through the kernel
void Forge(char** words) {
    const auto port = static_cast<unsigned>(strtoul(words[0], nullptr, 0));
    printf("multicast %s\n\r", strerror(SendEvent(0, 1, false)));
    printf("unicast %s\n\r", strerror(SendEvent(port, 0, false)));
    printf("relay %s\n\r", strerror(SendEvent(0, 0, true)));
}

// drop: gives up all capabilities
void Drop(char** /*words*/) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2] = {};
    printf("drop %s\n\r", Outcome(syscall(SYS_capset, &header, none) == 0));
}

// echo: a line of standard input
void Echo(char** /*words*/) {
    char text[256] = {};
    printf("echo %s", fgets(text, sizeof text, stdin) == nullptr ? "end\n" : text);
}

// env NAME
void Environment(char** words) {
    const char* value = getenv(words[0]);
    printf("env %s\n\r", value == nullptr ? "(none)" : value);
}

// signals: which are ignored or blocked; and the mode that new files do not get
void Signals(char** /*words*/) {
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    for (const int number : {SIGINT, SIGPIPE, SIGCHLD}) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        printf("signal %d %s%s\n\r", number, action.sa_handler == SIG_DFL ? "default" : "changed",
               sigismember(&blocked, number) == 1 ? " blocked" : "");
    }
    printf("umask %03o\n\r", umask(0));
}

// unfinished TEXT: without a line end
void Unfinished(char** words) {
    printf("%s", words[0]);
    fflush(stdout);
}

void Exit(char** words) {
    exit(atoi(words[0]));
}
void Abort(char** /*words*/) {
    abort();
}

// wait: for a signal
void Wait(char** /*words*/) {
    pause();
}

// tick: arms a timer that interrupts whatever runs, a thousand times a second
void Tick(char** /*words*/) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    sigevent notification{};
    notification.sigev_notify = SIGEV_SIGNAL;
    notification.sigev_signo = SIGALRM;
    timer_t timer = nullptr;
    timer_create(CLOCK_MONOTONIC, &notification, &timer);
    const itimerspec period{{0, 1'000'000}, {0, 1'000'000}};
    timer_settime(timer, 0, &period, nullptr);
}

struct Verb {
    std::string_view name;
    int words;
    void (*act)(char** words);
};
constexpr Verb kVerbs[] = {
    {"read", 1, Read},
    {"write", 2, Write},
    {"say", 1, Say},
    {"complain", 1, Complain},
    {"syslog", 1, Log},
    {"append", 2, Append},
    {"run", 1, Run},
    {"put", 3, Put},
    {"convert", 1, Convert},
    {"recover", 1, Recover},
    {"passthrough", 0, PassThrough},
    {"wrongfile", 0, WrongFile},
    {"badpointer", 0, BadPointer},
    {"listen", 1, Listen},
    {"forge", 1, Forge},
    {"drop", 0, Drop},
    {"echo", 0, Echo},
    {"env", 1, Environment},
    {"signals", 0, Signals},
    {"unfinished", 1, Unfinished},
    {"exit", 1, Exit},
    {"abort", 0, Abort},
    {"wait", 0, Wait},
    {"tick", 0, Tick},
};

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    for (int i = 1; i < argc; ++i) {
        const auto* verb = std::begin(kVerbs);
        while (verb != std::end(kVerbs) && verb->name != argv[i]) {
            ++verb;
        }
        if (verb == std::end(kVerbs) || i + verb->words >= argc) {
            fprintf(stderr, "bad verb %s\n", argv[i]);
            return 2;
        }
        verb->act(argv + i + 1);
        i += verb->words;
    }
    return 0;
}
