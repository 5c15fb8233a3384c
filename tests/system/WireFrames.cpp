#include "WireFrames.h"

#include <cstring>

namespace wire {
namespace {

std::string List(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + content +
           "</plist>\n";
}

std::string Key(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key>" + value;
}

std::string Number(std::uint64_t number) {
    return "<integer>" + std::to_string(number) + "</integer>";
}

std::string Truth(bool truth) {
    return truth ? "<true/>" : "<false/>";
}

std::string Disc() {
    return "<dict>" + Key("Media Kind", Number(1)) + Key("Media Storage Element Index", Number(0)) +
           Key("Media Identify Time", Number(0)) + Key("Media Mount State", Number(0)) + "</dict>";
}

std::string Info(const Changer& changer) {
    return "<dict>" + Key("GUID", Number(kGuidBase + changer.guid)) +
           Key("Changer Ready", "<true/>") + Key("Changer Preferences", "<dict/>") +
           Key("Changer Media Info", "<array>" + (changer.hasDisc ? Disc() : "") + "</array>") +
           Key("Data Transfer Element Count", Number(1)) +
           Key("Changer Request Identification", Truth(changer.wantsBuild)) +
           Key("Changer Client Status", "<dict/>") + "</dict>";
}

std::string Frame(const std::string& payload) {
    const struct {
        std::uint32_t signature = 0x68536967;
        std::uint16_t reserved = 0;
        std::uint16_t headerSize = kHeaderSize;
        std::uint32_t length = 0;
    } header = {.length = static_cast<std::uint32_t>(payload.size())};
    std::string frame(sizeof header, '\0');
    std::memcpy(frame.data(), &header, sizeof header);
    return frame + payload;
}

std::string Notification(const std::string& key, const std::string& value,
                         const std::string& rest = "") {
    return Frame(List("<dict>" + Key(key, value) + rest + "</dict>"));
}

} // namespace

std::string EmptyReply() {
    return Frame(List("<dict/>"));
}

std::string ChangerList(const std::vector<Changer>& changers) {
    std::string list;
    for (const Changer& changer : changers)
        list += Number(kGuidBase + changer.guid);
    return Notification("changer list", "<array>" + list + "</array>");
}

std::string ChangerInfo(const std::vector<Changer>& changers, std::size_t padding) {
    std::string infos;
    for (const Changer& changer : changers)
        infos += Info(changer);
    return Notification("changer info", "<array>" + infos + "</array>",
                        Key("padding", "<string>" + std::string(padding, 'x') + "</string>"));
}

} // namespace wire
