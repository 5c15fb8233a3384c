#include "FileSystemSeams.h"

#include "AllocationFaults.h"
#include "Journal.h"
#include "StateLock.h"
#include "common/VErr.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <set>
#include <utility>

namespace {

struct Seams {
    std::string root;
    std::map<std::string, int> openingErrors;
    std::map<std::string, int> openingsToFail;
    std::map<std::string, int> listingErrors;
    std::map<std::string, int> statusErrors;
    std::string failingMediaTest;
    std::map<std::string, std::string> sameAs;
    std::map<std::string, std::string> sameInodeAs;
    std::function<void()> onOpening;
    std::function<void(const std::string&)> onListing;
    std::function<void(const std::string&)> onStatus;

    std::map<int, std::string> paths; // by descriptor
    std::set<DIR*> unlisted;
};
Seams* g_seams = nullptr;

std::string RelativePath(const std::string& path) {
    return path.starts_with(g_seams->root) ? "." + path.substr(g_seams->root.size()) : path;
}

std::string PathOf(int folder, const std::string& name) {
    if (folder == AT_FDCWD)
        return RelativePath(name);
    const std::string& path = g_seams->paths[folder];
    return path + (path.ends_with("/") ? "" : "/") + name;
}

int ErrorFor(const std::map<std::string, int>& errors, const std::string& path) {
    const auto found = errors.find(path);
    return found != errors.end() ? found->second : 0;
}

DIR* Watch(DIR* stream, const std::string& path) {
    if (stream != nullptr) {
        g_seams->paths[dirfd(stream)] = path;
        g_seams->unlisted.insert(stream);
    }
    return stream;
}

// Called before the first name is read. False if the listing must fail.
bool BeginListing(DIR* stream) {
    const std::string path = g_seams->paths[dirfd(stream)];
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
    if (openingError != 0 && g_seams->openingsToFail[path]-- > 0) {
        errno = openingError;
        return -1;
    }
    const int descriptor = __real_openat(folder, name, flags);
    g_seams->paths[descriptor] = path;
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
    return g_seams != nullptr ? Watch(stream, g_seams->paths[descriptor]) : stream;
}

struct dirent* __wrap_readdir(DIR* stream) {
    const NoAllocationFaultsHere here;
    if (g_seams != nullptr && g_seams->unlisted.erase(stream) != 0 && !BeginListing(stream))
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

FileSystemSeams::FileSystemSeams(const std::string& root) {
    g_seams = new Seams{};
    g_seams->root = root;
}

FileSystemSeams::~FileSystemSeams() {
    delete std::exchange(g_seams, nullptr);
}

void FileSystemSeams::FailOpening(const std::string& path, int error, int times) {
    g_seams->openingErrors[path] = error;
    g_seams->openingsToFail[path] = times;
}

void FileSystemSeams::FailListing(const std::string& path, int error) {
    g_seams->listingErrors[path] = error;
}

void FileSystemSeams::FailStatus(const std::string& path, int error) {
    g_seams->statusErrors[path] = error;
}

void FileSystemSeams::FailMediaTest(const std::string& path) {
    g_seams->failingMediaTest = path;
}

void FileSystemSeams::PretendSame(const std::string& path, const std::string& other) {
    g_seams->sameAs[path] = other;
}

void FileSystemSeams::PretendSameInode(const std::string& path, const std::string& other) {
    g_seams->sameInodeAs[path] = other;
}

void FileSystemSeams::OnOpening(std::function<void()> function) {
    g_seams->onOpening = std::move(function);
}

void FileSystemSeams::OnListing(std::function<void(const std::string&)> function) {
    g_seams->onListing = std::move(function);
}

void FileSystemSeams::OnStatus(std::function<void(const std::string&)> function) {
    g_seams->onStatus = std::move(function);
}
