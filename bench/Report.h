#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include "Spread.h"

#include <string>
#include <vector>

namespace bench {

/*
 * What was measured, beside its goal and what others need for the same.
 *
 * When the middle half is narrow (Spread::IsNarrow), the median decides whether a figure meets its
 * goal or falls short. When it is wide, all of it must lie on one side of the goal; otherwise the
 * machine was too busy to tell.
 */
class Report {
public:
    void BeginSection(const std::string& title, const std::string& how);

    // The measured values and the goal are in that unit. The peers are told in words, such as
    // "find 204 ms".
    void AddAtMost(const std::string& what, double goal, const Spread& measured,
                   const std::string& unit, const std::string& peers);
    void AddAtLeast(const std::string& what, double goal, const Spread& measured,
                    const std::string& unit, const std::string& peers);
    void AddUnjudged(const std::string& what, const Spread& measured, const std::string& unit,
                     const std::string& peers);

    // A picture of the section's figures, which is drawn from data that the section wrote. The name
    // is that of its file in docs/.
    void ShowPicture(const std::string& name, const std::string& text);

    // As Markdown: what falls short or could not be told; and all tables, with that at the end.
    std::string WriteShortfalls() const;
    std::string Write() const;

private:
    enum class Verdict { None, Met, Short, TooBusy };
    struct Row {
        std::string what;
        std::string measured;
        std::string middleHalf;
        std::string goal;
        Verdict verdict;
        std::string peers;
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

/* "12.3 ms", "0.83", "1,234": three digits, and a unit that makes them few. */
std::string InUnits(double value, const std::string& unit);
std::string InTime(double seconds);

} // namespace bench

#endif
