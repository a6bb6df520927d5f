// The attribute files as a program of the module meets them, here reached from outside by the same paths.
#include "AttributeFs.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <future>
#include <thread>

#include "Descriptor.h"
#include "Module.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

// Opens a file of the module as the service does.
Descriptor Open(const Module& module, const std::string& path, int flags = O_RDWR | O_SYNC) {
    return Descriptor(open(module.root.Outside(path).c_str(), flags | O_CLOEXEC));
}

// What a fresh read gets; its errno as text when it fails.
std::string ReadOnce(const Module& module, const std::string& path) {
    const Descriptor file = Open(module, path, O_RDONLY);
    char text[64];
    const ssize_t count = file.IsOpen() ? read(file.Get(), text, sizeof text) : -1;
    return count < 0 ? strerrorname_np(errno) : std::string(text, static_cast<size_t>(count));
}

// 0 or the errno of the open or the write; the count must be the whole text's or shorter by the fault.
int WriteOnce(const Module& module, const std::string& path, const std::string& text, ssize_t* count = nullptr) {
    const Descriptor file = Open(module, path);
    const ssize_t written = file.IsOpen() ? write(file.Get(), text.data(), text.size()) : -1;
    if (count != nullptr) {
        *count = written;
    }
    return written < 0 ? errno : 0;
}

std::vector<std::string> List(const Module& module, const std::string& directory) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(module.root.Outside(directory))) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

}  // namespace

TEST(AttributeFs, ServesEveryFileOfAHealthyModule) {
    const Module module;

    const std::vector<AttributeRow> rows = HealthyAttributes(module.devices);

    EXPECT_EQ(37U, rows.size());
    for (const AttributeRow& row : rows) {
        EXPECT_EQ(row.value, ReadOnce(module, row.path)) << row.path;
        EXPECT_EQ(0, WriteOnce(module, row.path, "1")) << row.path;
        EXPECT_EQ("1", module.attributes.Get(row.path)) << row.path;
    }
}

TEST(AttributeFs, JournalsOpenReadAndWriteInOrderWithValueAndResult) {
    Module module;

    ReadOnce(module, line::kBatteryPresent);
    WriteOnce(module, line::kRelay, "1");

    std::vector<std::string> seen;
    for (const Entry& entry : module.journal.All()) {
        seen.push_back(std::string(KindName(entry.kind)) + " " + entry.subject.substr(entry.subject.find("gpio/")) +
                       " " + entry.text + " " + std::to_string(entry.result));
        EXPECT_NE(0, entry.pid);
    }
    EXPECT_THAT(
        seen, ElementsAre("Open gpio/bat-present/value read 0", "Read gpio/bat-present/value 1\n 2",
                          "Open gpio/lte-ecall-relay/value read-write sync 0", "Write gpio/lte-ecall-relay/value 1 1"));
}

TEST(AttributeFs, EachReadFromTheStartIsFresh) {
    Module module;
    const Descriptor file = Open(module, line::kButton, O_RDONLY);
    char text[2];
    ASSERT_EQ(2, pread(file.Get(), text, 2, 0));
    EXPECT_EQ('0', text[0]);

    module.attributes.Set(line::kButton, "1\n");

    ASSERT_EQ(2, pread(file.Get(), text, 2, 0));
    EXPECT_EQ('1', text[0]);
}

TEST(AttributeFs, AReadEndsAtTheValuesEnd) {
    Module module;
    module.attributes.Set(line::kAdc1, "450000\n");
    const Descriptor file = Open(module, line::kAdc1, O_RDONLY);
    char text[4];

    EXPECT_EQ(4, read(file.Get(), text, 4));
    EXPECT_EQ(3, read(file.Get(), text, 4));
    EXPECT_EQ(0, read(file.Get(), text, 4));
}

TEST(AttributeFs, EachWriteIsAWholeValue) {
    Module module;
    const Descriptor file = Open(module, module.Led("cfg1_duty"));

    ASSERT_EQ(6, write(file.Get(), "500000", 6));
    ASSERT_EQ(1, write(file.Get(), "1", 1));

    EXPECT_EQ("1", module.attributes.Get(module.Led("cfg1_duty")));
    EXPECT_THAT(module.journal.Texts(IsWritten(module.Led("cfg1_duty"))), ElementsAre("500000", "1"));
}

