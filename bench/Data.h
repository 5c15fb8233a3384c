#ifndef BENCH_DATA_H
#define BENCH_DATA_H

#include <string>
#include <vector>

namespace bench {

/* The numbers that a picture is drawn from, as gnuplot reads them: a line of column names, then a
   line for each row. Names are quoted, so that each is one column. */
class Data {
public:
    explicit Data(const std::vector<std::string>& columns);
    void Add(const std::string& name, const std::vector<double>& numbers);
    void Add(const std::vector<double>& numbers);
    // Begins a data set of the same columns, the first one as well. gnuplot counts them by index.
    void BeginSet(const std::string& name);
    // To bench-data/NAME.dat beside the programs.
    void Write(const std::string& name) const;

private:
    std::string text_;
};

} // namespace bench

#endif
