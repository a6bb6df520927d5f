// The entry: command line, start-up in its fixed order, main loop. There is no orderly end: the process ends by a
// refused start-up or by a signal, and no thread is ever joined.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <thread>

#include "EcallUIAppButton.h"
#include "EcallUIAppConnect.h"
#include "EcallUIAppGnss.h"
#include "EcallUIConsole.h"
#include "EcallUIData.h"
#include "EcallUIGpioEvent.h"
#include "EcallUIGpioTest.h"
#include "EcallUIShared.h"
#include "EcallUIapp_impl.h"
#include "Thread.h"
#include "Trace.h"

namespace {

constexpr std::chrono::milliseconds kMainLoopPeriod{500};
constexpr std::chrono::milliseconds kSelfTestPollPeriod{1000};

struct CommandLine {
    bool isDebugMenuMode = false;
    std::optional<int> exitStatus;  ///< set when the process is to end at once
};

CommandLine ReadCommandLine(int argc, char** argv) {
    CommandLine commandLine;
    for (int i = 1; i < argc && !commandLine.exitStatus; ++i) {
        if (argv[i][0] != '-') {
            continue;
        }
        switch (const char option = argv[i][1]; option) {
            case 'h':
                printf("XirEcallUIappSrvc  ==> run XirEcallUIappSrvc in normal mode");
                printf("XirEcallUIappSrvc -m ==> run XirEcallUIappSrvc in debug menu mode");
                commandLine.exitStatus = EXIT_SUCCESS;
                break;
            case 'm':
                printf("XirEcallUIappSrvc -m ==> run XirEcallUIappSrvc in debug menu mode");
                commandLine.isDebugMenuMode = true;
                break;
            default:  // a lone "-" too: its option is the terminator
                EcallUITraceError("XirEcallUIappSrvc  -%c ==> bad option", option);
                commandLine.exitStatus = EXIT_FAILURE;
                break;
        }
    }
    return commandLine;
}

/// A request that comes while a test runs is lost with the flag: one test answers both.
void RunSelfTestWorker() {
    while (true) {
        if (SelfTestRequest == 0) {
            std::this_thread::sleep_for(kSelfTestPollPeriod);
            continue;
        }
        GnssReportRequest = 1;
        RunSelfTest();
        SelfTestRequest = 0;
    }
}

void StartWorker(const char* name, void (*run)()) {
    if (const int error = StartThread(name, run); error != 0) {
        EcallUITraceError("Cannot start the thread %s (%s)", name, strerror(error));
    }
}

void StartButtonPolling() {
    if (EcallUI_Configuration.EcallButtonPullingDetectionMode) {
        EcallUITrace("EcallButtonPullingDetectionMode == true ==> start the Ecall button detection thread");
        StartWorker("ButtonPolling", RunButtonPolling);
    }
}

void StartGnss() {
    if (EcallUI_Configuration.ConnectLocationService) {
        StartWorker("Thread_GNSS", RunGnss);
    }
}

void RestoreUIState() {
    if (EcallUI_Configuration.RestoreContextOnBoot) {
        GetUIStateFromSavedFile();
    } else {
        EcallUITrace(
            "lEcallHLAPConfiguration.RestoreContextOnBoot == false ==> do not init the state from the saved file");
    }
}

/// A standard stream that came closed would become whatever is opened next, and take the console's bytes for its own.
void OpenStandardStreams() {
    int descriptor = -1;
    do {
        descriptor = open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        close(descriptor);
    }
}

void StartServices() {
    XirCreateIEcallUIApp();
    StartWorker("SelfTest", RunSelfTestWorker);
    StartButtonPolling();
    StartGnss();
    RestoreUIState();
    InitGpio();
}

/// The mode is looked at anew after each pass: the console ends it when its input ends.
[[noreturn]] void RunMainLoop() {
    while (true) {
        if (EcallUI_Configuration.DebugMenuMode == 0) {
            std::this_thread::sleep_for(kMainLoopPeriod);
        } else {
            RunDebugMenuOnce();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    OpenStandardStreams();
    signal(SIGPIPE, SIG_IGN);             // whoever read the console may be gone
    setvbuf(stdout, nullptr, _IOLBF, 0);  // a journal or a pipe sees each line at once
    EcallUITrace("Start of ECALL UI (version=%s)", kApplicationVersion);

    const CommandLine commandLine = ReadCommandLine(argc, argv);
    if (commandLine.exitStatus) {
        return *commandLine.exitStatus;
    }
    InitConfiguration();
    // Stored only now, so that nothing in the file can change it.
    EcallUI_Configuration.DebugMenuMode = commandLine.isDebugMenuMode ? 1 : 0;

    ConnectEcallService();
    StartServices();
    PullEcallStateOnceMore();
    RunMainLoop();
}
