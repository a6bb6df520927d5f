// The main of tests of single units of the service: the process moves into a module's file system before they start.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "ModuleRoot.h"
#include "Namespaces.h"

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    setenv("TZ", "UTC", 1);
    RunInModuleNamespaces([] {
        const ModuleRoot root;
        if (chroot(root.Path().c_str()) != 0 || chdir("/") != 0) {
            perror(root.Path().c_str());
            return EXIT_FAILURE;
        }
        return RUN_ALL_TESTS();
    });
}
