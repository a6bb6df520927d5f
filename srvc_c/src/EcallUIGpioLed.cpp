// A pattern is a sequence of attribute writes with the output off meanwhile. Each row of the sequence says which
// messages its failures have; several of them name another file or value than the one that failed, and stay so, since
// the people who read the logs know them by these texts.
#include "EcallUIGpioLed.h"

#include <fcntl.h>

#include <array>
#include <cstdio>

#include "EcallUIData.h"
#include "EcallUIGpio.h"
#include "EcallUIGpioFile.h"
#include "Trace.h"

namespace {

constexpr std::size_t kLedPathSize = 256;
constexpr std::size_t kLedTextSize = 64;
using LedText = std::array<char, kLedTextSize>;

enum class Complaint {
    OpenEnableWithPath,
    OpenEnable,
    OpenCfg,
    OpenToggle,
    OpenPeriod,
    OpenDutyCycle,
    WriteEnable,
    WriteValue,
    WriteValueWithoutPath,
    WriteOne,
};

struct LedStep {
    const char* attribute;
    Complaint onOpen;
    Complaint onWrite;
};

constexpr LedStep kDisable{"enable", Complaint::OpenEnableWithPath, Complaint::WriteEnable};
constexpr LedStep kEnable{"enable", Complaint::OpenEnable, Complaint::WriteEnable};
constexpr LedStep kChooseCfg{"cfg", Complaint::OpenCfg, Complaint::WriteValue};
constexpr LedStep kCfg1Period{"cfg1_period", Complaint::WriteValue, Complaint::WriteValue};
constexpr LedStep kCfg1Duty{"cfg1_duty", Complaint::WriteValueWithoutPath, Complaint::WriteValue};
constexpr LedStep kSteady{"toggle", Complaint::OpenToggle, Complaint::WriteOne};
constexpr LedStep kCfg2Period{"cfg2_period", Complaint::OpenPeriod, Complaint::WriteValue};
constexpr LedStep kCfg2Duty{"cfg2_duty", Complaint::OpenDutyCycle, Complaint::WriteValue};
constexpr LedStep kToggleTime{"toggle_time", Complaint::OpenDutyCycle, Complaint::WriteValue};
constexpr LedStep kToggle{"toggle", Complaint::OpenDutyCycle, Complaint::WriteOne};

void Complain(Complaint complaint, const char* path, const char* text) {
    switch (complaint) {
        case Complaint::OpenEnableWithPath:
            EcallUITraceError("Unable to open pwm led enable file : %s\n", path);
            break;
        case Complaint::OpenEnable:
            EcallUITraceError("Unable to open pwm led enable file");
            break;
        case Complaint::OpenCfg:
            EcallUITraceError("Unable to open pwm led cfg file : %s\n", path);
            break;
        case Complaint::OpenToggle:
            EcallUITraceError("Unable to open toggle file");
            break;
        case Complaint::OpenPeriod:
            EcallUITraceError("Unable to open pwm period file");
            break;
        case Complaint::OpenDutyCycle:
            EcallUITraceError("Unable to open pwm led duty_cycle file");
            break;
        case Complaint::WriteEnable:
            EcallUITraceError("Unable to write pwm led enable file : value = 1");
            break;
        case Complaint::WriteValue:
            EcallUITraceError("Unable to write pwm led %s file : value = %s in \n", path, text);
            break;
        case Complaint::WriteValueWithoutPath:
            EcallUITraceError("Unable to write pwm led file: value = %s in \n", text);
            break;
        case Complaint::WriteOne:
            EcallUITraceError("Unable to write pwm led %s file : value = 1 in \n", path);
            break;
    }
}

/// Does one step; answers whether the device took the whole text.
bool DoStep(const LedStep& step, const char* text) {
    std::array<char, kLedPathSize> path{};
    GpioGetDeviceFilePath(path.data(), path.size(), kPwmEcallLed, step.attribute);
    const AttributeWrite written = WriteAttribute(path.data(), O_RDWR | O_SYNC, text);
    if (!written.whole) {
        Complain(written.opened ? step.onWrite : step.onOpen, path.data(), text);
    }
    return written.whole;
}

bool DoStep(const LedStep& step, uint64_t nanoseconds) {
    LedText text;
    snprintf(text.data(), text.size(), "%lld", static_cast<long long>(nanoseconds));
    return DoStep(step, text.data());
}

bool DoStep(const LedStep& step, int number) {
    LedText text;
    snprintf(text.data(), text.size(), "%d", number);
    return DoStep(step, text.data());
}

bool LoadConfiguration1(uint32_t brightness, uint64_t periodNs) {
    if (!DoStep(kChooseCfg, 1) || !DoStep(kCfg1Period, periodNs)) {
        return false;
    }
    const uint64_t dutyNs = LedDutyNs(brightness, periodNs);
    EcallUITrace("Brightness1PerCent = %d, PeriodNs = %lld, cfg 1 DutyNs = %lld", brightness,
                 static_cast<long long>(periodNs), static_cast<long long>(dutyNs));
    return DoStep(kCfg1Duty, dutyNs);
}

bool LoadConfiguration2(uint32_t brightness, uint64_t periodNs) {
    if (!DoStep(kCfg2Period, periodNs)) {
        return false;
    }
    const uint64_t dutyNs = LedDutyNs(brightness, periodNs);
    EcallUITrace("Brightness2PerCent = %d, PeriodNs = %lld, cfg 2 DutyNs = %lld", brightness,
                 static_cast<long long>(periodNs), static_cast<long long>(dutyNs));
    return DoStep(kCfg2Duty, dutyNs);
}

bool LoadToggling(uint32_t brightness2, uint64_t periodNs, uint32_t toggleMs) {
    if (toggleMs == 0) {
        return DoStep(kSteady, "0");
    }
    return LoadConfiguration2(brightness2, periodNs) && DoStep(kToggleTime, static_cast<int>(toggleMs)) &&
           DoStep(kToggle, "1");
}

bool IsLedUsed() {
    if (!EcallUI_Configuration.GpioOutputLed_CNTL_Used) {
        EcallUITrace("EcallUI_Configuration.GpioOutputLed_CNTL_Used == false ==> do nothing");
        return false;
    }
    return true;
}

void ShowLed(int32_t brightness1, int32_t brightness2, int32_t blicking12PeriodInMs) {
    SetGpioEcallLed(static_cast<uint32_t>(EcallUI_Configuration.LedPwmPeriodMs.get()),
                    static_cast<uint32_t>(brightness1), static_cast<uint32_t>(brightness2),
                    static_cast<uint32_t>(blicking12PeriodInMs));
}

}  // namespace

