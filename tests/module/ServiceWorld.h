/// A module with its eCall service and the unmodified service between them; what tests of the whole service share.
#ifndef SERVICE_WORLD_H
#define SERVICE_WORLD_H

#include <string>
#include <vector>

#include "EcallPeer.h"
#include "Module.h"

struct ServiceWorld {
    Module module;
    EcallPeer peer{module.journal};

    /// Writes a configuration file with these JSON members; all others keep their defaults.
    void Configure(const std::string& members);
    /// Starts peer and service, and waits until the service waits for events.
    void Start();
    /// Waits until a service that is starting waits for events.
    void AwaitReady(uint64_t from = 0);
    /// Waits until start-up is over: the service waits for events, and the main thread has come to its loop, where it
    /// says nothing more.
    void AwaitRest();
    /// The airbag fires; true when the eCall service is asked for one automatic call, and the call begins.
    bool IsCrashReported();

    /// The messages of the live trace file, without stamp and source.
    std::vector<std::string> TraceMessages();
    /// What the service itself wrote to the system log so far.
    std::vector<std::string> SystemLog();
    void AwaitSystemLog();
};

// The whole message, or the whole name of the method.
Match IsTracedAs(std::string message);
Match IsInSyslogAs(std::string message);
Match IsReplyTo(std::string method);

/// What a thread of the service sleeps for, once it sleeps; waits for that. name: as the kernel shows it.
std::chrono::nanoseconds AwaitSleep(const ModuleProcess& process, const std::string& name);

/// Whether a thread of the service sleeps just now.
bool IsAsleep(const ModuleProcess& process, const std::string& name);

/// Waits until a thread of the service waits for another one, such as for a lock.
void AwaitLockWait(const ModuleProcess& process, const std::string& name);
/// The same for one that writes more at once than a pipe holds, such as to a console that nobody reads.
void AwaitLongWrite(const ModuleProcess& process, const std::string& name);

#endif
