/* The printing of the companion command: the server's lists are untrusted, and what is printed goes
   to a terminal. */

#include "Target.h"
#include "changerctl/Changes.h"
#include "changerctl/JsonOutput.h"
#include "changerctl/ProgressDisplay.h"
#include "changerctl/Summary.h"
#include "support/CFOwned.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using changerctl::Changer;
using changerctl::Json;
using changerctl::TextLine;

namespace {

// C0 and DEL; C1 in UTF-8 is 0xC2 and a byte below 0xA0.
bool HasControlCharacter(std::string_view text) {
    const auto isControl = [](char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
    };
    for (std::size_t i = text.find('\xC2'); i != text.npos; i = text.find('\xC2', i + 1))
        if (i + 1 == text.size() || static_cast<unsigned char>(text[i + 1]) < 0xA0)
            return true;
    return std::ranges::any_of(text, isControl);
}

void ExpectPrintable(const std::vector<TextLine>& lines) {
    for (const TextLine& line : lines)
        for (const changerctl::Span& span : line)
            EXPECT_FALSE(HasControlCharacter(span.text)) << span.text;
}

void ExpectValidJson(const Json& json) {
    const std::string text = changerctl::Dump(json, false);
    EXPECT_FALSE(HasControlCharacter(text)) << text;
    EXPECT_TRUE(Json::accept(text)) << text;
}

void PrintChanger(const Changer& changer) {
    ExpectPrintable(MakeSlotTable(changer, {}).Lines(true));
    ExpectPrintable(MakePreferenceTable(changer).Lines(true));
    ExpectPrintable(MakeStatusTable(changer).Lines(true));
    for (const changerctl::ClientStatus& status : changer.statuses)
        ExpectPrintable({MakeStatusLine(changer.guid.value_or(0), status)});
    ExpectValidJson(ChangerToJson(changer));
}

void PrintChanges(const std::vector<Changer>& former, const std::vector<Changer>& present) {
    for (const changerctl::Change& change : FindChanges(former, present)) {
        EXPECT_FALSE(HasControlCharacter(change.text)) << change.text;
        ExpectValidJson(change.details);
    }
}

std::vector<Changer> ReadList(const std::uint8_t* data, std::size_t size) {
    const CFOwned<CFDataRef> bytes(
        CFDataCreate(kCFAllocatorDefault, data, static_cast<CFIndex>(size)));
    const CFOwned<CFPropertyListRef> list(CFPropertyListCreateFromXMLData(
        kCFAllocatorDefault, bytes, kCFPropertyListImmutable, nullptr));
    return list ? changerctl::ReadChangers(list) : std::vector<Changer>();
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<Changer> changers = ReadList(data, size);
    ExpectPrintable(MakeChangerTable(changers, {}).Lines(true));
    for (const Changer& changer : changers)
        PrintChanger(changer);
    PrintChanges({}, changers);
    PrintChanges(changers, {});
    if (changers.size() > 1)
        PrintChanges({changers.front()}, {changers.back()});
    return 0;
}
