#include "simulator/Events.h"

#include "simulator/Descriptor.h"

#include <utility>

namespace simulator {

void Events::Report(std::string_view kind, const Fields& fields) {
    const std::lock_guard guard(lock_);
    if (kinds_ && !kinds_->contains(kind))
        return;
    Write("event " + std::to_string(++count_) + ' ' + std::string(kind) + fields.Text());
}

void Events::Print(const std::string& line) {
    const std::lock_guard guard(lock_);
    Write(line);
}

void Events::SetKinds(std::optional<std::set<std::string, std::less<>>> kinds) {
    const std::lock_guard guard(lock_);
    kinds_ = std::move(kinds);
}

void Events::Write(std::string line) {
    line += '\n';
    WriteAll(descriptor_,
             line); // an error means that the reader has ended; standard input ends then, too
}

} // namespace simulator