TEST(AttributeFs, TruncationChangesNothing) {
    Module module;
    const Descriptor file = Open(module, line::kRelay, O_WRONLY | O_TRUNC);
    ASSERT_TRUE(file.IsOpen());

    EXPECT_EQ(0, ftruncate(file.Get(), 0));

    EXPECT_EQ("0\n", module.attributes.Get(line::kRelay));
    EXPECT_EQ(0U, module.journal.Count(IsWritten(line::kRelay)));
}

TEST(AttributeFs, AFileShowsTheSizeOfAPage) {
    const Module module;
    struct stat status {};

    ASSERT_EQ(0, stat(module.root.Outside(line::kRelay).c_str(), &status));

    EXPECT_EQ(4096, status.st_size);
    EXPECT_TRUE(S_ISREG(status.st_mode));
}

TEST(AttributeFs, APollDoesNotHang) {
    const Module module;
    const Descriptor file = Open(module, line::kButton, O_RDONLY);
    pollfd wait{file.Get(), POLLIN, 0};

    EXPECT_EQ(1, poll(&wait, 1, -1));
}

TEST(AttributeFs, DirectoriesListTheirEntriesInTheOrderOfAdding) {
    Module module;
    module.attributes.Add("/sys/devices/vantu_pwm_led.9/enable", "0");

    EXPECT_THAT(List(module, "/sys/devices"),
                ElementsAre("vantu_pwm_led.1", "vantu_pwm.0", "ecall_isr.2", "vantu_pwm_led.9"));
}

TEST(AttributeFs, ALongDirectoryIsListedWhole) {
    Module module;
    constexpr size_t kFiles = 1000;
    for (size_t i = 0; i < kFiles; ++i) {
        module.attributes.Add("/sys/class/many/a-rather-long-name-of-a-file-" + std::to_string(i), "");
    }

    EXPECT_EQ(kFiles, List(module, "/sys/class/many").size());
}

TEST(AttributeFs, TheDevicesMayHaveOtherSuffixes) {
    ModuleOptions options;
    options.devices = {"/sys/devices/vantu_pwm.5", "/sys/devices/vantu_pwm_led.6", "/sys/devices/ecall_isr.7"};

    const Module module(options);

    EXPECT_EQ("2\n", ReadOnce(module, "/sys/devices/vantu_pwm.5/pwm_status"));
    EXPECT_THAT(List(module, "/sys/devices"), UnorderedElementsAre("vantu_pwm.5", "vantu_pwm_led.6", "ecall_isr.7"));
}

TEST(AttributeFs, ARemovedDeviceIsGoneAlsoForItsOpenFiles) {
    Module module;
    const Descriptor file = Open(module, module.Sensor("pwm_status"), O_RDONLY);

    module.attributes.Remove(module.devices.sensor);

    char byte = 0;
    EXPECT_EQ(-1, pread(file.Get(), &byte, 1, 0));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ("ENOENT", ReadOnce(module, module.Sensor("pwm_status")));
    EXPECT_THAT(List(module, "/sys/devices"), ElementsAre("vantu_pwm_led.1", "ecall_isr.2"));
    EXPECT_FALSE(module.attributes.Has(module.devices.sensor));
    EXPECT_THROW(module.attributes.Set(module.Sensor("pwm_status"), "2"), std::out_of_range);
}

TEST(AttributeFs, ARemovedDeviceMayComeBack) {
    Module module;
    module.attributes.Remove(module.devices.sensor);

    module.attributes.Add(module.Sensor("pwm_status"), "3");

    EXPECT_EQ("3", ReadOnce(module, module.Sensor("pwm_status")));
}

TEST(AttributeFs, AMissingFileCannotBeOpenedUntilItIsBack) {
    Module module;
    for (const char* path : {line::kRelay, line::kAntennaNumber}) {
        module.attributes.SetMissing(path);
        EXPECT_EQ(ENOENT, WriteOnce(module, path, "1")) << path;
        EXPECT_EQ(-ENOENT, module.journal.All(IsOpened(path)).back().result) << path;
        EXPECT_EQ(0U, module.journal.Count(IsWritten(path)));

        module.attributes.SetMissing(path, false);
        EXPECT_EQ(0, WriteOnce(module, path, "1")) << path;
    }
}

