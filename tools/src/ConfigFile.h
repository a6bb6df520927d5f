/// Judges a configuration file: what the service would make of it, and what is wrong with it.
#ifndef CONFIG_FILE_H
#define CONFIG_FILE_H

#include <string>
#include <string_view>
#include <vector>

#include "EcallUIDataFields.h"
#include "JsonPlaces.h"

struct Finding {
    LineColumn place;
    bool isError;      ///< false: worth knowing, but the service does what the file says
    std::string text;  ///< names the key, and what the service makes of it
};

struct ConfigFileVerdict {
    std::vector<Finding> findings;                 ///< in the file's order, as a rule
    EcallUIConfiguration loaded;                   ///< what a service started with this file holds
    std::vector<const ConfigurationField*> given;  ///< fields that take their value from the file

    bool HasErrors() const;
};

/// After so many findings the file is no configuration, and the rest is left out.
constexpr size_t kMostFindings = 200;

ConfigFileVerdict JudgeConfigFile(std::string_view text);

/// The whole file; path "-": standard input. No more than one byte beyond what the service would read.
/// Throws Failure (kBadFile).
std::string ReadConfigFile(const std::string& path);

#endif
