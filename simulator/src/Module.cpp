#include "Module.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace {

// Directories that the attribute file system serves, and single files of it in directories that it shares.
constexpr const char* kServedDirectories[] = {"/sys", "/run/utaimas", "/run/module"};
constexpr const char* kServedFiles[] = {line::kAntennaNumber, line::kAntennaDirection, line::kAntennaValue};
constexpr char kScriptReport[] = "/run/module/scripts";

struct EventRow {
    SensorStatus status;
    const char* event;
};
// As the sensor's driver words them.
constexpr EventRow kSensorEvents[] = {
    {SensorStatus::Invalid, "EVENT=INVALID"},
    {SensorStatus::NotDetected, "EVENT=SENSOR NOT DETECTED"},
    {SensorStatus::Normal, "EVENT=NORMAL"},
    {SensorStatus::Emergency, "EVENT=EMERGENCY"},
    {SensorStatus::NoInterrupt, "EVENT=INVALID_NO_IRQ"},
};

void PrintAndAbort(const std::string& complaint) {
    fprintf(stderr, "%s\n", complaint.c_str());
    abort();
}

ComplaintHandler& CurrentHandler() {
    static ComplaintHandler handler = PrintAndAbort;
    return handler;
}

EndHandler& CurrentEndHandler() {
    static EndHandler handler = [](const Module& /*module*/) {};
    return handler;
}

std::string BaseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool HoldsSanitizerReport(const std::string& errors) {
    return errors.find("Sanitizer") != std::string::npos || errors.find("runtime error:") != std::string::npos;
}

}  // namespace

ComplaintHandler SetComplaintHandler(ComplaintHandler handler) {
    return std::exchange(CurrentHandler(), std::move(handler));
}

void SetEndHandler(EndHandler handler) {
    CurrentEndHandler() = std::move(handler);
}

Module::Module(ModuleOptions theOptions) : options(std::move(theOptions)) {
    if (options.attributeFiles == AttributeFiles::Journaled) {
        MountAttributes();
    } else {
        MakePlainAttributes();
    }
    for (const char* script : {file::kAudioScript, file::kMicrophoneTestScript}) {
        SetScript(script);
    }
    systemLog = std::make_unique<SystemLog>(journal, root.Outside("/dev/log"));
    const std::string trace = root.Outside(file::kTrace);
    if (options.attributeFiles == AttributeFiles::Journaled) {
        traceTail = std::make_unique<TraceTail>(journal, root.Outside(file::kTraceDirectory), BaseName(trace));
    }
}

Module::~Module() {
    for (const auto& process : processes) {
        Complain(*process);
    }
    processes.clear();
    CurrentEndHandler()(*this);
}

void Module::Complain(ModuleProcess& process) {
    process.Kill();
    std::string complaint;
    if (const std::optional<int> end = process.UnexpectedEnd()) {
        complaint = process.Name() + " ended unexpectedly: " + PrintStatus(*end);
    }
    if (!options.allowSanitizerReports && HoldsSanitizerReport(process.Errors())) {
        complaint = process.Name() + " has a sanitizer's report on standard error";
    }
    if (!complaint.empty()) {
        CurrentHandler()(complaint + "\nIts standard error:\n" + process.Errors() + "\nThe journal's tail:\n" +
                         journal.Dump());
    }
}

void Module::MountAttributes() {
    for (AttributeRow& row : HealthyAttributes(devices)) {
        attributes.Add(row.path, std::move(row.value));
    }
    attributes.AddSink(kScriptReport, [this](const std::string& report) { ScriptSaid(report); });
    attributes.Mount(root.AttributeDirectory());
    for (const char* path : kServedDirectories) {
        root.Bind(root.AttributeDirectory() + path, path, false);
    }
    for (const char* path : kServedFiles) {
        root.Bind(root.AttributeDirectory() + path, path, false);
    }
}

void Module::MakePlainAttributes() {
    for (const AttributeRow& row : HealthyAttributes(devices)) {
        root.WriteFile(row.path, row.value);
    }
    root.WriteFile(kScriptReport, "");
}