TEST(AttributeFs, EachUseFailsWithTheErrorAskedFor) {
    Module module;
    module.attributes.AddFault(line::kRelay, Use::Open, Fault::Error(EACCES));
    module.attributes.AddFault(line::kNlock, Use::Write, Fault::Error(EIO));
    module.attributes.AddFault(line::kButton, Use::Read, Fault::Error(EIO));

    EXPECT_EQ(EACCES, WriteOnce(module, line::kRelay, "1"));
    EXPECT_EQ(EIO, WriteOnce(module, line::kNlock, "1"));
    EXPECT_EQ("EIO", ReadOnce(module, line::kButton));

    EXPECT_EQ("0\n", module.attributes.Get(line::kNlock)) << "a failed write stores nothing";
    EXPECT_EQ(-EACCES, module.journal.All(IsOpened(line::kRelay)).back().result);
    EXPECT_EQ(-EIO, module.journal.All(IsWritten(line::kNlock, "1")).back().result);
    EXPECT_EQ(-EIO, module.journal.All(IsRead(line::kButton)).back().result);
    EXPECT_EQ(0, WriteOnce(module, line::kAmplifierMute, "1")) << "the others go on";
}

TEST(AttributeFs, AFaultOfOneUseLeavesTheOthers) {
    Module module;
    module.attributes.AddFault(line::kRelay, Use::Write, Fault::Error(EIO));

    EXPECT_EQ("0\n", ReadOnce(module, line::kRelay));
}

TEST(AttributeFs, AReadCanBeEmpty) {
    Module module;
    module.attributes.AddFault(line::kButton, Use::Read, Fault::AtMost(0));

    EXPECT_EQ("", ReadOnce(module, line::kButton));
}

TEST(AttributeFs, AWriteCanBeCutShort) {
    Module module;
    module.attributes.AddFault(module.Led("cfg1_duty"), Use::Write, Fault::AtMost(3));
    ssize_t count = 0;

    EXPECT_EQ(0, WriteOnce(module, module.Led("cfg1_duty"), "500000", &count));

    EXPECT_EQ(3, count);
    EXPECT_EQ("500", module.attributes.Get(module.Led("cfg1_duty")));
    EXPECT_EQ(3, module.journal.All(IsWritten(module.Led("cfg1_duty"), "500000")).back().result);
}

TEST(AttributeFs, AFaultCanStrikeTheSecondTimeOnly) {
    Module module;
    module.attributes.AddFault(line::kRelay, Use::Write, Fault::Error(EIO).FromThe(2).Once());

    EXPECT_EQ(0, WriteOnce(module, line::kRelay, "1"));
    EXPECT_EQ(EIO, WriteOnce(module, line::kRelay, "0"));
    EXPECT_EQ(0, WriteOnce(module, line::kRelay, "0"));
}

TEST(AttributeFs, AFaultOfAllFilesCountsTheirUsesTogether) {
    Module module;
    module.attributes.AddFault("*", Use::Open, Fault::Error(EIO).FromThe(3));

    EXPECT_EQ(0, WriteOnce(module, line::kRelay, "1"));
    EXPECT_EQ(0, WriteOnce(module, line::kNlock, "1"));
    EXPECT_EQ(EIO, WriteOnce(module, module.Led("enable"), "1"));

    module.attributes.ClearFaults();
    EXPECT_EQ(0, WriteOnce(module, module.Led("enable"), "1"));
}

TEST(AttributeFs, ASlowFileDelaysItsCaller) {
    Module module;
    constexpr auto kDelay = 50ms;
    module.attributes.AddFault(line::kRelay, Use::Write, Fault::Slow(kDelay));
    const auto begin = Journal::Clock::now();

    EXPECT_EQ(0, WriteOnce(module, line::kRelay, "1"));

    EXPECT_GE(Journal::Clock::now() - begin, kDelay);
    EXPECT_EQ("1", module.attributes.Get(line::kRelay));
}

TEST(AttributeFs, ASlowFileLetsItsCallerBeKilled) {
    Module module;
    module.attributes.AddFault(line::kRelay, Use::Open, Fault::Slow(24h));
    ModuleProcess& probe = module.Start(MODULE_PROBE, {"read", line::kRelay});
    module.journal.Await(IsOpened(line::kRelay));

    probe.Kill();

    EXPECT_FALSE(probe.IsRunning());
}

