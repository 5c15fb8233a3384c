#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include "Spread.h"

#include <string>
#include <vector>

namespace bench {

/*
 * The results of the benchmarks with their goals, as Markdown tables. Each result is also printed
 * to standard error at once.
 *
 * A result meets or misses its goal. If its interquartile range is narrow (Spread::IsNarrow), the
 * median decides. If it is wide, the whole range must be on one side of the goal; otherwise the
 * result is inconclusive: the machine was too busy.
 */
class Report {
public:
    // Begins a section with a title and a paragraph on the method. There must be one before any
    // other call.
    void BeginSection(const std::string& title, const std::string& how);

    // Adds a result that should be at most or at least `goal`, or has no goal. `unit` is that of
    // the measured values and of the goal, empty for ratios and counts. `details` is text, such as
    // the times of references: "find 204 ms".
    void AddAtMost(const std::string& what, double goal, const Spread& measured,
                   const std::string& unit, const std::string& details);
    void AddAtLeast(const std::string& what, double goal, const Spread& measured,
                    const std::string& unit, const std::string& details);
    void AddWithoutGoal(const std::string& what, const Spread& measured, const std::string& unit,
                        const std::string& details);

    // Adds a picture to the section. `name`: the file in docs/, which scripts/bench draws from the
    // section's PlotData. `text`: the alternative text.
    void ShowPicture(const std::string& name, const std::string& text);

    // Returns the lists of missed goals and of inconclusive results.
    std::string FormatSummary() const;
    // Returns all sections and the summary.
    std::string Format() const;

private:
    enum class Verdict { None, Met, Missed, Inconclusive };
    struct Row {
        std::string what;
        std::string measured;
        std::string range;
        std::string goal;
        Verdict verdict;
        std::string details;
    };
    struct Section {
        std::string title;
        std::string how;
        std::vector<Row> rows;
        std::string pictures;
    };
    static Verdict Judge(const Spread& measured, bool lowMeets, bool medianMeets, bool highMeets);
    static const char* MarkOf(Verdict verdict);
    std::string List(Verdict verdict) const;
    void Add(Row row);

    std::vector<Section> sections_;
};

inline constexpr double kKibibyte = 1024;
inline constexpr double kMebibyte = 1024 * kKibibyte;

/* Formats a value with three significant digits, or with all digits before the decimal point:
   "0.83", "1,234 discs". InTime() chooses s, ms or µs: "12.3 ms". */
std::string InUnits(double value, const std::string& unit);
std::string InTime(double seconds);

} // namespace bench

#endif
