/// How a command of the tool ends when it cannot do what it was asked.
#ifndef FAILURE_H
#define FAILURE_H

#include <stdexcept>
#include <string>

/// Exit statuses; documented in docs/ecalluictl.md, stable for scripts.
enum ExitStatus {
    kDone = 0,
    kRefused = 1,    ///< the service refused, failed, or holds another value than it was given
    kMisused = 2,    ///< command line, name or value; nothing was sent
    kNoService = 3,  ///< nobody listens, the connection was lost, or no reply came in time
    kOtherPeer = 4,  ///< who listens is another service, another version, or talks nonsense
    kBadFile = 5,    ///< a file that cannot be read, or has errors; nothing was sent
    kNoOutput = 6,   ///< the output could not be written
};

/// Names the value and the remedy.
struct Failure : std::runtime_error {
    Failure(ExitStatus what, const std::string& message) : std::runtime_error(message), status(what) {}
    ExitStatus status;
};

/// kNoService of a service that is there, but has not answered in time.
struct NoReply : Failure {
    explicit NoReply(const std::string& message) : Failure(kNoService, message) {}
};

#endif
