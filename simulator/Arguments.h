#ifndef SIMULATOR_ARGUMENTS_H
#define SIMULATOR_ARGUMENTS_H

/* The key=value arguments of one command, read with their types and their defaults. */

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

/* Each call that reads an argument throws CommandError when it is not of its type; the Need...
   ones also when it is missing. */
class Arguments {
public:
    using Values = std::map<std::string, std::string, std::less<>>;

    // Throws CommandError when one of them is not in the usage, as "key=". Digits at the end of a
    // key do not count.
    Arguments(Values values, std::string_view usage);

    bool Has(std::string_view key) const {
        return values_.contains(key);
    }
    std::string RequiredText(std::string_view key) const;
    std::string TextOr(std::string_view key, std::string_view otherwise) const;
    bool RequiredSwitch(std::string_view key) const;
    bool SwitchOr(std::string_view key, bool otherwise) const;
    std::uint64_t RequiredGuid() const;
    std::chrono::milliseconds TimeOr(std::string_view key,
                                     std::chrono::milliseconds otherwise) const;
    std::set<unsigned> NumberSet(std::string_view key) const;

    template<typename Number>
    Number RequiredNumber(std::string_view key) const {
        return static_cast<Number>(
            ParseNumber(key, RequiredText(key), std::numeric_limits<Number>::max()));
    }
    template<typename Number>
    Number NumberOr(std::string_view key, Number otherwise) const {
        return Has(key) ? RequiredNumber<Number>(key) : otherwise;
    }

    // What has no value, "absent" or a new one: leaves it, takes it away or sets it.
    void Update(std::string_view key, std::optional<bool>& preference) const;
    void Update(std::string_view key, std::optional<std::int32_t>& preference) const;

private:
    static std::uint64_t ParseNumber(std::string_view key, const std::string& text,
                                     std::uint64_t maximum);

    Values values_;
};

} // namespace simulator

#endif
