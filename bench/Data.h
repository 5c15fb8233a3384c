#ifndef BENCH_DATA_H
#define BENCH_DATA_H

#include <string>
#include <vector>

namespace bench {

// The numbers that a picture is drawn from: a line of column names, then a line for each row, in
// bench-data/NAME.dat beside the programs. A name or number is one word for gnuplot.
class Data {
public:
    explicit Data(const std::vector<std::string>& columns);
    void Add(const std::string& name, const std::vector<double>& numbers);
    void Add(const std::vector<double>& numbers);
    // Begins another data set of the same columns, which gnuplot counts by index.
    void BeginSet(const std::string& name);
    void Write(const std::string& name) const;

private:
    std::string text_;
};

} // namespace bench

#endif
