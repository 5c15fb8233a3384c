#include "simulator/Arguments.h"

#include <charconv>
#include <sstream>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

bool ParseSwitch(std::string_view key, std::string_view text) {
    if (text != "yes" && text != "no")
        throw CommandError(std::string(key) + " must be yes or no");
    return text == "yes";
}

std::uint64_t ParseDigits(std::string_view key, std::string_view digits, int base) {
    std::uint64_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, number, base);
    if (result.ec != std::errc() || result.ptr != end)
        throw CommandError(std::string(key) + " must be a number in range");
    return number;
}

bool IsInUsage(std::string_view usage, std::string_view key) {
    key = key.substr(0, key.find_last_not_of("0123456789") + 1);
    const std::string wanted = std::string(key) + '=';
    for (auto at = usage.find(wanted); at != usage.npos; at = usage.find(wanted, at + 1))
        if (at == 0 || usage[at - 1] == ' ' || usage[at - 1] == '[')
            return true;
    return false;
}

} // namespace

Arguments::Arguments(Values values, std::string_view usage) : values_(std::move(values)) {
    for (const auto& [key, value] : values_)
        if (!IsInUsage(usage, key))
            throw CommandError("unknown argument: " + key);
}

std::uint64_t Arguments::ParseNumber(std::string_view key, const std::string& text,
                                     std::uint64_t maximum) {
    const bool isHexadecimal = text.starts_with("0x");
    const std::uint64_t number = ParseDigits(
        key, std::string_view(text).substr(isHexadecimal ? 2 : 0), isHexadecimal ? 16 : 10);
    if (number > maximum)
        throw CommandError(std::string(key) + " must be at most " + std::to_string(maximum));
    return number;
}

std::string Arguments::RequiredText(std::string_view key) const {
    const auto found = values_.find(key);
    if (found == values_.end())
        throw CommandError("missing argument: " + std::string(key));
    return found->second;
}

std::string Arguments::TextOr(std::string_view key, std::string_view otherwise) const {
    return Has(key) ? RequiredText(key) : std::string(otherwise);
}

bool Arguments::RequiredSwitch(std::string_view key) const {
    return ParseSwitch(key, RequiredText(key));
}

bool Arguments::SwitchOr(std::string_view key, bool otherwise) const {
    return Has(key) ? RequiredSwitch(key) : otherwise;
}

std::uint64_t Arguments::RequiredGuid() const {
    return ParseDigits("changer", RequiredText("changer"), 16);
}

std::chrono::milliseconds Arguments::TimeOr(std::string_view key,
                                            std::chrono::milliseconds otherwise) const {
    return Has(key) ? std::chrono::milliseconds(RequiredNumber<std::int32_t>(key)) : otherwise;
}

std::set<unsigned> Arguments::NumberSet(std::string_view key) const {
    std::set<unsigned> numbers;
    std::istringstream list(TextOr(key, ""));
    for (std::string number; std::getline(list, number, ',');) {
        numbers.insert(
            static_cast<unsigned>(ParseNumber(key, number, std::numeric_limits<unsigned>::max())));
    }
    return numbers;
}

void Arguments::Update(std::string_view key, std::optional<bool>& preference) const {
    if (Has(key)) {
        const std::string text = RequiredText(key);
        preference = text == "absent" ? std::nullopt : std::optional(ParseSwitch(key, text));
    }
}

void Arguments::Update(std::string_view key, std::optional<std::int32_t>& preference) const {
    if (Has(key)) {
        const std::string text = RequiredText(key);
        preference.reset();
        if (text != "absent")
            preference = RequiredNumber<std::int32_t>(key);
    }
}

} // namespace simulator
