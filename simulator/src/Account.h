/// The journal in the words of a person who watches the unit: what the LED shows, which line changed, who called whom.
///
/// An Account only translates: entries in, lines out, in the same order, no file, clock or thread. Stories print these
/// lines and check themselves against these lines, so what is checked is what is seen.
#ifndef ACCOUNT_H
#define ACCOUNT_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Journal.h"

/// Whose doing a line of the account is.
enum class Who { Story, Unit, Kernel, Led, Line, Relay, Antenna, Rpc, Location, Script, Tool, Trace };

/// "led" and so on, at most 8 characters.
const char* WhoName(Who who);

struct AccountLine {
    std::chrono::nanoseconds time{0};  ///< since the journal's start
    Who who = Who::Story;
    std::string text;
};

/// What the LED device was last told. Duties and periods in nanoseconds; nothing before the first write.
struct LedDevice {
    bool lit = false;
    bool toggling = false;
    uint64_t period1 = 0, duty1 = 0, period2 = 0, duty2 = 0;
    uint64_t toggleMs = 0;
};

/// "25 %, steady", "90 % / 0 %, every 1000 ms" or "dark".
std::string LedText(const LedDevice& led);

/// A position as people read it.
struct PositionWords {
    double latitude = 0;  ///< this and the next in degrees
    double longitude = 0;
    double speed = 0;  ///< metres per second
    double heading = 0;
    bool valid = true;
    bool valid3dFix = true;
};

/// "position 48.1234 N 11.5678 E, 52 km/h, heading 87°", with ", 2D" or ", not valid" behind it where that is so.
std::string PositionText(const PositionWords& position);

class Account {
  public:
    /// The lines that one entry is worth: mostly none or one. Entries are handed over in their order.
    std::vector<AccountLine> Tell(const Entry& entry);
    /// What is due by that time without a further entry: a LED that was switched off and not on again.
    std::vector<AccountLine> Settle(std::chrono::nanoseconds now);

  private:
    std::optional<AccountLine> TellLed(const Entry& entry, const std::string& attribute);
    std::optional<AccountLine> TellAntenna(const Entry& entry);
    std::optional<AccountLine> TellWrite(const Entry& entry);
    std::optional<AccountLine> TellAny(const Entry& entry);
    bool IsNews(const AccountLine& line);

    LedDevice led;
    std::optional<std::chrono::nanoseconds> darkSince;  ///< switched off, which may be the start of a reprogramming
    /// Last told of the LED, of each line by its first word, and of positions by what stands before them. The relay is
    /// off at rest: the switch-off of a unit that has just started is no news.
    std::map<std::string, std::string> shown{{"audio", "audio relay off"}};
    std::string antennaLine;  ///< name last written to the line selector
};

#endif
