#include "Shelf.h"

#include <span>

namespace bench {
namespace {

constexpr std::uint32_t kFirstTime = 1'790'000'000;
constexpr std::uint32_t kBetweenTimes = 47; // seconds; so that hardly two discs are alike

// The text of a list as servers write it: a line for each value, indented by tabs.
class Lines {
public:
    void Add(std::size_t depth, const std::string& line) {
        text_.append(depth, '\t').append(line) += '\n';
    }
    void AddInteger(std::size_t depth, const std::string& key, std::uint64_t value) {
        AddKey(depth, key);
        Add(depth, "<integer>" + std::to_string(value) + "</integer>");
    }
    void AddFlag(std::size_t depth, const std::string& key, bool value) {
        AddKey(depth, key);
        Add(depth, value ? "<true/>" : "<false/>");
    }
    void AddKey(std::size_t depth, const std::string& key) {
        Add(depth, "<key>" + key + "</key>");
    }
    const std::string& Text() const {
        return text_;
    }

private:
    std::string text_;
};

void AddDisc(Lines& lines, std::size_t slot, std::uint32_t identifyTime) {
    lines.Add(4, "<dict>");
    lines.AddInteger(5, "Media Kind", 1);
    lines.AddFlag(5, "Media Request Identification", false);
    lines.AddInteger(5, "Media Storage Element Index", slot);
    lines.AddInteger(5, "Media Identify Time", identifyTime);
    lines.AddInteger(5, "Media Mount State", 0);
    lines.AddKey(5, "Media Partition Info");
    lines.Add(5, "<array>");
    lines.Add(6, "<dict>");
    lines.AddFlag(7, "Partition Has File System", true);
    lines.Add(6, "</dict>");
    lines.Add(5, "</array>");
    lines.Add(4, "</dict>");
}

void AddChanger(Lines& lines, std::uint64_t guid, std::span<const std::uint32_t> identifyTimes) {
    lines.Add(2, "<dict>");
    lines.AddInteger(3, "GUID", guid);
    lines.AddFlag(3, "Changer Ready", true);
    lines.AddKey(3, "Changer Preferences");
    lines.Add(3, "<dict>");
    lines.AddFlag(4, "IdentifyMediaOnInsert", true);
    lines.Add(3, "</dict>");
    lines.AddKey(3, "Changer Media Info");
    lines.Add(3, "<array>");
    for (std::size_t slot = 0; slot < identifyTimes.size(); ++slot) {
        AddDisc(lines, slot, identifyTimes[slot]);
    }
    lines.Add(3, "</array>");
    lines.AddInteger(3, "Data Transfer Element Count", 2);
    lines.AddFlag(3, "Changer Request Identification", false);
    lines.AddKey(3, "Changer Client Status");
    lines.Add(3, "<dict/>");
    lines.Add(2, "</dict>");
}

} // namespace

Shelf::Shelf(std::size_t changers, std::size_t slots)
    : changers_(changers), slots_(slots), identifyTimes_(changers * slots) {
    std::uint32_t time = kFirstTime;
    for (std::uint32_t& each : identifyTimes_) {
        each = time += kBetweenTimes;
    }
}

void Shelf::ChangeDisc(std::size_t disc) {
    identifyTimes_.at(disc) += kBetweenLooks;
}

std::string Shelf::MakeNotification() const {
    const std::span<const std::uint32_t> identifyTimes(identifyTimes_);
    Lines lines;
    lines.Add(0, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    lines.Add(0, "<plist version=\"1.0\">");
    lines.Add(0, "<dict>");
    lines.AddKey(1, "changer info");
    lines.Add(1, "<array>");
    for (std::size_t changer = 0; changer < changers_; ++changer) {
        AddChanger(lines, GuidOf(changer), identifyTimes.subspan(changer * slots_, slots_));
    }
    lines.Add(1, "</array>");
    lines.Add(0, "</dict>");
    lines.Add(0, "</plist>");
    return lines.Text();
}

} // namespace bench
