#include "simulator/ChangerFileSystem.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace simulator {

namespace {

// Reading a folder from a slow disk blocks one thread; the others continue.
constexpr int kThreads = 4;

// Creates the mount point if it is missing. True if it was created.
bool PrepareMountPoint(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 && errno == ENOTCONN)
        umount2(path.c_str(), MNT_DETACH); // left by a killed simulator
    std::error_code error;
    const bool made = std::filesystem::create_directories(path, error);
    if (error)
        throw CommandError(path + ": " + error.message());
    return made;
}

class MountArguments {
public:
    explicit MountArguments(std::uint64_t guid) {
        fuse_opt_add_arg(&arguments_, "carouseld-sim");
        std::string options = "-oro,nosuid,nodev,subtype=carousel,fsname=changer-";
        options += FormatGuid(guid);
        if (geteuid() == 0)
            options += ",allow_other";
        fuse_opt_add_arg(&arguments_, options.c_str());
    }
    MountArguments(const MountArguments&) = delete;
    ~MountArguments() {
        fuse_opt_free_args(&arguments_);
    }
    fuse_args* Get() {
        return &arguments_;
    }

private:
    fuse_args arguments_ = FUSE_ARGS_INIT(0, nullptr);
};

} // namespace

void ChangerFileSystem::FreeSession::operator()(fuse_session* session) const {
    fuse_session_destroy(session);
}

ChangerFileSystem::ChangerFileSystem(Changer& changer, const FileSystemOptions& options,
                                     Events& events)
    : changer_(changer), options_(options), events_(events),
      madeMountPoint_(PrepareMountPoint(options.mountPoint)),
      operations_(changer, options_, events) {
    MountArguments arguments(changer.Guid());
    const fuse_lowlevel_ops& table = FuseOperations();
    session_.reset(fuse_session_new(arguments.Get(), &table, sizeof table, &operations_));
    if (!session_ || fuse_session_mount(session_.get(), options_.mountPoint.c_str()) != 0)
        throw CommandError("cannot mount on " + options_.mountPoint);
    fcntl(fuse_session_fd(session_.get()), F_SETFL, O_NONBLOCK);
    for (int count = 0; count < kThreads; ++count)
        threads_.emplace_back([this] { Serve(); });
    events_.Report(
        "file-system",
        Fields().AddChanger(changer_.Guid()).Add("mounted", true).Add("path", options_.mountPoint));
}

ChangerFileSystem::~ChangerFileSystem() {
    stop_.Signal();
    threads_.clear();
    changer_.FailWaiters();
    operations_.WaitUntilAnswered();
    fuse_session_unmount(session_.get());
    if (madeMountPoint_)
        rmdir(options_.mountPoint.c_str());
    events_.Report("file-system", Fields()
                                      .AddChanger(changer_.Guid())
                                      .Add("mounted", false)
                                      .Add("path", options_.mountPoint));
}

void ChangerFileSystem::Serve() {
    fuse_buf buffer = {};
    while (ReceiveAndProcess(buffer)) {
    }
    std::free(buffer.mem);
}

// Receives and processes one request. False at the end of the session.
bool ChangerFileSystem::ReceiveAndProcess(fuse_buf& buffer) {
    {
        const std::lock_guard guard(receiveLock_);
        pollfd sources[] = {{fuse_session_fd(session_.get()), POLLIN, 0}, {stop_.Get(), POLLIN, 0}};
        if (poll(sources, 2, -1) < 0)
            return errno == EINTR;
        if (sources[1].revents != 0)
            return false;
        const int length = fuse_session_receive_buf(session_.get(), &buffer);
        if (length <= 0)
            return length == -EAGAIN || length == -EINTR;
    }
    fuse_session_process_buf(session_.get(), &buffer);
    return true;
}

} // namespace simulator
