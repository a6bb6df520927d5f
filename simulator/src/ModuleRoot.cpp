// A directory becomes read-only before it is put in its place: later, a file that is open for writing forbids it.
// Device nodes cannot be made here: the machine's are bound over empty files.
#include "ModuleRoot.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "Descriptor.h"

namespace fs = std::filesystem;

namespace {

// Where it may lie: directories that every Debian has and nobody runs programs from.
constexpr const char* kPlaces[] = {"/mnt", "/media", "/srv", "/opt"};
constexpr const char* kDirectories[] = {"/data/etc/ecall", "/dev/shm",        "/etc/init.d", "/proc",
                                        "/root",           "/run/utaimas",    "/sys",        "/tmp",
                                        "/usr/bin",        "/var/logs/ecall", "/var/tmp"};
constexpr const char* kDevices[] = {"null", "zero", "full", "random", "urandom", "tty"};
constexpr const char* kSystemDirectories[] = {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"};
constexpr const char* kUsrDirectories[] = {"/usr/lib",     "/usr/lib32", "/usr/lib64", "/usr/libx32",
                                           "/usr/libexec", "/usr/sbin",  "/usr/share"};
constexpr const char* kLoaderFiles[] = {"/etc/ld.so.cache", "/etc/ld.so.conf", "/etc/ld.so.conf.d"};
constexpr char kPrograms[] = "/usr/host-bin";

void Check(bool good, const std::string& what) {
    if (!good) {
        throw std::runtime_error(what + ": " + strerror(errno));
    }
}

bool LiesBelow(const std::string& path, const std::string& directory) {
    return (path + "/").starts_with(directory + "/");
}

std::string ChoosePlace() {
    std::error_code error;
    const std::string here = fs::current_path(error).string();
    const std::string program = fs::read_symlink("/proc/self/exe", error).string();
    for (const char* place : kPlaces) {
        if (fs::is_directory(place, error) && !LiesBelow(here, place) && !LiesBelow(program, place)) {
            return place;
        }
    }
    throw std::runtime_error("no directory left to mount the module's root on: /mnt, /media, /srv or /opt must exist");
}

}  // namespace

ModuleRoot::ModuleRoot() : base(ChoosePlace()), root(base + "/root"), attributes(base + "/attributes") {
    Check(mount("module", base.c_str(), "tmpfs", MS_NOSUID, "mode=0755") == 0, "mounting the module's root");
    try {
        fs::create_directories(attributes);
        for (const char* directory : kDirectories) {
            MakeDirectory(directory);
        }
        BindSystem();
        LinkPrograms();
        MakeDevices();
        WriteFile("/etc/passwd", "root:x:0:0:root:/root:/bin/sh\n");
        WriteFile("/etc/group", "root:x:0:\n");
        fs::permissions(Outside("/tmp"), fs::perms::all | fs::perms::sticky_bit);
    } catch (...) {
        umount2(base.c_str(), MNT_DETACH);
        throw;
    }
}

ModuleRoot::~ModuleRoot() {
    umount2(base.c_str(), MNT_DETACH);
}

void ModuleRoot::BindSystem() {
    for (const char* directory : kSystemDirectories) {
        if (fs::is_symlink(directory)) {
            fs::copy_symlink(directory, Outside(directory));
        } else if (fs::exists(directory)) {
            Bind(directory, directory, true);
        }
    }
    for (const char* path : kUsrDirectories) {
        if (fs::is_directory(path) && !fs::is_symlink(path)) {
            Bind(path, path, true);
        }
    }
    for (const char* path : kLoaderFiles) {
        if (fs::exists(path)) {
            Bind(path, path, true);
        }
    }
    Bind("/proc", "/proc", false);
}

// The module adds programs of its own to /usr/bin, so that is a directory of links to the machine's.
void ModuleRoot::LinkPrograms() {
    Bind("/usr/bin", kPrograms, true);
    for (const auto& entry : fs::directory_iterator("/usr/bin")) {
        const std::string name = entry.path().filename().string();
        Check(symlink((std::string(kPrograms) + "/" + name).c_str(), Outside("/usr/bin/" + name).c_str()) == 0,
              "linking /usr/bin/" + name);
    }
}

void ModuleRoot::MakeDevices() {
    for (const char* name : kDevices) {
        Bind(std::string("/dev/") + name, std::string("/dev/") + name, false);
    }
    fs::create_symlink("/proc/self/fd", Outside("/dev/fd"));
    // The bus needs no driver: the ioctl never reaches the file.
    WriteFile("/dev/i2c-2", "");
}

std::optional<std::string> ModuleRoot::ReadFile(const std::string& path) const {
    std::ifstream file(Outside(path), std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void ModuleRoot::WriteFile(const std::string& path, const std::string& content, mode_t mode) {
    fs::create_directories(fs::path(Outside(path)).parent_path());
    std::ofstream file(Outside(path), std::ios::binary | std::ios::trunc);
    file << content << std::flush;
    Check(file.good(), "writing " + path);
    Check(chmod(Outside(path).c_str(), mode) == 0, "setting the mode of " + path);
}

void ModuleRoot::MakeDirectory(const std::string& path) {
    fs::create_directories(Outside(path));
}
void ModuleRoot::Remove(const std::string& path) {
    fs::remove_all(Outside(path));
}
bool ModuleRoot::Exists(const std::string& path) const {
    return fs::exists(fs::symlink_status(Outside(path)));
}

void ModuleRoot::Bind(const std::string& outside, const std::string& path, bool readOnly) {
    const std::string target = Outside(path);
    if (fs::is_directory(outside)) {
        fs::create_directories(target);
    } else if (!fs::exists(target)) {
        WriteFile(path, "");
    }
    const Descriptor tree(open_tree(AT_FDCWD, outside.c_str(),
                                    OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | static_cast<unsigned>(AT_RECURSIVE)));
    Check(tree.IsOpen(), "binding " + outside);
    if (readOnly) {
        mount_attr change{};
        change.attr_set = MOUNT_ATTR_RDONLY;
        Check(mount_setattr(tree.Get(), "", AT_EMPTY_PATH, &change, sizeof change) == 0,
              "making " + path + " read-only");
    }
    Check(move_mount(tree.Get(), "", AT_FDCWD, target.c_str(), MOVE_MOUNT_F_EMPTY_PATH) == 0, "binding " + outside);
}

std::string ModuleRoot::Install(const std::string& program) {
    const fs::path real = fs::canonical(program);
    if (real.parent_path() == "/usr/bin") {
        return real.string();
    }
    std::string path = "/usr/bin/" + fs::path(program).filename().string();
    std::error_code error;
    if (!fs::equivalent(real, Outside(path), error)) {
        umount2(Outside(path).c_str(), MNT_DETACH);  // another program of this name, or nothing
        Remove(path);
        Bind(real.string(), path, true);
    }
    return path;
}

void ModuleRoot::LimitSpace(const std::string& directory, size_t bytes) {
    const std::string options = "mode=0755,size=" + std::to_string(bytes);
    Check(mount("limited", Outside(directory).c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) == 0,
          "limiting " + directory);
}

void ModuleRoot::MakeReadOnly(const std::string& directory) {
    const std::string target = Outside(directory);
    Bind(target, directory, true);
}

void ModuleRoot::Restore(const std::string& directory) {
    Check(umount2(Outside(directory).c_str(), MNT_DETACH) == 0, "restoring " + directory);
}
