/// A service that was started with -m, and a person at its console.
#ifndef CONSOLE_WORLD_H
#define CONSOLE_WORLD_H

#include <string>

#include "ServiceWorld.h"

/// Unless a test wants more, nobody but the main thread has anything to say: no input is watched, no relay used, and
/// the eCall service is idle and stays so.
struct ConsoleWorld : ServiceWorld {
    /// Starts peer and service and waits until the console waits for its first line. members: JSON members of the
    /// configuration, besides the quiet ones.
    void Start(const std::string& members = "");
    /// The same, but without the eCall service.
    void StartAlone(const std::string& members = "");
    /// Starts the service with the members alone, the peer as it is, and waits for the console.
    void StartAsConfigured(const std::string& members);

    /// Types a line and answers what its pass prints, from the line feed after the line on. Trace messages, which end
    /// in "\n\r", are among it. Must not be mixed with other input.
    std::string Type(const std::string& line);
    /// The same for several lines, one after the other; answers what the last one prints.
    std::string TypeAll(const std::vector<std::string>& lines);

  private:
    std::string AwaitPass(const std::string& end);

    size_t seen = 0;  ///< of the output
    int typed = 1000000;
};

/// What a missing number is answered with.
inline const std::string kNoNumber = "getIntParam : *piVal = 0 ==> bad parameter\n";

/// A line of a menu, padded to this width.
std::string Padded(std::string text, size_t width);

#endif
