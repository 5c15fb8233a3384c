#include "FileSystemSeams.h"

#include "Journal.h"
#include "StateLock.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <dirent.h>
#include <map>
#include <sys/stat.h>

namespace {

struct Seams {
    std::string root;
    std::map<std::string, int> listingErrors;
    std::map<std::string, int> statusErrors;
    std::map<std::string, std::string> sameAs;
    std::function<void(const std::string&)> onListing;
};
Seams* g_seams = nullptr;

std::string RelativePath(const std::string& path) {
    return path.starts_with(g_seams->root) ? "." + path.substr(g_seams->root.size()) : path;
}

int ErrorFor(const std::map<std::string, int>& errors, const std::string& path) {
    const auto found = errors.find(path);
    return found != errors.end() ? found->second : 0;
}

} // namespace

extern "C" {
using Filter = int (*)(const struct dirent*);
using Comparison = int (*)(const struct dirent**, const struct dirent**);

int __real_scandir(const char* path, struct dirent*** entries, Filter filter, Comparison compare);
int __real_lstat(const char* path, struct stat* status);
int __wrap_scandir(const char* path, struct dirent*** entries, Filter filter, Comparison compare);
int __wrap_lstat(const char* path, struct stat* status);

int __wrap_scandir(const char* path, struct dirent*** entries, Filter filter, Comparison compare) {
    if (g_seams == nullptr)
        return __real_scandir(path, entries, filter, compare);
    EXPECT_EQ(compare, nullptr) << "sorted";
    const std::string relative = RelativePath(path);
    Journal::Add("list %s%s", relative.c_str(), StateLock::IsHeld() ? " (locked)" : "");
    if (g_seams->onListing)
        g_seams->onListing(relative);
    if (const int error = ErrorFor(g_seams->listingErrors, relative)) {
        errno = error;
        return -1;
    }
    return __real_scandir(path, entries, filter, compare);
}

int __wrap_lstat(const char* path, struct stat* status) {
    if (g_seams == nullptr)
        return __real_lstat(path, status);
    const std::string relative = RelativePath(path);
    if (const int error = ErrorFor(g_seams->statusErrors, relative)) {
        errno = error;
        return -1;
    }
    const auto same = g_seams->sameAs.find(relative);
    if (same != g_seams->sameAs.end())
        return __real_lstat((g_seams->root + same->second.substr(1)).c_str(), status);
    return __real_lstat(path, status);
}
}

FileSystemSeams::FileSystemSeams(const std::string& root) {
    g_seams = new Seams{root, {}, {}, {}, {}};
}

FileSystemSeams::~FileSystemSeams() {
    delete std::exchange(g_seams, nullptr);
}

void FileSystemSeams::FailListing(const std::string& path, int error) {
    g_seams->listingErrors[path] = error;
}

void FileSystemSeams::FailStatus(const std::string& path, int error) {
    g_seams->statusErrors[path] = error;
}

void FileSystemSeams::PretendSame(const std::string& path, const std::string& other) {
    g_seams->sameAs[path] = other;
}

void FileSystemSeams::OnListing(std::function<void(const std::string&)> function) {
    g_seams->onListing = std::move(function);
}
