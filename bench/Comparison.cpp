#include "Comparison.h"

#include "Report.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <random>
#include <stdexcept>
#include <utility>

namespace bench {
namespace {

using std::chrono::steady_clock;

constexpr int kTrials = 5;
constexpr std::size_t kMaxSlices = 16; // of each candidate in a round
constexpr std::chrono::seconds kTimeBudget{90};
constexpr double kShortestRun = 1e-9; // seconds; the clock's resolution

double SecondsSince(steady_clock::time_point start) {
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

double TimeRuns(const std::function<double()>& body, std::size_t runs) {
    double sum = 0;
    for (std::size_t i = 0; i < runs; ++i)
        sum += body();
    return sum;
}

std::size_t CountRuns(const std::function<double()>& body, double seconds) {
    body(); // the first run warms up
    const auto start = steady_clock::now();
    body();
    const double each = std::max(SecondsSince(start), kShortestRun);
    return static_cast<std::size_t>(std::max(1.0, std::ceil(seconds / each)));
}

} // namespace

void Comparison::Add(const std::string& name, const std::function<void()>& body) {
    AddTimed(name, [body] {
        const auto start = steady_clock::now();
        body();
        return SecondsSince(start);
    });
}

void Comparison::AddTimed(const std::string& name, std::function<double()> body) {
    candidates_.push_back({name, std::move(body), 1, {}});
}

void Comparison::Run() {
    const auto policy = thread_ == Thread::Worker ? std::launch::async : std::launch::deferred;
    std::async(policy, [this] { RunTrials(); }).get();
}

void Comparison::RunTrials() {
    const auto start = steady_clock::now();
    double seconds = secondsPerRound_;
    for (int trial = 0; trial < kTrials; ++trial, seconds *= 2) {
        RunTrial(seconds);
        if (IsNarrow() || steady_clock::now() - start > kTimeBudget)
            return;
    }
}

void Comparison::RunTrial(double seconds) {
    for (Candidate& candidate : candidates_) {
        candidate.runs = CountRuns(candidate.body, seconds);
        candidate.times.clear();
    }
    for (std::size_t round = 0; round < rounds_; ++round)
        RunRound();
}

void Comparison::RunRound() {
    static std::minstd_rand random{std::random_device{}()};
    std::size_t slices = kMaxSlices;
    std::vector<Candidate*> order;
    for (Candidate& candidate : candidates_) {
        slices = std::min(slices, candidate.runs);
        order.push_back(&candidate);
        candidate.times.push_back(0);
    }
    for (std::size_t slice = 0; slice < slices; ++slice) {
        std::ranges::shuffle(order, random);
        for (Candidate* candidate : order) {
            const std::size_t runs = candidate->runs;
            const std::size_t share = runs * (slice + 1) / slices - runs * slice / slices;
            candidate->times.back() += TimeRuns(candidate->body, share);
        }
    }
    for (Candidate& candidate : candidates_)
        candidate.times.back() /= static_cast<double>(candidate.runs);
}

bool Comparison::IsNarrow() const {
    if (candidates_.size() == 1)
        return Time(candidates_.front().name).IsNarrow();
    return std::ranges::all_of(candidates_, [this](const Candidate& over) {
        return std::ranges::all_of(candidates_, [&](const Candidate& under) {
            return Ratio(over.name, under.name).IsNarrow();
        });
    });
}

const Comparison::Candidate& Comparison::Find(const std::string& name) const {
    const auto found = std::ranges::find(candidates_, name, &Candidate::name);
    if (found == candidates_.end())
        throw std::invalid_argument("no candidate " + name);
    return *found;
}

Spread Comparison::Time(const std::string& name) const {
    return Spread(Find(name).times);
}

Spread Comparison::Ratio(const std::string& over, const std::string& under) const {
    std::vector<double> ratios;
    std::ranges::transform(Find(over).times, Find(under).times, std::back_inserter(ratios),
                           std::divides());
    return Spread(std::move(ratios));
}

std::string Comparison::DescribeTimes(const std::vector<std::string>& names) const {
    std::string text;
    for (const std::string& name : names)
        text += (text.empty() ? "" : ", ") + name + " " + InTime(Time(name).median);
    return text;
}

} // namespace bench
