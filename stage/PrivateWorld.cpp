#include "stage/PrivateWorld.h"

#include "stage/Descriptor.h"
#include "stage/Failure.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace stage {
namespace {

constexpr const char* kProgramFolder = "/tmp/.programs";

void WriteFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    Require(file.good(), std::string("cannot write ") + path);
}

// Without root's rights, a user namespace in which we are root.
void LeaveForPrivateNamespaces() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    const int worlds = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC;
    Require(unshare(user == 0 ? worlds : worlds | CLONE_NEWUSER) == 0,
            user == 0 ? "cannot enter private mount and process namespaces"
                      : "cannot enter private namespaces without being root");
    if (user != 0) {
        WriteFile("/proc/self/setgroups", "deny");
        WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
}

void Mount(const char* source, const char* target, const char* type, unsigned long flags,
           const char* options = nullptr) {
    Require(mount(source, target, type, flags, options) == 0,
            std::string("cannot mount ") + (type != nullptr ? type : source) + " on " + target);
}

Descriptor OpenFolderOfThisProgram() {
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    Descriptor opened(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    Require(static_cast<bool>(opened), "cannot open " + folder.string());
    return opened;
}

// The old /tmp may hold the programs themselves, so they are bound into the new one.
void PrepareTmp() {
    const Descriptor programs = OpenFolderOfThisProgram();
    Mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
    std::filesystem::create_directory(kProgramFolder);
    const std::string source = "/proc/self/fd/" + std::to_string(programs.Get());
    Mount(source.c_str(), kProgramFolder, nullptr, MS_BIND | MS_REC);
}

void BindNode(const std::string& name, const std::string& newFolder) {
    const std::string from = "/dev/" + name;
    const std::string to = newFolder + "/" + name;
    if (std::filesystem::is_directory(from)) {
        std::filesystem::create_directory(to);
    } else {
        const Descriptor created(open(to.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
        Require(static_cast<bool>(created), "cannot create " + to);
    }
    Mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC);
}

// Our own /dev, for the sake of our own /dev/log.
void PrepareDev() {
    const std::string folder = "/tmp/.dev";
    std::filesystem::create_directory(folder);
    Mount("tmpfs", folder.c_str(), "tmpfs", MS_NOSUID, "mode=755");
    for (const char* name : {"null", "zero", "full", "random", "urandom", "fuse"}) {
        BindNode(name, folder);
    }
    for (const char* name : {"tty", "pts", "ptmx"}) {
        if (std::filesystem::exists(std::string("/dev/") + name)) {
            BindNode(name, folder);
        }
    }
    std::filesystem::create_directory(folder + "/shm");
    std::filesystem::create_directory_symlink("/proc/self/fd", folder + "/fd");
    Mount(folder.c_str(), "/dev", nullptr, MS_MOVE);
    std::filesystem::remove(folder);
}

void RequireFuse() {
    const Descriptor fuse(open("/dev/fuse", O_RDWR | O_CLOEXEC));
    Require(static_cast<bool>(fuse), "cannot open /dev/fuse (is the fuse module there?)");
}

void PrepareMounts() {
    RequireFuse();
    Mount("none", "/", nullptr, MS_REC | MS_PRIVATE);
    Mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    PrepareTmp();
    PrepareDev();
}

// A dead server that nobody reaps would keep its name and place in the process table.
int ReapUntilEndOf(pid_t child) {
    int status = 0;
    pid_t ended = 0;
    while (ended != child) {
        ended = waitpid(-1, &status, 0);
        Require(ended > 0 || errno == EINTR, "cannot wait for a child");
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunAndReport(const std::function<int()>& work) {
    try {
        return work();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return kNoPrivateWorld;
    }
}

// The child dies with its parent. Nothing of the parent's is cleaned up in it.
int RunAsChild(const std::function<int()>& work) {
    std::fflush(nullptr);
    const pid_t child = fork();
    Require(child >= 0, "cannot fork");
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int status = RunAndReport(work);
        std::fflush(nullptr);
        _exit(status);
    }
    return ReapUntilEndOf(child);
}

int RunBody(const std::function<int()>& body) {
    const rlimit noCore{};
    setrlimit(RLIMIT_CORE, &noCore);
    std::signal(SIGPIPE, SIG_IGN); // who speaks to a process that died gets an error
    return body();
}

int RunProcessOne(const std::function<int()>& body) {
    PrepareMounts();
    return RunAsChild([&] { return RunBody(body); });
}

int RunOutside(const std::function<int()>& body) {
    LeaveForPrivateNamespaces();
    return RunAsChild([&] { return RunProcessOne(body); });
}

} // namespace

int RunInPrivateWorld(const std::function<int()>& body) {
    return RunAsChild([&] { return RunOutside(body); });
}

std::string ProgramPath(const std::string& name) {
    return std::string(kProgramFolder) + "/" + name;
}

} // namespace stage
