#include "Contest.h"

#include "Report.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <utility>

namespace bench {
namespace {

constexpr double kSecondsARound = 0.1;

class MedianReporter : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context&) override {
        return true;
    }
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                times_[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
    }
    const Contest::Times& Times() const {
        return times_;
    }

private:
    Contest::Times times_;
};

void InitializeOnce() {
    static std::vector<std::string> words = {"bench", "--benchmark_enable_random_interleaving"};
    static std::vector<char*> arguments = {words[0].data(), words[1].data(), nullptr};
    static const bool initialized = [] {
        int count = 2;
        benchmark::Initialize(&count, arguments.data());
        return true;
    }();
    static_cast<void>(initialized);
}

} // namespace

void Contest::Add(const std::string& name, std::function<void()> body) {
    AddTimed(name, [body = std::move(body)] {
        const auto start = std::chrono::steady_clock::now();
        body();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    });
}

void Contest::AddTimed(const std::string& name, std::function<double()> body) {
    bodies_[name] = std::move(body);
}

Contest::Times Contest::Run() {
    InitializeOnce();
    for (const auto& [name, body] : bodies_) {
        const auto repeat = [&timed = body](benchmark::State& state) {
            for (auto _ : state) {
                state.SetIterationTime(timed());
            }
        };
        benchmark::RegisterBenchmark(name.c_str(), repeat)
            ->Unit(benchmark::kSecond)
            ->UseManualTime()
            ->MinTime(kSecondsARound)
            ->Repetitions(rounds_)
            ->ReportAggregatesOnly();
    }
    MedianReporter reporter;
    const auto run = [&reporter] { benchmark::RunSpecifiedBenchmarks(&reporter); };
    std::async(thread_ == Thread::Another ? std::launch::async : std::launch::deferred, run).get();
    benchmark::ClearRegisteredBenchmarks();
    if (reporter.Times().size() != bodies_.size()) {
        throw std::runtime_error("not every contender has a time");
    }
    return reporter.Times();
}

std::string Contest::Tell(const Times& times, const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ", ") + name + " " + InTime(times.at(name));
    }
    return text;
}

} // namespace bench
