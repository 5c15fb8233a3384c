#include "Program.h"

#include "testbed/Failure.h"
#include "testbed/Process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace bench {
namespace {

pid_t Start(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = -1;
    errno = posix_spawnp(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    testbed::Require(errno == 0, "cannot run " + words[0]);
    return process;
}

} // namespace

void RunProgram(const std::vector<std::string>& words) {
    int status = 0;
    testbed::Require(waitpid(Start(words), &status, 0) > 0, "cannot wait for " + words[0]);
    if (status != 0)
        throw testbed::Failure(words[0] + " " + testbed::DescribeEnd(status));
}

Sleepers::Sleepers(int count) {
    for (int i = 0; i < count; ++i)
        processes_.push_back(Start({"sleep", "infinity"}));
}

Sleepers::~Sleepers() {
    for (const pid_t process : processes_)
        kill(process, SIGKILL);
    for (const pid_t process : processes_)
        waitpid(process, nullptr, 0);
}

} // namespace bench
