#ifndef TESTS_SOAK_RESULTTABLE_H
#define TESTS_SOAK_RESULTTABLE_H

#include <string>
#include <vector>

/* A table of expected and observed values, with a result for each row. */
class ResultTable {
public:
    void Add(const std::string& what, const std::string& expected, const std::string& observed,
             bool passed);
    void AddExactly(const std::string& what, long expected, long observed);
    void AddAtLeast(const std::string& what, long expected, long observed);
    // A row that is not checked and does not count as passed or failed; `why` replaces the value.
    void AddSkipped(const std::string& what, const std::string& expected, const std::string& why);

    void Print() const;     // to standard output
    bool AllPassed() const; // false for an empty table

private:
    struct Row {
        std::string what;
        std::string expected;
        std::string observed;
        const char* result;
    };
    std::vector<Row> rows_;
    bool allPassed_ = true;
};

#endif
