#ifndef BENCH_CHANGINGFRAME_H
#define BENCH_CHANGINGFRAME_H

#include "ChangerInfoGenerator.h"

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/* The frame of a notification, generated once. A change of a disc overwrites the digits of its
   identification time in the text: the cost does not depend on the number of discs. */
class ChangingFrame {
public:
    // Generates the notification and its frame.
    explicit ChangingFrame(const ChangerInfoGenerator& generator);

    // The number of discs.
    std::size_t CountDiscs() const {
        return times_.size();
    }
    // Gives the disc an identification time that no disc has had before, as after a new
    // identification. Throws std::out_of_range if there is no such disc.
    void ChangeDisc(std::size_t disc);
    // The whole frame.
    const std::string& Bytes() const {
        return frame_;
    }

private:
    std::string frame_;
    std::vector<std::size_t> times_; // offset of the digits of each disc's time
};

} // namespace bench

#endif