TEST(AttributeFs, ASlowFileHoldsUpNoOther) {
    std::future<void> waiting;  // goes after the module, with whose file system its wait ends
    Module module;
    module.attributes.AddFault(line::kRelay, Use::Write, Fault::Slow(24h));
    waiting = std::async(std::launch::async, [&] { WriteOnce(module, line::kRelay, "1"); });
    module.journal.Await(IsWritten(line::kRelay));

    EXPECT_EQ(0, WriteOnce(module, line::kNlock, "1"));

    EXPECT_EQ(std::future_status::timeout, waiting.wait_for(0s));
    module.attributes.Unmount();
    waiting.wait();
}

TEST(AttributeFs, AHookSeesEachWriteBeforeItsCallerGoesOn) {
    Module module;
    module.attributes.OnWrite(line::kAntennaValue, [&](const std::string& value) {
        module.attributes.Set(line::kAdc1, value == "hi" ? "450000\n" : "0\n");
    });

    WriteOnce(module, line::kAntennaValue, "lo");
    EXPECT_EQ("0\n", ReadOnce(module, line::kAdc1));
    WriteOnce(module, line::kAntennaValue, "hi");
    EXPECT_EQ("450000\n", ReadOnce(module, line::kAdc1));
}

TEST(AttributeFs, AHookCanAnswerReads) {
    Module module;
    std::atomic<int> count = 0;
    module.attributes.OnRead(line::kButton, [&] { return std::to_string(++count); });

    EXPECT_EQ("1", ReadOnce(module, line::kButton));
    EXPECT_EQ("2", ReadOnce(module, line::kButton));
    EXPECT_THAT(module.journal.Texts(IsRead(line::kButton)), ElementsAre("1", "2"));
}

TEST(AttributeFs, ASinkIsNotJournaled) {
    Module module;
    std::atomic<bool> wasHeard = false;
    module.attributes.AddSink("/run/module/sink", [&](const std::string& text) { wasHeard = text == "a word"; });

    WriteOnce(module, "/run/module/sink", "a word");

    EXPECT_TRUE(wasHeard);
    EXPECT_THAT(module.journal.All(), IsEmpty());
}

TEST(AttributeFs, AnswersNobodyOnceItIsUnmounted) {
    Module module;
    const Descriptor file = Open(module, line::kRelay);

    module.attributes.Unmount();

    EXPECT_EQ(-1, write(file.Get(), "1", 1));
    EXPECT_EQ(ENOTCONN, errno);
}

TEST(AttributeFs, CallersKilledInMidCallDoNotHoldUpTheEnd) {
    for (int round = 0; round < 50; ++round) {
        Module module;
        const std::string path = module.root.Outside(line::kButton);
        std::vector<pid_t> callers(8);
        for (pid_t& caller : callers) {
            caller = fork();
            if (caller == 0) {
                for (;;) {  // system calls only: the child of a threaded process
                    close(open(path.c_str(), O_RDONLY | O_CLOEXEC));
                }
            }
        }
        module.journal.AwaitCount(callers.size(), {.kind = Kind::Open});

        for (const pid_t caller : callers) {
            kill(caller, SIGKILL);
        }
        for (const pid_t caller : callers) {
            waitpid(caller, nullptr, 0);
        }
    }
}

TEST(AttributeFs, ManyCallersAtOnceGetTheirOwnAnswers) {
    Module module;
    std::vector<std::thread> callers;
    for (const char* path : {line::kRelay, line::kNlock, line::kAmplifierMute, line::kAmplifierStandby}) {
        callers.emplace_back([&module, path] {
            for (int i = 0; i < 100; ++i) {
                const std::string value = std::to_string(i);
                ASSERT_EQ(0, WriteOnce(module, path, value));
                ASSERT_EQ(value, ReadOnce(module, path));
            }
        });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }

    EXPECT_EQ(400U, module.journal.Count(IsKind(Kind::Write)));
    EXPECT_EQ(400U, module.journal.Count(IsKind(Kind::Read)));
}

TEST(AttributeFs, ThePlainVariantHoldsTheSameFiles) {
    ModuleOptions options;
    options.attributeFiles = AttributeFiles::Plain;
    Module module(options);

    for (const AttributeRow& row : HealthyAttributes(module.devices)) {
        EXPECT_EQ(row.value, ReadOnce(module, row.path)) << row.path;
    }
    module.SetSensor(SensorStatus::Emergency);
    EXPECT_EQ("3\n", ReadOnce(module, module.Sensor("pwm_status")));
    EXPECT_EQ("3\n", module.Attribute(module.Sensor("pwm_status")));
    EXPECT_THAT(module.journal.All(), IsEmpty());
}
