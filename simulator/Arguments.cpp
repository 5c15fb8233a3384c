#include "Arguments.h"

#include <charconv>
#include <sstream>

namespace simulator {

namespace {

bool ParseSwitch(std::string_view key, std::string_view text) {
    if (text != "yes" && text != "no") {
        throw CommandError(std::string(key) + " is yes or no");
    }
    return text == "yes";
}

std::uint64_t ParseDigits(std::string_view key, std::string_view digits, int base) {
    std::uint64_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, number, base);
    if (result.ec != std::errc() || result.ptr != end) {
        throw CommandError(std::string(key) + " is no number in range");
    }
    return number;
}

} // namespace

std::uint64_t Arguments::ParseNumber(std::string_view key, const std::string& text,
                                     std::uint64_t maximum) {
    const bool isHexadecimal = text.starts_with("0x");
    const std::uint64_t number = ParseDigits(
        key, std::string_view(text).substr(isHexadecimal ? 2 : 0), isHexadecimal ? 16 : 10);
    if (number > maximum) {
        throw CommandError(std::string(key) + " is at most " + std::to_string(maximum));
    }
    return number;
}

std::string Arguments::NeedText(std::string_view key) {
    const auto found = values_.find(key);
    if (found == values_.end()) {
        throw CommandError(std::string(key) + " is missing");
    }
    read_.insert(found->first);
    return found->second;
}

std::string Arguments::GetText(std::string_view key, std::string_view otherwise) {
    return Has(key) ? NeedText(key) : std::string(otherwise);
}

bool Arguments::NeedSwitch(std::string_view key) {
    return ParseSwitch(key, NeedText(key));
}

bool Arguments::GetSwitch(std::string_view key, bool otherwise) {
    return Has(key) ? NeedSwitch(key) : otherwise;
}

std::uint64_t Arguments::NeedChanger() {
    return ParseDigits("changer", NeedText("changer"), 16);
}

std::chrono::milliseconds Arguments::GetTime(std::string_view key,
                                             std::chrono::milliseconds otherwise) {
    return Has(key) ? std::chrono::milliseconds(NeedNumber<std::int32_t>(key)) : otherwise;
}

std::set<unsigned> Arguments::GetNumberSet(std::string_view key) {
    std::set<unsigned> numbers;
    std::istringstream list(GetText(key, ""));
    for (std::string number; std::getline(list, number, ',');) {
        numbers.insert(
            static_cast<unsigned>(ParseNumber(key, number, std::numeric_limits<unsigned>::max())));
    }
    return numbers;
}

void Arguments::Update(std::string_view key, std::optional<bool>& preference) {
    if (Has(key)) {
        const std::string text = NeedText(key);
        preference = text == "absent" ? std::nullopt : std::optional(ParseSwitch(key, text));
    }
}

void Arguments::Update(std::string_view key, std::optional<std::int32_t>& preference) {
    if (Has(key)) {
        const std::string text = NeedText(key);
        preference.reset();
        if (text != "absent") {
            preference = NeedNumber<std::int32_t>(key);
        }
    }
}

void Arguments::ExpectNoOthers() const {
    for (const auto& [key, value] : values_) {
        if (!read_.contains(key)) {
            throw CommandError("what is " + key + "?");
        }
    }
}

} // namespace simulator
