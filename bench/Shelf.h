#ifndef BENCH_SHELF_H
#define BENCH_SHELF_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// Seconds from one look at a disc to the next. No disc gets a time that another one has: their
// first times are a multiple of 47 seconds apart, and of fewer than 86,400 of these.
inline constexpr std::uint32_t kBetweenLooks = 86'400;

// Changers full of identified discs, as a server shows them in its notifications. There is nothing
// to do for the daemon.
class Shelf {
public:
    Shelf(std::size_t changers, std::size_t slots);

    std::size_t CountDiscs() const {
        return identifyTimes_.size();
    }
    std::size_t CountChangers() const {
        return changers_;
    }
    static std::uint64_t GuidOf(std::size_t changer) {
        return 0xA000 + changer;
    }
    // As after another look at the disc.
    void ChangeDisc(std::size_t disc);

    // The "changer info" of all, as XML.
    std::string MakeNotification() const;

private:
    std::size_t changers_;
    std::size_t slots_;
    std::vector<std::uint32_t> identifyTimes_;
};

} // namespace bench

#endif
