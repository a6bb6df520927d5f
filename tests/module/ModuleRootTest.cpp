// The module's file system, seen by its processes and from outside.
#include "ModuleRoot.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "Module.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr char kWord[] = "/data/etc/ecall/word";

std::string RunShell(Module& module, const std::string& command) {
    ModuleProcess& probe = module.Start(MODULE_PROBE, {"run", command});
    EXPECT_EQ(0, probe.WaitForEnd());
    return probe.Output();
}

}  // namespace

TEST(ModuleRoot, HoldsADirectoryForEverythingTheServiceTouches) {
    const Module module;

    for (const char* directory : {"/data/etc/ecall", "/var/logs/ecall", "/tmp", "/etc/init.d", "/run/utaimas", "/sys",
                                  "/dev", "/proc/self", "/usr/bin"}) {
        EXPECT_TRUE(std::filesystem::is_directory(module.root.Outside(directory))) << directory;
    }
}

TEST(ModuleRoot, ProcessesHaveItAsTheirRoot) {
    Module module;
    module.root.WriteFile(kWord, "found\n");

    EXPECT_EQ("found\nrun 0\n\r", RunShell(module, std::string("cat ") + kWord));
    RunShell(module, "echo made >/data/etc/ecall/answer");

    EXPECT_EQ("made\n", module.root.ReadFile("/data/etc/ecall/answer"));
    EXPECT_FALSE(std::filesystem::exists(kWord)) << "the machine's own root must not change";
}

TEST(ModuleRoot, DevicesWork) {
    Module module;

    EXPECT_EQ("4\nrun 0\n\r", RunShell(module, "head -c 4 /dev/urandom | wc -c; echo lost >/dev/null"));
}

TEST(ModuleRoot, TheMachinesProgramsAndLibrariesAreReadOnly) {
    Module module;

    EXPECT_EQ("run 0\n\r", RunShell(module, "! touch /usr/lib/x 2>/dev/null && ! touch /usr/host-bin/x 2>/dev/null"));
}

TEST(ModuleRoot, ProcIsThatOfTheModulesOwnProcesses) {
    Module module;

    EXPECT_EQ("ecall-module\nrun 0\n\r",
              RunShell(module, "echo ecall-module; test $(ls -d /proc/[0-9]* | wc -l) -lt 8"));
}

TEST(ModuleRoot, FilesCanBeWrittenReadAndTakenAway) {
    Module module;

    module.root.WriteFile("/data/new/deep/file", std::string("a\0b", 3), 0600);

    EXPECT_EQ(std::string("a\0b", 3), module.root.ReadFile("/data/new/deep/file"));
    struct stat status {};
    ASSERT_EQ(0, stat(module.root.Outside("/data/new/deep/file").c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 0777U);
    module.root.Remove("/data/new");
    EXPECT_FALSE(module.root.Exists("/data/new"));
    EXPECT_EQ(std::nullopt, module.root.ReadFile("/data/new/deep/file"));
    EXPECT_NO_THROW(module.root.Remove("/data/new"));
}

TEST(ModuleRoot, AFullDiskRefusesMoreWithNoSpaceLeft) {
    Module module;
    constexpr size_t kSize = 65536;
    module.root.LimitSpace(file::kTraceDirectory, kSize);

    EXPECT_THAT(RunShell(module, "head -c 100000 /dev/zero >/var/logs/ecall/big 2>&1 || echo full"), HasSubstr("full"));
    EXPECT_EQ(kSize, std::filesystem::file_size(module.root.Outside("/var/logs/ecall/big")));

    module.root.Restore(file::kTraceDirectory);
    EXPECT_FALSE(module.root.Exists("/var/logs/ecall/big"));
    EXPECT_EQ("run 0\n\r", RunShell(module, "head -c 100000 /dev/zero >/var/logs/ecall/big"));
}

TEST(ModuleRoot, AReadOnlyDirectoryShowsWhatItHoldsAndRefusesChanges) {
    Module module;
    module.root.WriteFile("/var/logs/ecall/old", "old\n");
    module.root.MakeReadOnly("/var/logs");

    EXPECT_EQ("old\nrun 0\n\r", RunShell(module, "cat /var/logs/ecall/old; ! touch /var/logs/ecall/new 2>/dev/null"));

    module.root.Restore("/var/logs");
    EXPECT_EQ("run 0\n\r", RunShell(module, "touch /var/logs/ecall/new"));
}

TEST(ModuleRoot, AnInstalledProgramIsTheMachinesOwn) {
    Module module;

    EXPECT_EQ("/usr/bin/module_probe", module.root.Install(MODULE_PROBE));
    EXPECT_EQ("/usr/bin/module_probe", module.root.Install(MODULE_PROBE)) << "once is enough";

    EXPECT_TRUE(std::filesystem::equivalent(MODULE_PROBE, module.root.Outside("/usr/bin/module_probe")));
}

TEST(ModuleRoot, AProgramTakesThePlaceOfAnotherOfItsName) {
    Module module;
    const std::filesystem::path other = module.root.Outside("/tmp/other/module_probe");
    module.root.WriteFile("/tmp/other/module_probe", "#!/bin/sh\necho the other\n", 0755);
    module.root.WriteFile("/tmp/other/cat", "#!/bin/sh\necho no cat\n", 0755);
    ASSERT_EQ(0, module.Start(MODULE_PROBE, {"say", "the probe"}).WaitForEnd());

    EXPECT_EQ(0, module.Start(other).WaitForEnd());
    EXPECT_EQ(0, module.Start(module.root.Outside("/tmp/other/cat")).WaitForEnd());
    EXPECT_EQ(0, module.Start(MODULE_PROBE, {"say", "the probe"}).WaitForEnd());

    EXPECT_THAT(module.journal.Texts(IsKind(Kind::Console)),
                ElementsAre("the probe", "the other", "no cat", "the probe"));
}

TEST(ModuleRoot, AProgramOfTheMachineIsThereAlready) {
    Module module;

    EXPECT_EQ("/usr/bin/env", module.root.Install("/usr/bin/env"));

    EXPECT_EQ(0, module.Start("/usr/bin/env", {"true"}).WaitForEnd());
}

TEST(ModuleRoot, TheNextModuleStartsAfresh) {
    {
        Module module;
        module.root.WriteFile(kWord, "old");
        module.SetAttribute(line::kRelay, "1");
    }

    const Module module;

    EXPECT_FALSE(module.root.Exists(kWord));
    EXPECT_EQ("0\n", module.Attribute(line::kRelay));
}

TEST(ModuleRoot, NothingIsLeftMountedAfterAModule) {
    const auto mounts = [] {
        const int fd = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
        std::string text;
        char page[4096];
        for (ssize_t count = 0; (count = read(fd, page, sizeof page)) > 0;) {
            text.append(page, static_cast<size_t>(count));
        }
        close(fd);
        return text;
    };
    const std::string before = mounts();
    {
        Module module;
        module.root.LimitSpace("/tmp", 4096);
        module.Start(MODULE_PROBE, {"wait"});
        EXPECT_NE(before, mounts());
    }

    EXPECT_EQ(before, mounts());
}
