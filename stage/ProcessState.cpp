#include "stage/ProcessState.h"

#include "stage/Failure.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace stage {
namespace {

std::filesystem::path ProcFolder(pid_t pid) {
    return "/proc/" + std::to_string(pid);
}

std::string WithoutInstance(const std::string& target) {
    const bool numbered = target.starts_with("socket:") || target.starts_with("pipe:");
    return numbered ? target.substr(0, target.find(':')) : target;
}

} // namespace

std::string ReadProcFile(pid_t pid, const std::string& name) {
    std::ifstream file(ProcFolder(pid) / name, std::ios::binary);
    Require(file.good(), "cannot read " + name + " of process " + std::to_string(pid));
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::size_t CountThreads(pid_t pid) {
    const std::filesystem::directory_iterator tasks(ProcFolder(pid) / "task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

std::vector<std::string> ListDescriptors(pid_t pid) {
    std::vector<std::string> targets;
    for (const auto& entry : std::filesystem::directory_iterator(ProcFolder(pid) / "fd")) {
        std::error_code gone; // closed since it was listed
        const auto target = std::filesystem::read_symlink(entry.path(), gone);
        if (!gone) {
            targets.push_back(WithoutInstance(target.string()));
        }
    }
    std::sort(targets.begin(), targets.end());
    return targets;
}

std::size_t ReadOwnMemory(pid_t pid) {
    const std::string status = ReadProcFile(pid, "status");
    const std::string key = "\nRssAnon:";
    const std::size_t found = status.find(key);
    Require(found != std::string::npos, "no RssAnon in the status of a process");
    return std::stoul(status.substr(found + key.size())) * 1024; // told in kB
}

} // namespace stage
