#include "ChangerInfoGenerator.h"

namespace bench {
namespace {

constexpr std::uint32_t kFirstTime = 1'790'000'000;
constexpr std::uint32_t kBetweenDiscs = 47; // seconds

// A property list in the layout of servers: a line for each value, indented by tabs.
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

// `firstDisc`: the number of this changer's first disc among the discs of all changers.
void AddChanger(Lines& lines, std::uint64_t guid, std::size_t firstDisc, std::size_t slots) {
    lines.Add(2, "<dict>");
    lines.AddInteger(3, "GUID", guid);
    lines.AddFlag(3, "Changer Ready", true);
    lines.AddKey(3, "Changer Preferences");
    lines.Add(3, "<dict>");
    lines.AddFlag(4, "IdentifyMediaOnInsert", true);
    lines.Add(3, "</dict>");
    lines.AddKey(3, "Changer Media Info");
    lines.Add(3, "<array>");
    for (std::size_t slot = 0; slot < slots; ++slot) {
        const auto disc = static_cast<std::uint32_t>(firstDisc + slot);
        AddDisc(lines, slot, kFirstTime + disc * kBetweenDiscs);
    }
    lines.Add(3, "</array>");
    lines.AddInteger(3, "Data Transfer Element Count", 2);
    lines.AddFlag(3, "Changer Request Identification", false);
    lines.AddKey(3, "Changer Client Status");
    lines.Add(3, "<dict/>");
    lines.Add(2, "</dict>");
}

} // namespace

std::string ChangerInfoGenerator::MakeNotification() const {
    Lines lines;
    lines.Add(0, "<?xml version=\"1.0\" encoding=\"UTF-8\"?>");
    lines.Add(0, "<plist version=\"1.0\">");
    lines.Add(0, "<dict>");
    lines.AddKey(1, "changer info");
    lines.Add(1, "<array>");
    for (std::size_t changer = 0; changer < changers_; ++changer)
        AddChanger(lines, GuidOf(changer), changer * slots_, slots_);
    lines.Add(1, "</array>");
    lines.Add(0, "</dict>");
    lines.Add(0, "</plist>");
    return lines.Text();
}

} // namespace bench