uint64_t LedPeriodNs(uint32_t periodMs) {
    return uint32_t{periodMs * 1'000'000};
}

uint64_t LedDutyNs(uint32_t brightnessPerCent, uint64_t periodNs) {
    // Single precision, as the device's patterns were tuned with it. The largest product is below 2^58.
    const float duty = static_cast<float>(brightnessPerCent) / 100.0F * static_cast<float>(periodNs);
    const auto dutyNs = static_cast<uint64_t>(duty);
    if (dutyNs == 0) {
        return 1;
    }
    return dutyNs == periodNs ? periodNs - 1 : dutyNs;
}

uint32_t SetGpioEcallLed(uint32_t periodMs, uint32_t brightness1PerCent, uint32_t brightness2PerCent,
                         uint32_t blicking12PeriodInMs) {
    EcallUITrace(
        "SetGpioEcallLed - Enter : PeriodMs=%d, Brightness1PerCent=%d, Brightness2PerCent=%d, "
        "Blicking12PeriodInMs=%d",
        periodMs, brightness1PerCent, brightness2PerCent, blicking12PeriodInMs);
    if (!IsLedUsed()) {
        return 0;
    }
    const uint64_t periodNs = LedPeriodNs(periodMs);
    if (!DoStep(kDisable, "0") || !LoadConfiguration1(brightness1PerCent, periodNs) ||
        !LoadToggling(brightness2PerCent, periodNs, blicking12PeriodInMs) || !DoStep(kEnable, "1")) {
        return 1;
    }
    EcallUITrace("SetGpioEcallLed - exit");
    return 0;
}

uint32_t SetGpioEnableEcallLed(uint8_t enable) {
    EcallUITrace("SetGpioEnableEcallLed - Enter : enable=%d", enable);
    if (IsLedUsed() && !DoStep(kEnable, enable != 0 ? "1" : "0")) {
        return 1;
    }
    EcallUITrace("SetGpioEnableEcallLed - exit");
    return 0;
}

void ShowLedPattern(LedPattern pattern) {
    const EcallUIConfiguration& cfg = EcallUI_Configuration;
    switch (pattern) {
        case LedPattern::Unchanged:
            break;
        case LedPattern::Idle:
            ShowLed(cfg.LedEcallIdleBrightness1PerCent, cfg.LedEcallIdleBrightness2PerCent,
                    cfg.LedEcallIdleBlicking12PeriodInMs);
            break;
        case LedPattern::Active:
            ShowLed(cfg.LedEcallActiveBrightness1PerCent, cfg.LedEcallActiveBrightness2PerCent,
                    cfg.LedEcallActiveBlicking12PeriodInMs);
            break;
        case LedPattern::Error:
            ShowLed(cfg.LedEcallErrorBrightness1PerCent, cfg.LedEcallErrorBrightness2PerCent,
                    cfg.LedEcallErrorBlicking12PeriodInMs);
            break;
    }
}
