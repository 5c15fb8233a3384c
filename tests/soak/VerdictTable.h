#ifndef TESTS_SOAK_VERDICTTABLE_H
#define TESTS_SOAK_VERDICTTABLE_H

#include <string>
#include <vector>

/* What was asked, what was counted, and whether that will do. */
class VerdictTable {
public:
    void Add(const std::string& what, const std::string& asked, const std::string& counted,
             bool good);
    void AddExactly(const std::string& what, long asked, long counted);
    void AddAtLeast(const std::string& what, long asked, long counted);
    void AddUnjudged(const std::string& what, const std::string& asked, const std::string& why);

    void Print() const;
    bool IsGood() const;

private:
    struct Row {
        std::string what;
        std::string asked;
        std::string counted;
        const char* verdict;
    };
    std::vector<Row> rows_;
    bool good_ = true;
};

#endif
