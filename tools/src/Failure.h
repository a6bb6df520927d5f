/// How a command of the tool ends when it cannot do what it was asked.
#ifndef FAILURE_H
#define FAILURE_H

#include <array>
#include <stdexcept>
#include <string>

/// Exit statuses, stable for scripts.
enum ExitStatus { kDone, kRefused, kMisused, kNoService, kOtherPeer, kBadFile, kNoOutput };

/// What each means; the help and docs/ecalluictl.md say it in the same words.
constexpr std::array<const char*, kNoOutput + 1> kExitMeanings{
    "done",
    "the service refused or failed, or holds what cannot be told, or another value than it was given",
    "wrong command line, name or value; nothing was sent",
    "no service, the connection was lost, or no reply came in time",
    "another service listens there, another major version, or something that does not talk as the service does",
    "a file cannot be read or has errors; nothing was sent",
    "the output cannot be written: a closed pipe, a full disk",
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

/// kNoService of a service that has ended the connection.
struct ConnectionLost : Failure {
    explicit ConnectionLost(const std::string& message) : Failure(kNoService, message) {}
};

#endif
