#include "FileSystemSeams.h"

#include "AllocationFaults.h"
#include "Journal.h"
#include "StateLock.h"
#include "common/VErr.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <set>
#include <utility>

namespace {

FileSystemSeams* g_seams = nullptr;
std::map<int, std::string> g_paths; // by descriptor
std::set<DIR*> g_unlisted;

std::string RelativePath(const std::string& path) {
    return path.starts_with(g_seams->root) ? "." + path.substr(g_seams->root.size()) : path;
}

std::string PathOf(int folder, const std::string& name) {
    if (folder == AT_FDCWD)
        return RelativePath(name);
    const std::string& path = g_paths[folder];
    return path + (path.ends_with("/") ? "" : "/") + name;
}

int ErrorFor(const std::map<std::string, int>& errors, const std::string& path) {
    const auto found = errors.find(path);
    return found != errors.end() ? found->second : 0;
}

DIR* Watch(DIR* stream, const std::string& path) {
    if (stream != nullptr) {
        g_paths[dirfd(stream)] = path;
        g_unlisted.insert(stream);
    }
    return stream;
}

// Called before the first name is read. False if the listing must fail.
bool BeginListing(DIR* stream) {
    const std::string path = g_paths[dirfd(stream)];
    Journal::Add("list %s%s", path.c_str(), StateLock::IsHeld() ? " (locked)" : "");
    if (g_seams->onListing)
        g_seams->onListing(path);
    const int error = ErrorFor(g_seams->listingErrors, path);
    if (error != 0)
        errno = error;
    return error == 0;
}

std::string AbsolutePath(const std::string& path) {
    return g_seams->root + path.substr(1);
}

void PretendInode(const std::string& path, struct stat* status) {
    const auto same = g_seams->sameInodeAs.find(path);
    struct stat other{};
    if (same == g_seams->sameInodeAs.end() ||
        lstat(AbsolutePath(same->second).c_str(), &other) != 0)
        return;
    status->st_ino = other.st_ino;
    status->st_dev = other.st_dev + 1;
}

bool IsMediaTestToFail(const char* path) {
    const NoAllocationFaultsHere here;
    return g_seams != nullptr && RelativePath(path) == g_seams->failingMediaTest;
}

} // namespace

extern "C" {
int __real_openat(int folder, const char* name, int flags, ...);
DIR* __real_opendir(const char* path);
DIR* __real_fdopendir(int descriptor);
struct dirent* __real_readdir(DIR* stream);
int __real_fstatat(int folder, const char* name, struct stat* status, int flags);
VErrLink* __real__Z39IsDirectoryMediaRootOfChangerFileSystemPKcPb(const char* path, bool* isRoot);

int __wrap_openat(int folder, const char* name, int flags, ...) {
    const NoAllocationFaultsHere here;
    if (g_seams == nullptr)
        return __real_openat(folder, name, flags);
    const std::string path = PathOf(folder, name);
    const int openingError = ErrorFor(g_seams->openingErrors, path);
    if (openingError != 0 && g_seams->openingFailures-- > 0) {
        errno = openingError;
        return -1;
    }
    const int descriptor = __real_openat(folder, name, flags);
    g_paths[descriptor] = path;
    if (g_seams->onOpening)
        g_seams->onOpening();
    return descriptor;
}

DIR* __wrap_opendir(const char* path) {
    const NoAllocationFaultsHere here;
    DIR* stream = __real_opendir(path);
    return g_seams != nullptr ? Watch(stream, RelativePath(path)) : stream;
}

DIR* __wrap_fdopendir(int descriptor) {
    const NoAllocationFaultsHere here;
    DIR* stream = __real_fdopendir(descriptor);
    return g_seams != nullptr ? Watch(stream, g_paths[descriptor]) : stream;
}

struct dirent* __wrap_readdir(DIR* stream) {
    const NoAllocationFaultsHere here;
    if (g_seams != nullptr && g_unlisted.erase(stream) != 0 && !BeginListing(stream))
        return nullptr;
    return __real_readdir(stream);
}

int __wrap_fstatat(int folder, const char* name, struct stat* status, int flags) {
    const NoAllocationFaultsHere here;
    if (g_seams == nullptr)
        return __real_fstatat(folder, name, status, flags);
    const std::string path = PathOf(folder, name);
    if (const int error = ErrorFor(g_seams->statusErrors, path)) {
        errno = error;
        return -1;
    }
    const auto same = g_seams->sameAs.find(path);
    if (same != g_seams->sameAs.end())
        return lstat(AbsolutePath(same->second).c_str(), status);
    const int result = __real_fstatat(folder, name, status, flags);
    PretendInode(path, status);
    if (g_seams->onStatus)
        g_seams->onStatus(path);
    return result;
}

VErrLink* __wrap__Z39IsDirectoryMediaRootOfChangerFileSystemPKcPb(const char* path, bool* isRoot) {
    VErrLink* err = nullptr;
    if (IsMediaTestToFail(path))
        return VErrRaise(VErrThrow(&err, "fail on purpose"), "test/MediaTest", __func__, 1);
    return __real__Z39IsDirectoryMediaRootOfChangerFileSystemPKcPb(path, isRoot);
}
}

FileSystemSeams::FileSystemSeams(std::string itsRoot) : root(std::move(itsRoot)) {
    g_seams = this;
}

FileSystemSeams::~FileSystemSeams() {
    g_seams = nullptr;
    g_paths.clear();
    g_unlisted.clear();
}
