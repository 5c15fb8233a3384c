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
    for (std::size_t at = digits.size(); decimals == 0 && at > 3 && digits[at - 4] != '-'; at -= 3)
        digits.insert(at - 3, ",");
    return digits;
}

// "0.81 to 0.84 (n = 15)", or an empty string for a single measurement.
std::string FormatQuartiles(const Spread& measured) {
    if (measured.count == 1)
        return "";
    return Rounded(measured.low) + " to " + Rounded(measured.high) +
           " (n = " + std::to_string(measured.count) + ")";
}

} // namespace

std::string InUnits(double value, const std::string& unit) {
    return unit.empty() ? Rounded(value) : Rounded(value) + " " + unit;
}

std::string InTime(double seconds) {
    if (seconds >= 1)
        return InUnits(seconds, "s");
    return seconds >= 1e-3 ? InUnits(seconds * 1e3, "ms") : InUnits(seconds * 1e6, "µs");
}

void Report::BeginSection(const std::string& title, const std::string& how) {
    sections_.push_back({title, how, {}, ""});
    std::fprintf(stderr, "\n%s\n", title.c_str());
}

Report::Verdict Report::Judge(const Spread& measured, bool lowMeets, bool medianMeets,
                              bool highMeets) {
    if (!measured.IsNarrow() && lowMeets != highMeets)
        return Verdict::Inconclusive;
    return medianMeets ? Verdict::Met : Verdict::Missed;
}

void Report::AddAtMost(const std::string& what, double goal, const Spread& measured,
                       const std::string& unit, const std::string& details) {
    Add({what, InUnits(measured.median, unit), FormatQuartiles(measured),
         "≤ " + InUnits(goal, unit),
         Judge(measured, measured.low <= goal, measured.median <= goal, measured.high <= goal),
         details});
}

void Report::AddAtLeast(const std::string& what, double goal, const Spread& measured,
                        const std::string& unit, const std::string& details) {
    Add({what, InUnits(measured.median, unit), FormatQuartiles(measured),
         "≥ " + InUnits(goal, unit),
         Judge(measured, measured.low >= goal, measured.median >= goal, measured.high >= goal),
         details});
}

void Report::AddWithoutGoal(const std::string& what, const Spread& measured,
                            const std::string& unit, const std::string& details) {
    Add({what, InUnits(measured.median, unit), FormatQuartiles(measured), "", Verdict::None,
         details});
}

const char* Report::MarkOf(Verdict verdict) {
    switch (verdict) {
    case Verdict::Missed:
        return "MISSED";
    case Verdict::Inconclusive:
        return "INCONCLUSIVE";
    default:
        return "";
    }
}

void Report::Add(Row row) {
    std::fprintf(stderr, "  %-80s %10s  %-25s %-12s %s  %s\n", row.what.c_str(),
                 row.measured.c_str(), row.range.c_str(), row.goal.c_str(), MarkOf(row.verdict),
                 row.details.c_str());
    sections_.back().rows.push_back(std::move(row));
}

void Report::ShowPicture(const std::string& name, const std::string& text) {
    sections_.back().pictures += "![" + text + "](" + name + ")\n\n";
}

std::string Report::Format() const {
    std::string text;
    for (const Section& section : sections_) {
        text += "## " + section.title + "\n\n" + section.how + "\n\n";
        text +=
            "| metric | measured | interquartile range | goal | details |\n|---|---|---|---|---|\n";
        for (const Row& row : section.rows) {
            const std::string mark = MarkOf(row.verdict);
            text += "| " + row.what + " | " + row.measured +
                    (mark.empty() ? "" : " **" + mark + "**") + " | " + row.range + " | " +
                    row.goal + " | " + row.details + " |\n";
        }
        text += "\n" + section.pictures;
    }
    return text + FormatSummary();
}

std::string Report::List(Verdict verdict) const {
    std::string text;
    for (const Section& section : sections_) {
        for (const Row& row : section.rows) {
            if (row.verdict == verdict) {
                text += "- " + section.title + ": " + row.what + ": " + row.measured + ", goal " +
                        row.goal + "\n";
            }
        }
    }
    return text;
}

std::string Report::FormatSummary() const {
    const std::string missed = List(Verdict::Missed);
    const std::string inconclusive = List(Verdict::Inconclusive);
    return "## Missed goals\n\n" + (missed.empty() ? "None.\n" : missed) +
           (inconclusive.empty() ? "" : "\n## Inconclusive results\n\n" + inconclusive);
}

} // namespace bench
