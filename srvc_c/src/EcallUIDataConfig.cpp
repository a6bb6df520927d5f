// Loading, saving and printing walk the table of the fields. The trap is the file's bytes: they come from
// outside and may be anything, so the parser gets a length, an upper bound and no terminator to rely on.
#include "EcallUIDataConfig.h"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "EcallUIDataFields.h"
#include "File.h"
#include "Trace.h"

EcallUIConfiguration EcallUI_Configuration;

namespace {

constexpr char kConfigurationFile[] = "/data/etc/ecall/XirEcallUIappSrvc_Cfg.json";
constexpr long kLongestConfiguration = 1L << 20;  // bytes; ours has some 1,300

XirMutex CfgMutex{"Cfg"};

struct CjsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
    void operator()(char* text) const { cJSON_free(text); }
};
using Json = std::unique_ptr<cJSON, CjsonDeleter>;
using JsonText = std::unique_ptr<char, CjsonDeleter>;

// Each field from its JSON member; false when the member cannot stand for the field. Where the types differ, the
// member's integer value counts, which is 0 for a text, null, an array or an object.

template <typename Number>
bool ReadMember(const cJSON& member, Relaxed<Number>& field) {
    field = static_cast<Number>(member.valueint);
    return true;
}

template <std::size_t Capacity>
bool ReadMember(const cJSON& member, RelaxedText<Capacity>& field) {
    if (!cJSON_IsString(&member)) {
        return false;
    }
    field.set(member.valuestring);
    return true;
}

// Each field as a JSON member.

void WriteMember(cJSON& object, const char* key, const Relaxed<uint8_t>& field) {
    cJSON_AddBoolToObject(&object, key, field.get());
}

template <typename Number>
void WriteMember(cJSON& object, const char* key, const Relaxed<Number>& field) {
    cJSON_AddNumberToObject(&object, key, field.get());
}

template <std::size_t Capacity>
void WriteMember(cJSON& object, const char* key, const RelaxedText<Capacity>& field) {
    cJSON_AddStringToObject(&object, key, field.get().c_str());
}

// Each field's value as the log shows it.

template <typename Number>
auto ValueText(const Relaxed<Number>& field) {
    typename RelaxedText<12>::Copy copy;
    std::to_chars(copy.text.begin(), copy.text.end() - 1, field.get());
    return copy;
}

template <std::size_t Capacity>
auto ValueText(const RelaxedText<Capacity>& field) {
    return field.get();
}

}  // namespace

// Loading.

namespace {

/// Null when text is not JSON from its first byte to its last. The parser alone would take a NUL for white space.
Json ParseWhole(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return nullptr;
    }
    const char* end = nullptr;
    Json json(cJSON_ParseWithLengthOpts(text.data(), text.size(), &end, false));
    const bool isWhole = json && text.find_first_not_of(" \t\r\n", static_cast<std::size_t>(end - text.data())) ==
                                     std::string_view::npos;
    return isWhole ? std::move(json) : nullptr;
}

/// Measures the file as far as that works; negative when it does not.
long MeasureFile(const FileDescriptor& file) {
    if (lseek(file.get(), 0, SEEK_END) < 0) {
        EcallUITraceError("fseek, error=%s", strerror(errno));
        return -1;
    }
    const long length = lseek(file.get(), 0, SEEK_CUR);
    if (length < 0) {
        EcallUITraceError("ftell = %ld, error=%s", length, strerror(errno));
        return -1;
    }
    if (lseek(file.get(), 0, SEEK_SET) < 0) {
        EcallUITraceError("fseek, error=%s", strerror(errno));
        return -1;
    }
    return length;
}

/// Fills the buffer with at most two reads; what they do not reach stays as it is.
void ReadFile(const FileDescriptor& file, char* buffer, std::size_t length) {
    const ssize_t first = read(file.get(), buffer, length);
    const std::size_t start = first > 0 ? static_cast<std::size_t>(first) : 0;
    if (start < length) {
        [[maybe_unused]] const ssize_t second = read(file.get(), buffer + start, length - start);
    }
}

