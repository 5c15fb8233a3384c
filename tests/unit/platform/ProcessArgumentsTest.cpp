#include "AllocationFaults.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

// The path of TitledProgram, from the build.
#ifndef TITLED_PROGRAM
#error "TITLED_PROGRAM is not defined"
#endif

extern "C" void PlatformKeepProcessArguments(int argc, char** argv);

namespace {

bool g_hidesFileName = false;

using Strings = std::vector<std::string>;

std::vector<char*> Pointers(Strings& strings) {
    std::vector<char*> pointers;
    for (std::string& string : strings)
        pointers.push_back(string.data());
    pointers.push_back(nullptr);
    return pointers;
}

// The lines that TitledProgram prints.
Strings StartTitled(Strings arguments, Strings environment) {
    int output[2];
    EXPECT_EQ(pipe(output), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(output[1], STDOUT_FILENO);
        execve(TITLED_PROGRAM, Pointers(arguments).data(), Pointers(environment).data());
        _exit(127);
    }
    close(output[1]);
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(fdopen(output[0], "r"), fclose);
    std::string text;
    for (int character = getc(stream.get()); character != EOF; character = getc(stream.get()))
        text += static_cast<char>(character);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);

    Strings lines;
    std::istringstream reader(text);
    for (std::string line; std::getline(reader, line);)
        lines.push_back(line);
    return lines;
}

TEST(ProcessArguments, LongerTitleLeavesNameAndEnvironment) {
    EXPECT_EQ(StartTitled({"shortname"}, {"TZ=Europe/Berlin", "PATH=/bin", "EMPTY="}),
              (Strings{"shortname", "shortname", "TZ=Europe/Berlin", "PATH=/bin", "EMPTY="}));
}

TEST(ProcessArguments, ShortNameIsLastPartOfPath) {
    EXPECT_EQ(StartTitled({"/usr/sbin/some", "argument"}, {"TZ=UTC"}),
              (Strings{"/usr/sbin/some", "some", "TZ=UTC"}));
}

TEST(ProcessArguments, MissingNameIsReplacedByProgramFile) {
    const Strings expected = {TITLED_PROGRAM, "TitledProgram", "TZ=UTC"};
    EXPECT_EQ(StartTitled({""}, {"TZ=UTC"}), expected);
    // Since 5.18 Linux replaces an empty argument list by one empty argument.
    EXPECT_EQ(StartTitled({}, {"TZ=UTC"}), expected);
}

TEST(ProcessArguments, TitleWithoutEnvironmentLeavesName) {
    EXPECT_EQ(StartTitled({"some"}, {}), (Strings{"some", "some"}));
}

// The destructor restores the environment and the names.
class KeptArguments : public testing::Test {
protected:
    ~KeptArguments() override {
        environ = environment;
        program_invocation_name = name;
        program_invocation_short_name = shortName;
    }

    char** const environment = environ;
    char* const name = program_invocation_name;
    char* const shortName = program_invocation_short_name;
    char argument[6] = "other";
    char* arguments[2] = {argument, nullptr};
};

TEST_F(KeptArguments, WithoutMemoryNothingChanges) {
    {
        const AllocationFault fault(1, SIZE_MAX);
        PlatformKeepProcessArguments(1, arguments);
    }
    EXPECT_EQ(environ, environment);
    EXPECT_EQ(program_invocation_name, name);
    EXPECT_EQ(program_invocation_short_name, shortName);
}

TEST_F(KeptArguments, EnvironmentCopyFitsItsAllocation) {
    Strings variables(1000, "NAME=value");
    const std::vector<char*> pointers = Pointers(variables);
    environ = const_cast<char**>(pointers.data());
    PlatformKeepProcessArguments(1, arguments);
    std::size_t count = 0;
    for (; environ[count] != nullptr; ++count)
        EXPECT_EQ(environ[count], variables[count]);
    EXPECT_EQ(count, variables.size());
    const char* const end = environ[count - 1] + variables.back().size() + 1;
    const auto size = static_cast<std::size_t>(end - reinterpret_cast<const char*>(environ));
    EXPECT_LE(size, malloc_usable_size(environ));
    std::free(program_invocation_name);
    std::free(environ);
}

TEST_F(KeptArguments, NoArgumentsGiveNameOfProgramFile) {
    PlatformKeepProcessArguments(0, arguments + 1);
    EXPECT_STREQ(program_invocation_short_name, "ProcessArgumentsTest");
    EXPECT_NE(environ, environment);
    std::free(program_invocation_name);
    std::free(environ);
}

TEST_F(KeptArguments, NoArgumentsAndNoProgramFileKeepTheName) {
    g_hidesFileName = true;
    PlatformKeepProcessArguments(0, arguments + 1);
    g_hidesFileName = false;
    EXPECT_EQ(program_invocation_name, name);
    std::free(environ);
}

} // namespace

extern "C" {
unsigned long __real_getauxval(unsigned long type);

unsigned long __wrap_getauxval(unsigned long type) {
    return g_hidesFileName ? 0 : __real_getauxval(type);
}
}
