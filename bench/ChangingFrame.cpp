#include "ChangingFrame.h"

#include "Frame.h"

#include <charconv>
#include <cstdint>
#include <stdexcept>

namespace bench {
namespace {

constexpr std::size_t kDigits = 10; // of a time from 2001 to 2106

// Seconds between two identifications of a disc. The initial times are 47 seconds apart, and there
// are fewer than 86,400 discs; therefore no disc gets the time of another one.
constexpr std::uint32_t kBetweenIdentifications = 86'400;

} // namespace

ChangingFrame::ChangingFrame(const ChangerInfoGenerator& generator)
    : frame_(MakeFrame(generator.MakeNotification())) {
    const std::string key = "Media Identify Time";
    const std::string tag = "<integer>";
    for (std::size_t at = 0; (at = frame_.find(key, at)) != std::string::npos;) {
        at = frame_.find(tag, at) + tag.size();
        times_.push_back(at);
    }
}

void ChangingFrame::ChangeDisc(std::size_t disc) {
    char* const digits = frame_.data() + times_.at(disc);
    std::uint32_t time = 0;
    if (std::from_chars(digits, digits + kDigits, time).ptr != digits + kDigits)
        throw std::logic_error("the time of a disc has another number of digits");
    std::to_chars(digits, digits + kDigits, time + kBetweenIdentifications);
}

} // namespace bench
