// Tests of the program in a private mount namespace: its text protocol, its sockets and its file
// system.

#include "Peer.h"
#include "simulator/Words.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace simulator {
namespace {

namespace fs = std::filesystem;

// Opened before the private /tmp, which may hide the build directory.
const Descriptor& Executable() {
    static const Descriptor executable(open(SIMULATOR_PROGRAM, O_PATH | O_CLOEXEC));
    return executable;
}

// The running program. The kernel ends it when this process ends.
class Program {
public:
    Program() {
        int input[2];
        int output[2];
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe2");
        process_ = fork();
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGTERM);
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            const std::string path = "/proc/self/fd/" + std::to_string(Executable().Get());
            execl(path.c_str(), "carouseld-sim", nullptr);
            _exit(127);
        }
        input_ = Descriptor(input[1]);
        output_ = Descriptor(output[0]);
        close(input[0]);
        close(output[1]);
    }

    void Write(const std::string& line) const {
        const std::string bytes = line + '\n';
        ASSERT_EQ(write(input_.Get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }
    // Executes a command and returns the printed lines; the last one is the result.
    std::vector<std::string> Do(const std::string& command) {
        Write(command);
        std::vector<std::string> lines;
        do {
            lines.push_back(ReadLine());
        } while (lines.back() != "ok" && !lines.back().starts_with("error "));
        return lines;
    }
    std::string ReadLine() {
        std::size_t end = 0;
        while ((end = buffer_.find('\n')) == buffer_.npos) {
            char buffer[4096];
            const ssize_t length = read(output_.Get(), buffer, sizeof buffer);
            if (length <= 0)
                throw std::runtime_error("the program has ended");
            buffer_.append(buffer, static_cast<std::size_t>(length));
        }
        std::string line = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return line;
    }
    std::string AwaitLine(const std::string& part) {
        for (;;) {
            std::string line = ReadLine();
            if (line.find(part) != line.npos)
                return line;
        }
    }
    void Kill(int signal) const {
        kill(process_, signal);
    }
    void CloseInput() {
        input_ = Descriptor();
    }
    int AwaitEnd() const {
        int status = -1;
        waitpid(process_, &status, 0);
        return status;
    }
    pid_t ProcessId() const {
        return process_;
    }

private:
    pid_t process_ = -1;
    Descriptor input_;
    Descriptor output_;
    std::string buffer_;
};

std::string ReadAll(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::set<std::string> ListNames(const fs::path& path) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(path))
        names.insert(entry.path().filename());
    return names;
}

bool IsMounted(const std::string& path) {
    return ReadAll("/proc/self/mountinfo").find(' ' + path + ' ') != std::string::npos;
}

bool EnterPrivateNamespace() {
    return unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/tmp", "tmpfs", 0, nullptr) == 0 && access("/dev/fuse", R_OK | W_OK) == 0;
}

constexpr int kNotPermitted = 77;

// Runs the body of a test in a child process with private mounts and a private /tmp.
class ProgramTest : public testing::Test {
protected:
    void RunPrivately(const std::function<void()>& body) {
        ASSERT_GE(Executable().Get(), 0);
        const pid_t child = fork();
        if (child == 0)
            _exit(RunAsChild(body));
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
        if (WEXITSTATUS(status) == kNotPermitted)
            GTEST_SKIP() << "mounting a FUSE file system in a private namespace is not permitted";
        EXPECT_EQ(WEXITSTATUS(status), 0) << "see the failures above";
    }

    // The same, with a program that has a changer.
    void RunWithChanger(const std::string& options, const std::function<void(Program&)>& body) {
        RunPrivately([&] {
            Program program;
            program.Do(AddChanger(options));
            body(program);
        });
    }

