// Whether --confined confines: else all other tests would pass with it for nothing.

#include "SystemTest.h"
#include "testbed/ProcessState.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace {

using testing::HasSubstr;

class ConfinementTest : public SystemTest {
protected:
    void SetUp() override {
        if (!testbed::g_testedDaemon.isConfined)
            GTEST_SKIP() << "not started with --confined";
        Begin();
    }
};

TEST_F(ConfinementTest, DaemonHasOneCapabilityNoNewPrivilegesAndAFilterOfSystemCalls) {
    const std::string status = testbed::ReadProcFile(run_.Daemon().Pid(), "status");
    EXPECT_THAT(status, HasSubstr("CapPrm:\t0000000000000002\n")); // CAP_DAC_OVERRIDE
    EXPECT_THAT(status, HasSubstr("CapEff:\t0000000000000002\n"));
    EXPECT_THAT(status, HasSubstr("CapBnd:\t0000000000000002\n"));
    EXPECT_THAT(status, HasSubstr("NoNewPrivs:\t1\n"));
    EXPECT_THAT(status, HasSubstr("Seccomp:\t2\n"));
}

TEST_F(ConfinementTest, DaemonHasAMountNamespaceOfItsOwn) {
    const std::string daemon = "/proc/" + std::to_string(run_.Daemon().Pid());
    EXPECT_NE(std::filesystem::read_symlink(daemon + "/ns/mnt"),
              std::filesystem::read_symlink("/proc/self/ns/mnt"));
}

// Where this process is not root outside of the sandbox, there is one user only.
TEST_F(ConfinementTest, DaemonIsNotRoot) {
    const std::string users = testbed::ReadProcFile(run_.Daemon().Pid(), "uid_map");
    if (users.find("4294967295") == std::string::npos)
        GTEST_SKIP() << "the user namespace has one user only";
    const std::string status = testbed::ReadProcFile(run_.Daemon().Pid(), "status");
    EXPECT_THAT(status, HasSubstr("Uid:\t61184\t61184\t61184\t61184\n"));
    EXPECT_THAT(status, HasSubstr("Gid:\t61184\t61184\t61184\t61184\n"));
    EXPECT_THAT(status, HasSubstr("Groups:\t \n"));
}

} // namespace
