#include "ProgramRun.h"

#include "testbed/Descriptor.h"
#include "testbed/Failure.h"
#include "testbed/Sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

using testbed::Require;

namespace {

constexpr int kCannotRun = 127;

[[noreturn]] void Execute(const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    const std::string program = testbed::ProgramPath(arguments.front());
    execv(program.c_str(), pointers.data());
    throw testbed::Failure("cannot execute " + program + ": " + std::strerror(errno));
}

[[noreturn]] void BecomeProgram(const std::vector<std::string>& arguments,
                                const std::function<void()>& prepare, int errors) {
    try {
        Require(dup2(errors, STDERR_FILENO) >= 0, "cannot redirect standard error");
        Require(unshare(CLONE_NEWNS) == 0 &&
                    mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0,
                "cannot enter a private mount namespace");
        prepare();
        Execute(arguments);
    } catch (const std::exception& failure) {
        dprintf(STDERR_FILENO, "%s\n", failure.what());
        _exit(kCannotRun);
    }
}

std::string ReadToEnd(int pipe) {
    std::string text;
    std::array<char, 4096> chunk;
    ssize_t length = 0;
    while ((length = read(pipe, chunk.data(), chunk.size())) > 0)
        text.append(chunk.data(), static_cast<std::size_t>(length));
    return text;
}

} // namespace

ProgramEnd RunProgram(const std::vector<std::string>& arguments,
                      const std::function<void()>& prepare) {
    int ends[2];
    Require(pipe2(ends, O_CLOEXEC) == 0, "cannot create a pipe");
    const testbed::Descriptor reader(ends[0]);
    testbed::Descriptor writer(ends[1]);
    std::fflush(nullptr);
    const pid_t child = fork();
    Require(child >= 0, "cannot fork");
    if (child == 0)
        BecomeProgram(arguments, prepare, writer.Get());
    writer.Close();
    const std::string errors = ReadToEnd(reader.Get());
    int status = 0;
    Require(waitpid(child, &status, 0) == child, "cannot await the end of a program");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), errors};
}
