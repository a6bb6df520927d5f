/// The command line: which commands there are, what each takes, and what may come next while it is typed.
#ifndef COMMAND_LINE_H
#define COMMAND_LINE_H

#include <string>
#include <vector>

/// Runs the program. words: without the program's own name. Answers the exit status; never throws.
int RunCommandLine(std::vector<std::string> words);

/// What may stand in place of the last word, given those before it; the last one may be empty. One that means "a file"
/// is "@files".
std::vector<std::string> Candidates(const std::vector<std::string>& words);

#endif
