#include "VerdictTable.h"

#include <cstdio>

void VerdictTable::Add(const std::string& what, const std::string& asked,
                       const std::string& counted, bool good) {
    rows_.push_back({what, asked, counted, good ? "good" : "BAD"});
    good_ = good_ && good;
}

void VerdictTable::AddExactly(const std::string& what, long asked, long counted) {
    Add(what, std::to_string(asked), std::to_string(counted), counted == asked);
}

void VerdictTable::AddAtLeast(const std::string& what, long asked, long counted) {
    Add(what, "at least " + std::to_string(asked), std::to_string(counted), counted >= asked);
}

void VerdictTable::AddUnjudged(const std::string& what, const std::string& asked,
                               const std::string& why) {
    rows_.push_back({what, asked, why, "not judged"});
}

void VerdictTable::Print() const {
    const auto print = [](const Row& row) {
        std::printf("%-44s %18s %30s  %s\n", row.what.c_str(), row.asked.c_str(),
                    row.counted.c_str(), row.verdict);
    };
    print({"", "asked", "counted", "verdict"});
    for (const Row& row : rows_)
        print(row);
    std::fflush(stdout);
}

bool VerdictTable::IsGood() const {
    return good_ && !rows_.empty();
}
