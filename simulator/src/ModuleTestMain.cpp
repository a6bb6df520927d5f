// The main of module tests: each test program runs in namespaces of its own.
#include <gtest/gtest.h>

#include <cstdio>

#include "Module.h"
#include "Namespaces.h"

namespace {

constexpr size_t kShown = 200;

void ShowFailure(const Module& module) {
    if (testing::Test::HasFailure()) {
        printf("The journal of the failed test ends:\n%s", module.journal.Dump(kShown).c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    RunInModuleNamespaces([] {
        SetComplaintHandler([](const std::string& complaint) { ADD_FAILURE() << complaint; });
        SetEndHandler(ShowFailure);
        return RUN_ALL_TESTS();
    });
}
