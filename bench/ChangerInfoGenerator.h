#ifndef BENCH_CHANGERINFOGENERATOR_H
#define BENCH_CHANGERINFOGENERATOR_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

/* Generates notifications of changers that are full of identified discs; the daemon has nothing to
   do for them. Each disc has another identification time. */
class ChangerInfoGenerator {
public:
    // `slots`: the slots of each changer.
    ChangerInfoGenerator(std::size_t changers, std::size_t slots)
        : changers_(changers), slots_(slots) {}

    // The numbers of discs and of changers.
    std::size_t CountDiscs() const {
        return changers_ * slots_;
    }
    std::size_t CountChangers() const {
        return changers_;
    }
    // The GUID of a changer, 0 to CountChangers() - 1.
    static std::uint64_t GuidOf(std::size_t changer) {
        return 0xA000 + changer;
    }
    // Returns the "changer info" of all changers, as XML.
    std::string MakeNotification() const;

private:
    const std::size_t changers_;
    const std::size_t slots_; // of each
};

} // namespace bench

#endif
