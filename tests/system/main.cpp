// system-tests [--confined] [--daemon=PROGRAM] [option of GoogleTest...]
//   --confined        starts each daemon with what the systemd unit permits
//   --daemon=PROGRAM  tests this program, such as an installed one, and not this build's

#include "testbed/Daemon.h"
#include "testbed/Sandbox.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using testbed::g_testedDaemon;

namespace {

// Tests in one process share a sandbox; each begins with an empty /tmp.
class EmptyTmpForEachTest : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        testbed::RemountTmp();
    }
};

int RunInWorld() {
    if (g_testedDaemon.isConfined)
        testbed::ShareMounts();
    testing::UnitTest::GetInstance()->listeners().Append(new EmptyTmpForEachTest);
    return RUN_ALL_TESTS();
}

bool TakeOption(const std::string& option) {
    const std::string daemon = "--daemon=";
    if (option == "--confined")
        g_testedDaemon.isConfined = true;
    else if (option.starts_with(daemon))
        g_testedDaemon.program = option.substr(daemon.size());
    else
        return false;
    return true;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv); // removes GoogleTest's own options
    for (int i = 1; i < argc; ++i) {
        if (!TakeOption(argv[i])) {
            std::fprintf(stderr, "system-tests: unknown option: %s\n", argv[i]);
            return 2;
        }
    }
    return testing::GTEST_FLAG(list_tests) ? RUN_ALL_TESTS() : testbed::RunInSandbox(RunInWorld);
}
