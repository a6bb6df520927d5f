/// The commands of the tool, a function each. They write to the output, complain on standard error, and throw Failure.
#ifndef COMMANDS_H
#define COMMANDS_H

#include <chrono>
#include <string>
#include <vector>

#include "Failure.h"
#include "Output.h"
#include "UiClient.h"

/// What the command line says.
struct Options {
    std::string url = kDefaultUrl;
    bool json = false;
    double timeout = 0;              ///< seconds; 0: the client's own
    double interval = 1;             ///< seconds, of watch
    bool markdown = false;           ///< of list
    bool offline = false;            ///< of list
    std::string file;                ///< of check and load
    std::vector<std::string> words;  ///< names, or names and values
};

UiLimits LimitsOf(const Options& options);

ExitStatus CommandList(const Options& options, Output& output);
ExitStatus CommandGet(const Options& options, Output& output);
ExitStatus CommandSet(const Options& options, Output& output);
ExitStatus CommandVersion(const Options& options, Output& output);
ExitStatus CommandMicTest(const Options& options, Output& output);
ExitStatus CommandDump(const Options& options, Output& output);
ExitStatus CommandLoad(const Options& options, Output& output);
ExitStatus CommandCheck(const Options& options, Output& output);
ExitStatus CommandWatch(const Options& options, Output& output);

/// A line on standard error: "ecalluictl: MESSAGE".
void Complain(const std::string& message);
/// What a script finds on the output in place of a result: {"error": {"status": 3, "message": ...}}.
OrderedJson ErrorJson(ExitStatus status, const std::string& message);

#endif
