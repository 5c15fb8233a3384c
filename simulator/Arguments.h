#ifndef SIMULATOR_ARGUMENTS_H
#define SIMULATOR_ARGUMENTS_H

/* The key=value arguments of one command, read with their types and default values. */

#include "simulator/Words.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace simulator {

/* Every function that reads an argument throws CommandError if the value is not of the type. */
class Arguments {
public:
    using Values = std::map<std::string, std::string, std::less<>>;

    // `usage` must contain every key as "key=", otherwise throws CommandError. Digits at the end
    // of a key are ignored in that check: "folder=" also allows folder2.
    Arguments(Values values, std::string_view usage);

    // True if the argument was given.
    bool Has(std::string_view key) const {
        return values_.contains(key);
    }
    // The value of the argument; a switch is "yes" or "no". RequiredX() throws CommandError if the
    // argument is missing, XOr() returns `otherwise`.
    std::string RequiredText(std::string_view key) const;
    std::string TextOr(std::string_view key, std::string_view otherwise) const;
    bool RequiredSwitch(std::string_view key) const;
    bool SwitchOr(std::string_view key, bool otherwise) const;
    // The hexadecimal value of "changer"; throws CommandError if the argument is missing.
    std::uint64_t RequiredGuid() const;
    // A number of milliseconds.
    std::chrono::milliseconds TimeOr(std::string_view key,
                                     std::chrono::milliseconds otherwise) const;
    // Numbers separated by commas; empty if the argument is missing.
    std::set<unsigned> NumberSet(std::string_view key) const;

    // A decimal number, or a hexadecimal one after "0x", from 0 to the maximum of `Number`.
    template<typename Number>
    Number RequiredNumber(std::string_view key) const {
        return static_cast<Number>(
            ParseNumber(key, RequiredText(key), std::numeric_limits<Number>::max()));
    }
    // The same, or `otherwise` if the argument is missing.
    template<typename Number>
    Number NumberOr(std::string_view key, Number otherwise) const {
        return Has(key) ? RequiredNumber<Number>(key) : otherwise;
    }

    // Sets `preference` to the value, or resets it if the value is "absent". Leaves it unchanged if
    // the argument is missing.
    void Update(std::string_view key, std::optional<bool>& preference) const;
    void Update(std::string_view key, std::optional<std::int32_t>& preference) const;

private:
    static std::uint64_t ParseNumber(std::string_view key, const std::string& text,
                                     std::uint64_t maximum);

    Values values_;
};

} // namespace simulator

#endif
