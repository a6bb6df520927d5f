/// Setting parameters, and telling what came of it.
#ifndef CHANGES_H
#define CHANGES_H

#include <vector>

#include "Commands.h"

/// What a parameter shall be; sensible for it.
struct Assignment {
    const ConfigurationField* field;
    UiValue value;
};

/// What became of it.
struct Change {
    const ConfigurationField* field;
    UiValue before;
    UiValue wanted;
    UiValue after;  ///< as the service answers when asked again
};

/// What is to be done with a parameter that has its value already.
enum class Existing { SendAll, SendDifferences };

/// Reads all first, then sets one after the other and reads each back. Throws Failure, which says what was set by then.
std::vector<Change> Apply(UiClient& client, const std::vector<Assignment>& assignments, Existing existing);

/// A line for each change; what differs from what was wanted, and what to know, goes to standard error.
void ShowChanges(const std::vector<Change>& changes, Output& output);
OrderedJson ChangesJson(const std::vector<Change>& changes);
/// kRefused when the service holds another value than was wanted.
ExitStatus StatusOf(const std::vector<Change>& changes);

#endif
