#ifndef BENCH_SPREAD_H
#define BENCH_SPREAD_H

#include <cmath>
#include <cstddef>
#include <vector>

namespace bench {

/* Some measurements of the same: their median and the borders of their middle half. All three are
   the value itself when there is only one. */
struct Spread {
    Spread(double only) : low(only), median(only), high(only) {}
    // Quartiles are interpolated between two values. Throws when there is no value, or one is NaN.
    explicit Spread(std::vector<double> values);

    double low;
    double median;
    double high;
    std::size_t count = 1;

    // Whether the middle half is at most 5 % of the median wide.
    bool IsNarrow() const {
        return high - low <= 0.05 * std::abs(median);
    }
    // The factor is positive.
    Spread Times(double factor) const;
};

/* Of two that were not measured side by side, so that no times are pairs: from the least to the
   most that their middle halves permit. */
Spread Quotient(const Spread& over, const Spread& under);

} // namespace bench

#endif
