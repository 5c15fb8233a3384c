#ifndef BENCH_PLOTDATA_H
#define BENCH_PLOTDATA_H

#include <string>
#include <vector>

namespace bench {

/* The data file of a picture, in gnuplot's format: a line of column names, then a line for each
   row. Names are quoted: each is one column even if it contains blanks. */
class PlotData {
public:
    // Begins with the line of column names.
    explicit PlotData(const std::vector<std::string>& columns);
    // Adds a row, with a name in the first column or without.
    void Add(const std::string& name, const std::vector<double>& numbers);
    void Add(const std::vector<double>& numbers);
    // Begins a data set with the same columns, also before the first set. gnuplot addresses the
    // sets by index.
    void BeginSet(const std::string& name);
    // Writes the file bench-data/NAME.dat in the folder of the programs. Throws Failure on errors.
    void Write(const std::string& name) const;

private:
    std::string text_;
};

} // namespace bench

#endif
