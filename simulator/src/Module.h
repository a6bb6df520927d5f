/// One telematics module: its root, its hardware, its journal, and the service that runs on it.
///
///     TEST(EcallUIGpioEvent, AnEmergencyIsReadAtStart) {
///         Module module;                        // healthy, at rest
///         module.SetSensor(SensorStatus::Emergency);
///         module.StartService();
///         module.journal.Await(IsRead(module.devices.sensor + "/pwm_status"));
///     }
///
/// Must live inside the module's namespaces (RunInModuleNamespaces); one at a time. Everything may be prepared before
/// the service starts: attributes, faults, files, scripts. Constructor and verbs throw std::runtime_error when the
/// machine refuses something. All members may be used from any thread.
#ifndef MODULE_H
#define MODULE_H

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AttributeFs.h"
#include "Fault.h"
#include "Hardware.h"
#include "IoctlSupervisor.h"
#include "Journal.h"
#include "ModuleProcess.h"
#include "ModuleRoot.h"
#include "SystemLog.h"
#include "TraceTail.h"
#include "UeventSender.h"

enum class AttributeFiles {
    Journaled,  ///< served by the AttributeFs
    Plain,      ///< ordinary files, for measuring: no journal of them or of the trace, no faults, no hooks
};

/// What pwm_status shows.
enum class SensorStatus { Invalid = 0, NotDetected = 1, Normal = 2, Emergency = 3, NoInterrupt = 4 };

/// What a script of the module does when it is run. Begin and end are in the journal.
struct ScriptBehaviour {
    int exitStatus = 0;
    std::chrono::milliseconds duration{0};
    bool hangs = false;      ///< begins and never ends
    std::string commands{};  ///< shell lines run between begin and end
};

struct ModuleOptions {
    AttributeFiles attributeFiles = AttributeFiles::Journaled;
    DeviceNames devices{};
    bool allowSanitizerReports = false;
};

class Module {
  public:
    explicit Module(ModuleOptions options = {});
    /// Ends what runs. A sanitizer report of any process, or a process that ended unawaited, is a complaint.
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    const ModuleOptions options;
    const DeviceNames& devices = options.devices;
    Journal journal;
    ModuleRoot root;
    AttributeFs attributes{journal};
    IoctlSupervisor ioctls{journal, root.Path()};
    UeventSender uevents{journal};

    /// The service under test, as the host sees it: what the environment variable ECALLUI_SERVICE names, else what the
    /// build made.
    static std::string ServiceProgram();
    /// The client program for its parameters, as the host sees it; perhaps not built.
    static std::string ToolProgram();
    /// Starts that program. A previous one must have ended.
    ModuleProcess& StartService(std::vector<std::string> arguments = {}, bool hasInput = false);
    /// The service started last. Throws std::logic_error when there is none.
    ModuleProcess& Service();
    /// Kills the service and starts it again with the same arguments.
    ModuleProcess& RestartService();
    /// Starts any program of the machine in the module, under the service's conditions.
    ModuleProcess& Start(const std::string& program, std::vector<std::string> arguments = {}, bool hasInput = false);

    /// Attribute files, whichever kind they are.
    void SetAttribute(const std::string& path, const std::string& value);
    std::string Attribute(const std::string& path) const;
    std::string Sensor(const std::string& attribute) const { return devices.sensor + "/" + attribute; }
    std::string Led(const std::string& attribute) const { return devices.led + "/" + attribute; }
    std::string ButtonInterrupt(const std::string& attribute) const {
        return devices.buttonInterrupt + "/" + attribute;
    }

    /// The attribute changes without an event.
    void SetSensor(SensorStatus status);
    /// The attribute changes, then the driver's event comes.
    void SensorBecomes(SensorStatus status);
    /// The sensor driver says "INVALID" of what it sees; the attribute shows 0.
    void SensorIsInvalid() { SensorBecomes(SensorStatus::Invalid); }
    /// The button line changes level (1 is pressed, unless the button is active low), without an event.
    void SetButton(bool level);
    /// The line goes high, then the interrupt's event comes. ButtonRelease sends none: the driver reports presses.
    void ButtonPress();
    void ButtonRelease() { SetButton(false); }
    /// DTR of the serial port: attribute, then event.
    void DtrBecomes(bool asserted);

    /// Makes the script, or changes what it does from its next run on.
    void SetScript(const std::string& path, const ScriptBehaviour& behaviour = {});
    void RemoveScript(const std::string& path) { root.Remove(path); }

  private:
    void MountAttributes();
    void MakePlainAttributes();
    void SendDeviceEvent(const std::string& device, const std::string& event);
    void ScriptSaid(const std::string& report);
    void Complain(ModuleProcess& process);

    std::unique_ptr<SystemLog> systemLog;
    std::unique_ptr<TraceTail> traceTail;
    std::vector<std::string> serviceArguments;
    bool serviceHasInput = false;
    std::list<std::unique_ptr<ModuleProcess>> processes;
    ModuleProcess* service = nullptr;
};

using ComplaintHandler = std::function<void(const std::string& complaint)>;
/// Who receives what a Module finds wrong at its end. The default prints it and ends the process by abort; the tests'
/// main turns it into a failure. Answers the previous one. Not while a Module ends on another thread.
ComplaintHandler SetComplaintHandler(ComplaintHandler handler);

using EndHandler = std::function<void(const Module& module)>;
/// Who may look at a Module whose processes have ended and whose journal is complete; nobody by default. The tests'
/// main shows a failed test's journal by it. Set it before the first Module.
void SetEndHandler(EndHandler handler);

#endif
