#include "ResultTable.h"

#include <cstdio>

void ResultTable::Add(const std::string& what, const std::string& expected,
                      const std::string& observed, bool passed) {
    rows_.push_back({what, expected, observed, passed ? "ok" : "FAILED"});
    allPassed_ = allPassed_ && passed;
}

void ResultTable::AddExactly(const std::string& what, long expected, long observed) {
    Add(what, std::to_string(expected), std::to_string(observed), observed == expected);
}

void ResultTable::AddAtLeast(const std::string& what, long expected, long observed) {
    Add(what, "at least " + std::to_string(expected), std::to_string(observed),
        observed >= expected);
}

void ResultTable::AddSkipped(const std::string& what, const std::string& expected,
                             const std::string& why) {
    rows_.push_back({what, expected, why, "not checked"});
}

void ResultTable::Print() const {
    const auto print = [](const Row& row) {
        std::printf("%-44s %18s %30s  %s\n", row.what.c_str(), row.expected.c_str(),
                    row.observed.c_str(), row.result);
    };
    print({"", "expected", "observed", "result"});
    for (const Row& row : rows_)
        print(row);
    std::fflush(stdout);
}

bool ResultTable::AllPassed() const {
    return allPassed_ && !rows_.empty();
}
