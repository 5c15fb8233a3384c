#include "Report.h"

#include <cmath>
#include <cstdio>
#include <utility>

namespace bench {
namespace {

std::string Rounded(double value) {
    const double magnitude = std::abs(value);
    const bool isWhole = value == std::floor(value);
    const int decimals = magnitude >= 100 || isWhole ? 0 : magnitude >= 10 ? 1 : 2;
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    std::string digits = text;
    for (std::size_t at = digits.size(); decimals == 0 && at > 3 && digits[at - 4] != '-';
         at -= 3) {
        digits.insert(at - 3, ",");
    }
    return digits;
}

} // namespace

std::string InUnits(double value, const std::string& unit) {
    return unit.empty() ? Rounded(value) : Rounded(value) + " " + unit;
}

std::string InTime(double seconds) {
    if (seconds >= 1) {
        return InUnits(seconds, "s");
    }
    return seconds >= 1e-3 ? InUnits(seconds * 1e3, "ms") : InUnits(seconds * 1e6, "µs");
}

void Report::BeginSection(const std::string& title, const std::string& how) {
    sections_.push_back({title, how, {}});
    std::fprintf(stderr, "\n%s\n", title.c_str());
}

void Report::AddAtMost(const std::string& what, double goal, double measured,
                       const std::string& unit, const std::string& peers) {
    Add({what, InUnits(measured, unit), "≤ " + InUnits(goal, unit), measured <= goal, peers});
}

void Report::AddAtLeast(const std::string& what, double goal, double measured,
                        const std::string& unit, const std::string& peers) {
    Add({what, InUnits(measured, unit), "≥ " + InUnits(goal, unit), measured >= goal, peers});
}

void Report::AddUnjudged(const std::string& what, double measured, const std::string& unit,
                         const std::string& peers) {
    Add({what, InUnits(measured, unit), "", true, peers});
}

void Report::Add(Row row) {
    std::fprintf(stderr, "  %-66s %10s  %-12s %s%s\n", row.what.c_str(), row.measured.c_str(),
                 row.goal.c_str(), row.isMet ? "" : "SHORT  ", row.peers.c_str());
    sections_.back().rows.push_back(std::move(row));
}

std::string Report::Write() const {
    std::string text;
    for (const Section& section : sections_) {
        text += "## " + section.title + "\n\n" + section.how + "\n\n";
        text += "| what | measured | goal | beside |\n|---|---|---|---|\n";
        for (const Row& row : section.rows) {
            const std::string mark = row.isMet ? "" : " **short**";
            text += "| " + row.what + " | " + row.measured + mark + " | " + row.goal + " | " +
                    row.peers + " |\n";
        }
        text += "\n";
    }
    return text + WriteShortfalls();
}

std::string Report::WriteShortfalls() const {
    std::string text;
    for (const Section& section : sections_) {
        for (const Row& row : section.rows) {
            if (!row.isMet) {
                text += "- " + section.title + ": " + row.what + ": " + row.measured + ", wanted " +
                        row.goal + "\n";
            }
        }
    }
    return "## What falls short\n\n" + (text.empty() ? "Nothing.\n" : text);
}

} // namespace bench
