#ifndef BENCH_SPREAD_H
#define BENCH_SPREAD_H

#include <cmath>
#include <cstddef>
#include <vector>

namespace bench {

/* Repeated measurements of one quantity: the median and the quartiles (interquartile range from
   `low` to `high`). All three are equal for a single measurement. */
struct Spread {
    // A single measurement. Implicit: a number is accepted where a Spread is expected.
    Spread(double only) : low(only), median(only), high(only) {}
    // Interpolates quartiles between two values. Throws std::invalid_argument if there is no value
    // or one is NaN.
    explicit Spread(std::vector<double> values);

    double low;
    double median;
    double high;
    std::size_t count = 1; // of measurements

    // True if the interquartile range is at most 5 % of the median.
    bool IsNarrow() const {
        return high - low <= 0.05 * std::abs(median);
    }
    // Returns all values multiplied by `factor`, which must be positive.
    Spread Times(double factor) const;
};

/* The ratio of two quantities that were not measured in the same rounds: the quotient of the
   medians, with the widest range that both interquartile ranges permit. */
Spread Quotient(const Spread& over, const Spread& under);

} // namespace bench

#endif