    static std::string AddChanger(const std::string& options = "") {
        return "add-changer changer=A1 slots=4 drives=1 mount=/tmp/carousel " + options;
    }

private:
    static int RunAsChild(const std::function<void()>& body) {
        if (!EnterPrivateNamespace())
            return kNotPermitted;
        try {
            body();
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
        return HasFailure() ? 1 : 0;
    }
};

TEST_F(ProgramTest, IdentifiedDiscCanBeListedAndRead) {
    RunWithChanger("", [](Program& program) {
        program.Do("put changer=A1 slot=0 seed=7 directories=4 files=2 depth=2 name=holidays");
        program.Do("start");
        EXPECT_EQ(ListNames("/tmp/carousel"), std::set<std::string>{".changer_info.plist"});

        const std::string suffix = std::to_string(program.ProcessId());
        Peer subscriber("/tmp/carouseldn-" + suffix);
        EXPECT_EQ(subscriber.ReceiveValue().value().Keys(),
                  std::vector<std::string>{"changer list"});
        Peer client("/tmp/carouseld-" + suffix);
        client.SendRequest(MakePrivateMount(0));
        EXPECT_EQ(client.ReceiveValue().value().FindString("mount path"), "/tmp/carousel/holidays");

        const Value info = Value::ParseXml(ReadAll("/tmp/carousel/holidays/.media_info.plist"));
        EXPECT_EQ(info.FindInteger("Changer GUID"), 0xA1);
        EXPECT_EQ(info.FindInteger("Storage Element Index"), 0);
        EXPECT_EQ(info.FindString("Partition Id"), "1");
        EXPECT_EQ(info.Describe("Writable"), "no");
        int directories = 0;
        for (const auto& entry : fs::recursive_directory_iterator("/tmp/carousel/holidays")) {
            directories += entry.is_directory() ? 1 : 0;
            EXPECT_TRUE(entry.is_directory() || ReadAll(entry.path()).size() == entry.file_size());
        }
        EXPECT_EQ(directories, 4);
        EXPECT_EQ(client.Exchange(MakePrivateEject(0)), 0);
        EXPECT_EQ(program.Do("quit").back(), "ok");
        EXPECT_EQ(program.AwaitEnd(), 0);
    });
}

TEST_F(ProgramTest, InfoFileIsBinaryAndFileSystemIsReadOnly) {
    RunWithChanger("info=binary", [](Program&) {
        EXPECT_TRUE(ReadAll("/tmp/carousel/.changer_info.plist").starts_with("bplist00"));
        EXPECT_EQ(open("/tmp/carousel/.changer_info.plist", O_WRONLY | O_CLOEXEC), -1);
        EXPECT_EQ(errno, EROFS);
        EXPECT_NE(mkdir("/tmp/carousel/new", 0777), 0);
    });
}

TEST_F(ProgramTest, PendingListingsBlockNothingAndFailAtTheEnd) {
    RunWithChanger("moving=3600000", [](Program& program) {
        program.Do("put changer=A1 slot=0 identified=yes name=far-away");
        std::vector<pid_t> waiting;
        for (int count = 0; count < 20; ++count) {
            waiting.push_back(fork());
            if (waiting.back() == 0) {
                const int directory = open("/tmp/carousel/far-away", O_DIRECTORY | O_CLOEXEC);
                _exit(directory < 0 && errno == EIO ? 0 : 1);
            }
            program.AwaitLine(" listing ");
        }
        EXPECT_EQ(ListNames("/tmp/carousel").size(), 2u);
        EXPECT_FALSE(ReadAll("/tmp/carousel/far-away/.media_info.plist").empty());
        program.Kill(SIGTERM);
        EXPECT_EQ(program.AwaitEnd(), 0);
        for (const pid_t process : waiting) {
            int status = -1;
            waitpid(process, &status, 0);
            EXPECT_EQ(status, 0) << "the listing must fail with an I/O error";
        }
        EXPECT_FALSE(IsMounted("/tmp/carousel"));
    });
}

TEST_F(ProgramTest, EveryKindOfExitRemovesMountsAndSockets) {
    RunPrivately([] {
        const auto end = {+[](Program& program) { program.Write("quit"); },
                          +[](Program& program) { program.CloseInput(); },
                          +[](Program& program) { program.Kill(SIGTERM); },
                          +[](Program& program) { program.Kill(SIGINT); }};
        for (const auto& way : end) {
            Program program;
            program.Do(AddChanger());
            program.Do("start");
            const int user = open("/tmp/carousel", O_DIRECTORY | O_CLOEXEC);
            EXPECT_TRUE(IsMounted("/tmp/carousel"));
            way(program);
            EXPECT_EQ(program.AwaitEnd(), 0);
            close(user);
            EXPECT_FALSE(IsMounted("/tmp/carousel"));
            EXPECT_TRUE(fs::is_empty("/tmp"));
        }
    });
}

TEST_F(ProgramTest, MountOfAKilledServerIsReplaced) {
    RunPrivately([] {
        Program killed;
        killed.Do(AddChanger());
        killed.Kill(SIGKILL);
        killed.AwaitEnd();
        Program program;
        EXPECT_EQ(program.Do(AddChanger()).back(), "ok");
        EXPECT_EQ(ListNames("/tmp/carousel").size(), 1u);
    });
}

TEST_F(ProgramTest, FileSystemIsUnmountedAndMountedByCommand) {
    RunWithChanger("", [](Program& program) {
        EXPECT_EQ(program.Do("unmount changer=A1").back(), "ok");
        EXPECT_FALSE(IsMounted("/tmp/carousel"));
        EXPECT_TRUE(program.Do("unmount changer=A1").back().starts_with("error "));
        EXPECT_EQ(program.Do("mount changer=A1 mount=/tmp/elsewhere").back(), "ok");
        EXPECT_EQ(ListNames("/tmp/elsewhere").size(), 1u);
        EXPECT_EQ(program.Do("remove-changer changer=A1").back(), "ok");
        program.Do("add-changer changer=B2 slots=1 drives=1 info=binary");
        EXPECT_EQ(program.Do("mount changer=B2").back(),
                  "error \"no mount point: give mount=DIRECTORY\"");
        EXPECT_EQ(program.Do("mount changer=B2 mount=/tmp/later").back(), "ok");
        EXPECT_TRUE(ReadAll("/tmp/later/.changer_info.plist").starts_with("bplist00"));
        EXPECT_FALSE(IsMounted("/tmp/elsewhere"));
    });
}

TEST_F(ProgramTest, KernelCacheShowsTheSameNames) {
    RunWithChanger("kernel-cache=yes", [](Program& program) {
        program.Do("put changer=A1 slot=0 identified=yes name=disc directories=1 depth=1");
        for (int count = 0; count < 3; ++count)
            EXPECT_EQ(ListNames("/tmp/carousel/disc").size(), 7u);
    });
}

TEST_F(ProgramTest, InvalidCommandsChangeNothing) {
    RunPrivately([] {
        Program program;
        for (const char* command :
             {"brew coffee=yes", "put", "put changer=A1 slot=0", "put changer=A1 slot=\"0",
              "add-changer changer=A1 slots=4",
              "add-changer changer=A1 slots=4 drives=1 colour=red", "fault on=request do=jam",
              "fault on=connection do=late after=1", "notify hex=00", "quit now=yes"}) {
            EXPECT_TRUE(program.Do(command).front().starts_with("error \"")) << command;
        }
        EXPECT_EQ(program.Do("brew").back(), "error \"unknown command: brew; try help\"");
        EXPECT_EQ(program.Do("stop now=yes").back(), "error \"unknown argument: now\"");
        EXPECT_EQ(program.Do("show"), std::vector<std::string>{"ok"});
        EXPECT_GT(program.Do("help").size(), 20u);
    });
}

TEST_F(ProgramTest, OpeningTheInfoFileOfTheRootIsReported) {
    RunWithChanger("", [](Program& program) {
        ReadAll("/tmp/carousel/.changer_info.plist");
        EXPECT_TRUE(program.AwaitLine("info-open").ends_with("changer=00000000000000A1"));
    });
}

TEST_F(ProgramTest, EventsArePrintedInOrder) {
    RunWithChanger("", [](Program& program) {
        program.Do("put changer=A1 slot=0 identified=yes name=disc");
        ListNames("/tmp/carousel/disc");
        std::vector<std::string> kinds;
        for (const std::string& line : program.Do("start"))
            if (line != "ok")
                kinds.push_back(line.substr(line.find(' ', 6) + 1));
        const std::vector<std::string> expected = {"listing", "robot",  "robot",
                                                   "mounted", "listed", "started"};
        ASSERT_EQ(kinds.size(), expected.size());
        for (std::size_t index = 0; index < kinds.size(); ++index)
            EXPECT_TRUE(kinds[index].starts_with(expected[index])) << kinds[index];
    });
}

} // namespace
} // namespace simulator
