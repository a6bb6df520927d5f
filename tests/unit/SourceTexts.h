/// The string literals of the project's sources, for tests that compare documents with what the programs say.
#ifndef SOURCE_TEXTS_H
#define SOURCE_TEXTS_H

#include <string>
#include <string_view>
#include <vector>

/// The file as it is. path: from the project's root.
std::string ReadProjectFile(const std::string& path);
/// Every .cpp and .h below the folders, one after the other. folders: from the project's root.
std::string ReadProjectSources(const std::vector<std::string>& folders);

/// The string literals of C++ text, as written, escapes and all; those that stand side by side are one. Comments and
/// characters are passed over. Raw strings are not known.
std::vector<std::string> LiteralsOf(std::string_view code);

#endif
