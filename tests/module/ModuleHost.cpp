// A program with a module inside, for tests that look at it from outside: does what its first word says.
//   exit STATUS | abort | pid | module: starts a module with a process in it and waits | module-plain
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Module.h"
#include "Namespaces.h"

namespace {

int HoldModule(AttributeFiles attributeFiles) {
    ModuleOptions options;
    options.attributeFiles = attributeFiles;
    Module module(options);
    module.Start(MODULE_PROBE, {"run", "sleep infinity & echo inside; sleep infinity"});
    module.journal.Await(IsOnConsole("inside"));
    printf("ready\n");
    fflush(stdout);
    pause();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    RunInModuleNamespaces([&]() -> int {
        if (what == "exit") {
            return atoi(argv[2]);
        }
        if (what == "abort") {
            abort();
        }
        if (what == "pid") {
            printf("pid %d of %d, user %d\n", getpid(), getppid(), static_cast<int>(getuid()));
            return 0;
        }
        return HoldModule(what == "module-plain" ? AttributeFiles::Plain : AttributeFiles::Journaled);
    });
}
