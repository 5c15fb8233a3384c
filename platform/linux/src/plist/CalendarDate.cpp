#include "plist/CalendarDate.h"

#include "plist/Parsing.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace cf {

namespace {

using namespace std::chrono;

constexpr sys_seconds kReference = sys_days(year(2001) / January / 1);
constexpr sys_seconds kFirst = sys_days(year(0) / January / 1);
constexpr sys_seconds kBehindLast = sys_days(year(10000) / January / 1);

constexpr CFAbsoluteTime AbsoluteTimeOf(sys_seconds time) {
    return static_cast<CFAbsoluteTime>((time - kReference).count());
}

// True if the text has a digit for each 0 of the pattern, and the same characters elsewhere.
bool FitsPattern(std::string_view text, std::string_view pattern) {
    if (text.size() != pattern.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i)
        if (pattern[i] == '0' ? !IsDecimalDigit(text[i]) : text[i] != pattern[i])
            return false;
    return true;
}

int Number(std::string_view digits) {
    int number = 0;
    for (const char digit : digits)
        number = number * 10 + (digit - '0');
    return number;
}

} // namespace

std::optional<CFAbsoluteTime> ParseDate(std::string_view text) {
    if (!FitsPattern(text, "0000-00-00T00:00:00Z"))
        return std::nullopt;
    const auto field = [text](std::size_t begin, std::size_t length) {
        return Number(text.substr(begin, length));
    };
    const year_month month = year(field(0, 4)) / January + months(field(5, 2) - 1);
    const sys_seconds time = sys_days(month / 1) + days(field(8, 2) - 1) + hours(field(11, 2)) +
                             minutes(field(14, 2)) + seconds(field(17, 2));
    const CFAbsoluteTime absoluteTime = AbsoluteTimeOf(time);
    return HasCalendarDate(absoluteTime) ? std::optional(absoluteTime) : std::nullopt;
}

bool HasCalendarDate(CFAbsoluteTime time) {
    return time >= AbsoluteTimeOf(kFirst) && time < AbsoluteTimeOf(kBehindLast);
}

std::string FormatDate(CFAbsoluteTime time) {
    const sys_seconds second = kReference + seconds(static_cast<seconds::rep>(std::floor(time)));
    const sys_days day = floor<days>(second);
    const year_month_day date(day);
    const hh_mm_ss clock(second - day);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                  static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text.data();
}

} // namespace cf