void LoadConfiguration(const FileDescriptor& file) {
    EcallUITrace("Read configuration file");
    const long length = MeasureFile(file);
    std::unique_ptr<char[]> buffer;
    if (length >= 0 && length <= kLongestConfiguration) {
        buffer.reset(new (std::nothrow) char[static_cast<std::size_t>(length)]());
    }
    if (!buffer) {
        EcallUITraceError("NO pBuf allocation");
        return;
    }
    ReadFile(file, buffer.get(), static_cast<std::size_t>(length));
    if (!ReadConfigurationText({buffer.get(), static_cast<std::size_t>(length)}, EcallUI_Configuration)) {
        EcallUITraceError("ERROR reading or parsing the configuration file");
    }
}

void LoadOrCreateConfiguration() {
    const FileDescriptor file = OpenFile(kConfigurationFile, O_RDONLY);
    if (file.IsOpen()) {
        LoadConfiguration(file);
    } else {
        EcallUITrace("No configuration file found, create a default one");
        SaveConfiguration();
    }
}

void PrintConfiguration() {
    EcallUITrace("Configuration of the application ");
    for (const ConfigurationField& field : ConfigurationFields()) {
        std::visit(
            [&](auto member) {
                EcallUITrace("   %s = %s", field.key, ValueText(EcallUI_Configuration.*member).c_str());
            },
            field.member);
    }
}

}  // namespace

bool ReadConfigurationText(std::string_view text, EcallUIConfiguration& configuration) {
    const Json json = ParseWhole(text);
    if (!json) {
        return false;
    }
    for (const ConfigurationField& field : ConfigurationFields()) {
        const cJSON* const found = cJSON_GetObjectItem(json.get(), field.key);
        std::visit(
            [&](auto member) {
                if (found != nullptr && ReadMember(*found, configuration.*member)) {
                    EcallUITrace("%s = %s", field.loadLabel, ValueText(configuration.*member).c_str());
                }
            },
            field.member);
    }
    return true;
}

void InitConfiguration() {
    EcallUITrace("InitConfiguration - Enter");
    if (GetMutex(&CfgMutex)) {
        LoadOrCreateConfiguration();
        ReleaseMutex(&CfgMutex);
    } else {
        EcallUITraceError("ERROR Getting the mutex");
    }
    SetTraceFileSizing(EcallUI_Configuration.NbTraceFileStored, EcallUI_Configuration.MaxSizeOfTraceFileInKb);
    PrintConfiguration();
    EcallUITrace("InitConfiguration - Exit");
}

// Saving.

namespace {

void FillJson(cJSON& object) {
    EcallUITrace("fill Json buffer");
    EcallUI_Configuration.JsonTimeStamp.set(CurrentDateTime());
    for (const ConfigurationField& field : ConfigurationFields()) {
        std::visit([&](auto member) { WriteMember(object, field.key, EcallUI_Configuration.*member); }, field.member);
    }
}

void WriteJsonFile(const cJSON& object) {
    FileDescriptor file = OpenFile(kConfigurationFile, O_RDWR | O_CREAT | O_TRUNC, 0666);
    if (!file.IsOpen()) {
        EcallUITraceError("ERROR : cannot create the configuration file");
        return;
    }
    const JsonText text(cJSON_Print(&object));
    if (!text) {
        EcallUITraceError("ERROR : cJSON_Print failed!");
        return;
    }
    const std::size_t length = strlen(text.get());
    const std::size_t written = WriteToFile(file, text.get(), length);
    if (written != length) {
        EcallUITraceError("ERROR fwrite : NbByteFile = %zu , sizeWritten = %zu", length, written);
    }
    if (file.Close() != 0) {
        EcallUITraceError("ERROR fclose !!!");
    }
}

}  // namespace

void SaveConfiguration() {
    EcallUITrace("SaveConfiguration - Enter");
    if (const Json object(cJSON_Parse("{}")); object) {
        FillJson(*object);
        WriteJsonFile(*object);
    } else {
        EcallUITraceError("Json error");
    }
    EcallUITrace("SaveConfiguration - Exit");
}
