#ifndef BENCH_REPORT_H
#define BENCH_REPORT_H

#include <string>
#include <vector>

namespace bench {

// What was measured, beside what is wanted and what others need for the same.
class Report {
public:
    void BeginSection(const std::string& title, const std::string& how);

    // The peers are told in words, such as "find: 204 ms".
    void AddAtMost(const std::string& what, double goal, double measured, const std::string& unit,
                   const std::string& peers);
    void AddAtLeast(const std::string& what, double goal, double measured, const std::string& unit,
                    const std::string& peers);
    void AddUnjudged(const std::string& what, double measured, const std::string& unit,
                     const std::string& peers);

    // As Markdown; the shortfalls alone, and all with them at the end.
    std::string WriteShortfalls() const;
    std::string Write() const;

private:
    struct Row {
        std::string what;
        std::string measured;
        std::string goal;
        bool isMet;
        std::string peers;
    };
    struct Section {
        std::string title;
        std::string how;
        std::vector<Row> rows;
    };
    void Add(Row row);

    std::vector<Section> sections_;
};

inline constexpr double kKibibyte = 1024;
inline constexpr double kMebibyte = 1024 * kKibibyte;

// "12.3 ms", "0.83", "1,234": three digits, and a unit that makes them few.
std::string InUnits(double value, const std::string& unit);
std::string InTime(double seconds);

} // namespace bench

#endif