std::string Module::ServiceProgram() {
    const char* chosen = getenv("ECALLUI_SERVICE");
    return chosen != nullptr ? chosen : ECALLUI_SERVICE_PROGRAM;
}

std::string Module::ToolProgram() {
    return ECALLUI_TOOL_PROGRAM;
}

ModuleProcess& Module::StartService(std::vector<std::string> arguments, bool hasInput) {
    if (service != nullptr && service->IsRunning()) {
        throw std::logic_error("the service runs already");
    }
    serviceArguments = arguments;
    serviceHasInput = hasInput;
    service = &Start(ServiceProgram(), std::move(arguments), hasInput);
    return *service;
}

ModuleProcess& Module::Service() {
    if (service == nullptr) {
        throw std::logic_error("no service was started");
    }
    return *service;
}

ModuleProcess& Module::RestartService() {
    Service().Kill();
    return StartService(serviceArguments, serviceHasInput);
}

ModuleProcess& Module::Start(const std::string& program, std::vector<std::string> arguments, bool hasInput) {
    ProcessOptions start;
    start.name = BaseName(program);
    start.program = root.Install(program);
    start.arguments = std::move(arguments);
    start.hasInput = hasInput;
    processes.push_back(std::make_unique<ModuleProcess>(journal, ioctls, root.Path(), std::move(start)));
    return *processes.back();
}

void Module::SetAttribute(const std::string& path, const std::string& value) {
    if (options.attributeFiles == AttributeFiles::Journaled) {
        attributes.Set(path, value);
    } else {
        root.WriteFile(path, value);
    }
}

std::string Module::Attribute(const std::string& path) const {
    return options.attributeFiles == AttributeFiles::Journaled ? attributes.Get(path)
                                                               : root.ReadFile(path).value_or("");
}

void Module::SetSensor(SensorStatus status) {
    SetAttribute(Sensor("pwm_status"), std::to_string(static_cast<int>(status)) + "\n");
}

void Module::SensorBecomes(SensorStatus status) {
    SetSensor(status);
    for (const EventRow& row : kSensorEvents) {
        if (row.status == status) {
            SendDeviceEvent(devices.sensor, row.event);
        }
    }
}

void Module::SetButton(bool level) {
    SetAttribute(line::kButton, level ? "1\n" : "0\n");
}

void Module::ButtonPress() {
    SetButton(true);
    SendDeviceEvent(devices.buttonInterrupt, "EVENT=ECALL ACTIVATED");
}

void Module::DtrBecomes(bool asserted) {
    SetAttribute(line::kDtr, asserted ? "0\n" : "1\n");
    SendDeviceEvent("/sys/devices/e4a00000.usif2", asserted ? "EVENT=DTR ACTIVATED" : "EVENT=DTR INACTIVATED");
}

void Module::SendDeviceEvent(const std::string& device, const std::string& event) {
    const std::string path = device.substr(sizeof "/sys" - 1);
    uevents.Send({"change@" + path, "ACTION=change", "DEVPATH=" + path, "SUBSYSTEM=platform", event});
}

void Module::SetScript(const std::string& path, const ScriptBehaviour& behaviour) {
    const std::string name = BaseName(path);
    const auto seconds = std::to_string(static_cast<double>(behaviour.duration.count()) / 1000.0);
    std::string text = "#!/bin/sh\necho \"" + name + " begin $*\" >" + kScriptReport + "\n" + behaviour.commands + "\n";
    text += behaviour.duration.count() > 0 ? "sleep " + seconds + "\n" : "";
    text += behaviour.hangs ? "sleep infinity\n" : "";
    const std::string status = std::to_string(behaviour.exitStatus);
    text += "echo \"" + name + " end " + status + "\" >" + kScriptReport + "\nexit " + status + "\n";
    root.WriteFile(path, text, 0755);
}

// "launch-audio-for-ecall.sh begin start" and a line end.
void Module::ScriptSaid(const std::string& report) {
    const size_t blank = report.find(' ');
    const size_t end = report.find_last_not_of(" \n");
    if (blank != std::string::npos && end > blank) {
        journal.Append(Kind::Script, report.substr(0, blank), report.substr(blank + 1, end - blank));
    }
}
