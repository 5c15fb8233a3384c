#ifndef BENCH_SPREAD_H
#define BENCH_SPREAD_H

#include <cstddef>
#include <vector>

namespace bench {

// Some measurements of the same: their median and the borders of their middle half. One that is
// made once has no more to tell than its value.
struct Spread {
    Spread(double only) : low(only), median(only), high(only) {}
    // Quartiles lie between two values where they do not fall on one. Throws without any value.
    explicit Spread(std::vector<double> values);

    double low;
    double median;
    double high;
    std::size_t count = 1;

    // Whether the middle half lies within 5 % of the median.
    bool IsNarrow() const {
        return high - low <= 0.05 * median;
    }
    Spread Times(double factor) const;
};

// Of two that were not measured side by side: as wide as both make it.
Spread Quotient(const Spread& over, const Spread& under);

} // namespace bench

#endif
