#ifndef BENCH_CHANGERINFOGENERATOR_H
#define BENCH_CHANGERINFOGENERATOR_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

/* Changers full of identified discs, as a server shows them in its notifications. The daemon has
   nothing to do for them. No two discs have the same time of identification. */
class ChangerInfoGenerator {
public:
    ChangerInfoGenerator(std::size_t changers, std::size_t slots)
        : changers_(changers), slots_(slots) {}

    std::size_t CountDiscs() const {
        return changers_ * slots_;
    }
    std::size_t CountChangers() const {
        return changers_;
    }
    static std::uint64_t GuidOf(std::size_t changer) {
        return 0xA000 + changer;
    }
    // The "changer info" of all, as XML.
    std::string MakeNotification() const;

private:
    const std::size_t changers_;
    const std::size_t slots_; // of each
};

} // namespace bench

#endif
