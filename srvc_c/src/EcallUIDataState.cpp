// Whether a crash may call for help is one of these three bytes. The mutex may be held from reading them to
// storing them, RPC calls included, and is while the file is rewritten, so that no change is lost between two threads.
#include "EcallUIDataState.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include "EcallTools.h"
#include "File.h"
#include "Trace.h"

namespace {

constexpr char kStateFile[] = "/data/etc/ecall/XirEcallUIappSrvc_Status.bin";
constexpr std::size_t kRecordSize = sizeof(EcallUIState);
constexpr std::size_t kCrcSize = kStateFileSize - kRecordSize;

XirMutex StateMutex{"State"};
EcallUIState currentState;

unsigned ThreadId() {
    return static_cast<unsigned>(pthread_self());
}

std::array<uint8_t, kRecordSize> RecordBytes(const EcallUIState& state) {
    return {state.EcallAntennaSelected, state.EcallAntennaDetectionActivated, state.CanTriggerAutoEcall};
}

}  // namespace

StateFileAnswer ReadStateFileBytes(std::span<const uint8_t> bytes, EcallUIState& state) {
    if (bytes.size() < kStateFileSize) {
        return StateFileAnswer::TooShort;
    }
    if (Crc16(bytes.data(), kRecordSize) != (bytes[3] | bytes[4] << 8)) {
        return StateFileAnswer::Corrupted;
    }
    state = {bytes[0], bytes[1], bytes[2]};
    return StateFileAnswer::Sound;
}

std::array<uint8_t, kStateFileSize> MakeStateFileBytes(const EcallUIState& state) {
    const std::array<uint8_t, kRecordSize> record = RecordBytes(state);
    const uint16_t crc = Crc16(record.data(), kRecordSize);
    return {record[0], record[1], record[2], static_cast<uint8_t>(crc & 0xFF), static_cast<uint8_t>(crc >> 8)};
}

namespace {

void SaveUIStateFile() {
    EcallUITrace("SaveUIStateFile - Enter");
    const std::array<uint8_t, kStateFileSize> bytes = MakeStateFileBytes(currentState);
    const FileDescriptor file = OpenFile(kStateFile, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (file.IsOpen()) {
        if (write(file.get(), bytes.data(), kRecordSize) != ssize_t{kRecordSize}) {
            EcallUITraceError("Error writing the state structure in SaveState file");
        }
        if (write(file.get(), bytes.data() + kRecordSize, kCrcSize) != ssize_t{kCrcSize}) {
            EcallUITraceError("Error writing crc in the SaveState file");
        }
    } else {
        EcallUITraceError("fopen ERROR");
    }
    EcallUITrace("SaveUIStateFile - Exit");
}

/// Restores the state; true when the file's bytes were sound.
bool RestoreState(std::span<const uint8_t> bytes) {
    switch (ReadStateFileBytes(bytes, currentState)) {
        case StateFileAnswer::TooShort:
            EcallUITraceError("Error reading the configuration file");
            return false;
        case StateFileAnswer::Corrupted:
            EcallUITraceError("CRC error, file corrupted");
            return false;
        case StateFileAnswer::Sound:
            break;
    }
    EcallUITrace("pEcallUIStateSaved : ");
    // The first value is that of the second field; log readers know the line so.
    EcallUITrace("EcallUIState : EcallAntennaSelected=%d, EcallAntennaDetectionActivated=%d, CanTriggerAutoEcall=%d",
                 currentState.EcallAntennaDetectionActivated, currentState.EcallAntennaDetectionActivated,
                 currentState.CanTriggerAutoEcall);
    return true;
}

void LogChange(const EcallUIState& oldState, const EcallUIState& newState) {
    EcallUITrace("UI status changed");
    EcallUITrace("OLD UI STATE : EcallAntennaSelected=%d, EcallAntennaDetectionActivated=%d, CanTriggerAutoEcall=%d",
                 oldState.EcallAntennaSelected, oldState.EcallAntennaDetectionActivated, oldState.CanTriggerAutoEcall);
    EcallUITrace("NEW UI STATE : EcallAntennaSelected=%d, EcallAntennaDetectionActivated=%d, CanTriggerAutoEcall=%d",
                 newState.EcallAntennaSelected, newState.EcallAntennaDetectionActivated, newState.CanTriggerAutoEcall);
}

}  // namespace

void GetUIStateAndLock(EcallUIState& out, bool keepLocked) {
    if (!GetMutex(&StateMutex)) {
        EcallUITraceError("ERROR : GetMutex !!!!");
    }
    out = currentState;
    if (!keepLocked) {
        ReleaseMutex(&StateMutex);
    }
}

void SetUIStateAndUnlock(const EcallUIState& newState) {
    EcallUITrace("SetUIStateAndUnlock - Enter, thread = 0x%x", ThreadId());
    if (RecordBytes(newState) != RecordBytes(currentState)) {
        LogChange(currentState, newState);
        currentState = newState;
        SaveUIStateFile();
    }
    if (StateMutex.lockCount == 0) {
        EcallUITraceError("ERROR : ressource not locked !!!!");
    }
    ReleaseMutex(&StateMutex);
    EcallUITrace("SetUIStateAndUnlock - Exit, thread = 0x%x", ThreadId());
}

bool GetUIStateFromSavedFile() {
    EcallUITrace("GetUIStateFromSavedFile - Enter");
    if (!GetMutex(&StateMutex)) {
        EcallUITraceError("ERROR GetMutex");
    }
    bool isRestored = false;
    if (const FileDescriptor file = OpenFile(kStateFile, O_RDONLY); file.IsOpen()) {
        std::array<uint8_t, kStateFileSize> bytes;
        const ssize_t length = read(file.get(), bytes.data(), bytes.size());
        isRestored = RestoreState(std::span(bytes).first(length > 0 ? static_cast<std::size_t>(length) : 0));
    } else {
        EcallUITraceError("Error opening the configuration file");
    }
    ReleaseMutex(&StateMutex);
    EcallUITrace("GetUIStateFromSavedFile - Exit");
    return isRestored;
}
