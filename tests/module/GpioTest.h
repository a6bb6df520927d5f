/// What the tests of the hardware units share: the probe that performs single operations in a module, and readable
/// forms of what the module saw.
#ifndef GPIO_TEST_H
#define GPIO_TEST_H

#include <string>
#include <utility>
#include <vector>

#include "EcallPeer.h"
#include "Module.h"

using Texts = std::vector<std::string>;

/// Writes a configuration file with these members (values as JSON); all others keep their defaults.
void Configure(Module& module, const std::vector<std::pair<std::string, std::string>>& members);

/// What operations did.
struct Performed {
    Texts results;   ///< a line each: "GpioRead 2 = 1"
    Texts messages;  ///< HardwareMessages
    Texts sleeps;    ///< "slept 100 ms" for each wait of a fixed time
};
/// Performs operations of HardwareProbe in the module, in order, and waits for its end.
Performed Perform(Module& module, const std::vector<std::string>& operations);
/// The same, but does not wait.
ModuleProcess& StartPerforming(Module& module, std::vector<std::string> operations);

/// What the hardware units have said in the trace file so far. The line end of a message itself shows as an empty one.
Texts HardwareMessages(Module& module);

/// Every successful write to an attribute file from the mark on: "name = value". name: the path below the directory,
/// which must be a prefix of the written file's path.
Texts WritesBelow(Module& module, const std::string& directory, uint64_t from = 0);
/// All attribute writes, with the last part of the path that tells lines apart: "ecall-nlock/value = 1".
Texts Writes(Module& module, uint64_t from = 0);

/// The whole unit: module, eCall service (idle, not talked to yet) and, once started, our service. Analog microphone,
/// so no script runs.
struct Unit {
    Module module;
    EcallPeer peer{module.journal};
    Journal& journal = module.journal;

    /// Starts both services and waits until events are awaited. members: of the configuration, besides the microphone.
    void Start(const std::vector<std::pair<std::string, std::string>>& members = {});
    /// The same without the eCall service: connect is off.
    void StartAlone(std::vector<std::pair<std::string, std::string>> members = {});
    /// Lets the eCall service notify a state and waits until it was followed; answers a mark before it.
    uint64_t Notify(uint32_t serviceState, uint32_t audioOutState);
    /// Sends an event of some device and waits until it was handled; answers a mark before it.
    uint64_t Announce(const std::string& text);
    /// Waits until the event thread waits for the next event, seen from the mark on.
    void AwaitIdleEventThread(uint64_t from = 0);
    /// triggerEcall requests received by the eCall service, by their fields.
    Texts Triggers(uint64_t from = 0) const { return journal.Texts(IsRpcRequest("triggerEcall"), from); }
};

/// A request of Triggers.
constexpr char kAutomaticCall[] = "automatic=1";
constexpr char kManualCall[] = "automatic=0";

/// What survives a restart, as its file has it.
struct SavedState {
    bool antennaSelected = false;
    bool antennaDetection = false;
    bool canTrigger = true;
};
void SaveState(Module& module, const SavedState& state);
/// The state file's first three bytes, as "0 0 1".
std::string StateFile(Module& module);

#endif
