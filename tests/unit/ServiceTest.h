/// What tests of single units of the service share: its log, its files, and its end.
///
/// Their programs run in namespaces of their own, in a file system that looks like the module's, so the units' fixed
/// paths are theirs alone.
#ifndef SERVICE_TEST_H
#define SERVICE_TEST_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

constexpr char kTraceFolder[] = "/var/logs/ecall";
constexpr char kTraceFile[] = "/var/logs/ecall/XirEcallUIappSrvc_traces.txt";
constexpr char kConfigurationFile[] = "/data/etc/ecall/XirEcallUIappSrvc_Cfg.json";
constexpr char kStateFile[] = "/data/etc/ecall/XirEcallUIappSrvc_Status.bin";

/// What came out while something ran.
struct Logged {
    std::string console;              ///< standard output, as written
    std::vector<std::string> system;  ///< the system log, each with its priority: "5 text"
    std::string file;                 ///< what the live trace file holds afterwards, having been removed before

    /// The messages of the console, without their line ends.
    std::vector<std::string> ConsoleLines() const;
    /// The messages of the file, without stamp, source and line end.
    std::vector<std::string> Messages() const;
};
Logged LogOf(const std::function<void()>& run);

/// How a process ended that ran this.
struct Ended {
    int signal = 0;  ///< 0: it came to its end
    int status = 0;  ///< and then its exit status
    std::string errors;
    Logged logged;
};
Ended EndOf(const std::function<void()>& run);

std::optional<std::string> ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
/// A file, or a folder with all below.
void Remove(const std::string& path);
/// The names in the folder, sorted.
std::vector<std::string> FilesIn(const std::string& folder);

#endif
