#include "testbed/Sandbox.h"

#include "testbed/Descriptor.h"
#include "testbed/Failure.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>

namespace testbed {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFuse = "/dev/fuse";
constexpr unsigned int kFuseMajor = 10; // the numbers in the kernel's list of devices
constexpr unsigned int kFuseMinor = 229;
constexpr const char* kProgramFolder = "/dev/.programs";

void WriteFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    Require(file.good(), std::string("cannot write ") + path);
}

// Without root privileges, creates a user namespace too, in which this user is root.
void EnterPrivateNamespaces() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    const int namespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWIPC;
    Require(unshare(user == 0 ? namespaces : namespaces | CLONE_NEWUSER) == 0,
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

// Must be called before unshare(2): afterwards the link names a path in the original mounts.
fs::path FolderOfThisProgram() {
    const fs::path link = "/proc/self/exe";
    std::error_code failure;
    const fs::path program = fs::read_symlink(link, failure);
    errno = failure.value();
    Require(!failure, "cannot read /proc/self/exe (is the proc file system mounted on /proc?)");
    return program.parent_path();
}

void MountTmp() {
    Mount("tmpfs", "/tmp", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777");
}

void BindNode(const std::string& name, const std::string& newFolder) {
    const std::string from = "/dev/" + name;
    const std::string to = newFolder + "/" + name;
    if (fs::is_directory(from)) {
        fs::create_directory(to);
    } else {
        const Descriptor created(open(to.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666));
        Require(static_cast<bool>(created), "cannot create " + to);
    }
    Mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC);
}

// The programs may be in the original /tmp: open their folder before the new /tmp hides it.
Descriptor OpenFolder(const fs::path& folder) {
    Descriptor opened(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    Require(static_cast<bool>(opened), "cannot open " + folder.string());
    return opened;
}

void BindPrograms(const Descriptor& programs, const std::string& newFolder) {
    const std::string source = "/proc/self/fd/" + std::to_string(programs.Get());
    const std::string target = newFolder + "/" + fs::path(kProgramFolder).filename().string();
    fs::create_directory(target);
    Mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC);
}

// A private /dev is needed for a private /dev/log.
void PrepareDev(const Descriptor& programs) {
    const std::string folder = "/tmp/.dev";
    fs::create_directory(folder);
    Mount("tmpfs", folder.c_str(), "tmpfs", MS_NOSUID, "mode=755");
    for (const char* name : {"null", "zero", "full", "random", "urandom", "fuse"})
        BindNode(name, folder);
    if (fs::exists("/dev/tty"))
        BindNode("tty", folder);
    fs::create_directory(folder + "/pts");
    Mount("devpts", (folder + "/pts").c_str(), "devpts", MS_NOSUID | MS_NOEXEC, "ptmxmode=0666");
    fs::create_symlink("pts/ptmx", folder + "/ptmx");
    fs::create_directory(folder + "/shm");
    fs::create_directory_symlink("/proc/self/fd", folder + "/fd");
    BindPrograms(programs, folder);
    Mount(folder.c_str(), "/dev", nullptr, MS_MOVE);
    fs::remove(folder);
}

void RequireFuse() {
    struct stat node{};
    Require(stat(kFuse, &node) == 0, "there is no /dev/fuse, which the kernel's fuse module or "
                                     "\"mknod /dev/fuse c 10 229\" makes");
    if (!S_ISCHR(node.st_mode) || node.st_rdev != makedev(kFuseMajor, kFuseMinor))
        throw Failure("/dev/fuse is no FUSE device, which would be the character device 10, 229");
    const Descriptor fuse(open(kFuse, O_RDWR | O_CLOEXEC));
    const bool isForbidden = errno == EACCES || errno == EPERM;
    Require(static_cast<bool>(fuse), isForbidden
                                         ? "not permitted to open /dev/fuse"
                                         : "cannot open /dev/fuse (is the fuse module loaded?)");
}

// For a root that is no mount point, as after chroot(2): mount(2) can change the propagation of
// mount points only. Binds / to /proc and makes /proc the root. /proc must be a mount point that is
// private first: a bind mount on a shared one would appear in the other namespaces too.
void BindRootToMountPoint() {
    Require(mount("none", "/proc", nullptr, MS_PRIVATE, nullptr) == 0,
            "neither / nor /proc is a mount point (bind / to itself)");
    Mount("/", "/proc", nullptr, MS_BIND | MS_REC);
    Require(chroot("/proc") == 0 && chdir("/") == 0, "cannot change the root");
}

void MakeMountsPrivate() {
    const unsigned long flags = MS_REC | MS_PRIVATE;
    const bool isPrivate = mount("none", "/", nullptr, flags, nullptr) == 0;
    if (!isPrivate && errno == EINVAL)
        BindRootToMountPoint();
    Mount("none", "/", nullptr, flags);
}

void PrepareMounts(const fs::path& programFolder) {
    RequireFuse();
    MakeMountsPrivate();
    const Descriptor programs = OpenFolder(programFolder);
    Mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    MountTmp();
    PrepareDev(programs);
}

// Reaps all orphans: a zombie of a server would keep its name and its entry in the process table.
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
        return kNoSandbox;
    }
}

// The child is killed when its parent ends. The child leaves by _exit(): the parent's destructors
// and exit handlers must not run there.
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
    std::signal(SIGPIPE, SIG_IGN); // writes to an ended process fail with EPIPE
    return body();
}

int RunProcessOne(const fs::path& programFolder, const std::function<int()>& body) {
    PrepareMounts(programFolder);
    return RunAsChild([&] { return RunBody(body); });
}

int RunOutside(const std::function<int()>& body) {
    const fs::path programFolder = FolderOfThisProgram();
    EnterPrivateNamespaces();
    return RunAsChild([&] { return RunProcessOne(programFolder, body); });
}

} // namespace

int RunInSandbox(const std::function<int()>& body) {
    return RunAsChild([&] { return RunOutside(body); });
}

void RemountTmp() {
    Require(umount2("/tmp", MNT_DETACH) == 0, "cannot unmount /tmp");
    MountTmp();
}

void ShareMounts() {
    Mount("none", "/", nullptr, MS_REC | MS_SHARED);
}

std::string ProgramPath(const std::string& name) {
    return std::string(kProgramFolder) + "/" + name;
}

} // namespace testbed
