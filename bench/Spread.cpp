#include "Spread.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace bench {
namespace {

double ValueAt(const std::vector<double>& sorted, double share) {
    const double position = share * static_cast<double>(sorted.size() - 1);
    const auto below = static_cast<std::size_t>(position);
    const std::size_t above = std::min(below + 1, sorted.size() - 1);
    return std::lerp(sorted[below], sorted[above], position - std::floor(position));
}

} // namespace

Spread::Spread(std::vector<double> values) : Spread(0) {
    if (values.empty())
        throw std::invalid_argument("nothing was measured");
    if (std::ranges::any_of(values, [](double value) { return std::isnan(value); }))
        throw std::invalid_argument("a measurement is not a number");
    std::ranges::sort(values);
    low = ValueAt(values, 0.25);
    median = ValueAt(values, 0.5);
    high = ValueAt(values, 0.75);
    count = values.size();
}

Spread Spread::Times(double factor) const {
    Spread product = *this;
    product.low *= factor;
    product.median *= factor;
    product.high *= factor;
    return product;
}

Spread Quotient(const Spread& over, const Spread& under) {
    Spread quotient = over.median / under.median;
    quotient.low = over.low / under.high;
    quotient.high = over.high / under.low;
    quotient.count = std::min(over.count, under.count);
    return quotient;
}

} // namespace bench
