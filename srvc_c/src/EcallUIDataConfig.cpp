// Loading, saving and printing walk the table of the fields. What a file's bytes mean is in EcallUIDataJson.
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
#include "EcallUIDataJson.h"
#include "File.h"
#include "Trace.h"

EcallUIConfiguration EcallUI_Configuration;

namespace {

XirMutex CfgMutex{"Cfg"};

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

void TraceField(const char* indent, const char* label, const ConfigurationField& field,
                const EcallUIConfiguration& configuration) {
    std::visit([&](auto member) { EcallUITrace("%s%s = %s", indent, label, ValueText(configuration.*member).c_str()); },
               field.member);
}

}  // namespace

// Loading.

namespace {

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
    if (length >= 0 && static_cast<std::size_t>(length) <= kLongestConfiguration) {
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
    const FileDescriptor file = OpenFile(kConfigurationPath, O_RDONLY);
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
        TraceField("   ", field.key, field, EcallUI_Configuration);
    }
}

}  // namespace

bool ReadConfigurationText(std::string_view text, EcallUIConfiguration& configuration) {
    std::size_t end = 0;
    const Json json = ParseConfiguration(text, end);
    if (!json) {
        return false;
    }
    for (const ConfigurationField& field : ConfigurationFields()) {
        const cJSON* const found = cJSON_GetObjectItem(json.get(), field.key);
        if (found != nullptr && ReadConfigurationMember(*found, field.member, configuration)) {
            TraceField("", field.loadLabel, field, configuration);
        }
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
    FileDescriptor file = OpenFile(kConfigurationPath, O_RDWR | O_CREAT | O_TRUNC, 0666);
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
