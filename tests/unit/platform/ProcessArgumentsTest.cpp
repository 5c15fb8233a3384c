#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

// The path of TitledProgram, from the build.
#ifndef TITLED_PROGRAM
#error "TITLED_PROGRAM is not defined"
#endif

namespace {

using Strings = std::vector<std::string>;

std::vector<char*> Pointers(Strings& strings) {
    std::vector<char*> pointers;
    for (std::string& string : strings)
        pointers.push_back(string.data());
    pointers.push_back(nullptr);
    return pointers;
}

// The lines that the titled program prints when started so.
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

TEST(ProcessArguments, OutliveATitleThatIsLongerThanTheFirst) {
    EXPECT_EQ(StartTitled({"shortname"}, {"TZ=Europe/Berlin", "PATH=/bin", "EMPTY="}),
              (Strings{"shortname", "shortname", "TZ=Europe/Berlin", "PATH=/bin", "EMPTY="}));
}

TEST(ProcessArguments, LeaveTheLogTheLastPartOfTheName) {
    EXPECT_EQ(StartTitled({"/usr/sbin/some", "argument"}, {"TZ=UTC"}),
              (Strings{"/usr/sbin/some", "some", "TZ=UTC"}));
}

TEST(ProcessArguments, ThatAreMissingAreReplacedByTheFilesName) {
    const Strings expected = {TITLED_PROGRAM, "TitledProgram", "TZ=UTC"};
    EXPECT_EQ(StartTitled({""}, {"TZ=UTC"}), expected);
    // Linux makes one empty argument of none since 5.18.
    EXPECT_EQ(StartTitled({}, {"TZ=UTC"}), expected);
}

TEST(ProcessArguments, MayBeOverwrittenWithoutAnyEnvironment) {
    EXPECT_EQ(StartTitled({"some"}, {}), (Strings{"some", "some"}));
}

} // namespace
