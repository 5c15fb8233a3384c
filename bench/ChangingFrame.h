#ifndef BENCH_CHANGINGFRAME_H
#define BENCH_CHANGINGFRAME_H

#include "ChangerInfoGenerator.h"

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

/* The frame of a shelf's notification, made once. A change of a disc overwrites the digits of its
   time in the text, which costs the sender next to nothing, however many discs there are. */
class ChangingFrame {
public:
    explicit ChangingFrame(const ChangerInfoGenerator& shelf);

    std::size_t CountDiscs() const {
        return times_.size();
    }
    // As after another look at the disc: it has a time that no disc has had before. Throws for a
    // disc that is not there.
    void ChangeDisc(std::size_t disc);
    const std::string& Bytes() const {
        return frame_;
    }

private:
    std::string frame_;
    std::vector<std::size_t> times_; // where the digits of each disc's time begin
};

} // namespace bench

#endif
