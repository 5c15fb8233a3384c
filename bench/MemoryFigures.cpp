#include "Figures.h"

#include "AwaitedServer.h"
#include "ChangerInfoGenerator.h"
#include "ChangingFrame.h"
#include "Data.h"
#include "Frame.h"
#include "InOrder.h"
#include "ProcessMemory.h"

#include "testbed/TestRun.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {
namespace {

constexpr double kChangesADay = 1200;
constexpr double kDaysAYear = 365;
constexpr std::size_t kNotifications = 10'000; // unless BENCH_NOTIFICATIONS says otherwise
constexpr std::size_t kToWarmUp = 30;
constexpr std::size_t kBetweenSamples = 250;

struct Shape {
    std::string_view name;
    std::size_t changers;
    std::size_t slots;
    double goal; // KiB a notification
};

constexpr Shape kShapes[] = {{"10x500", 10, 500, 1.25},   {"1x500", 1, 500, 1.25},
                             {"64x78", 64, 78, 1.5},      {"1x5000", 1, 5000, 1.5},
                             {"1x20000", 1, 20000, 1.75}, {"1x65535", 1, 65535, 2.0}};

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// Throws unless the variable is a number above 0, or missing.
std::size_t CountNotifications() {
    const std::string wanted = Environment("BENCH_NOTIFICATIONS");
    std::size_t count = kNotifications;
    const char* const end = wanted.data() + wanted.size();
    if (!wanted.empty() && (std::from_chars(wanted.data(), end, count).ptr != end || count == 0))
        throw std::invalid_argument("BENCH_NOTIFICATIONS is no number of notifications: " + wanted);
    return count;
}

// Those that the variable names, in its order, or all of them. Throws when it names another one.
std::vector<Shape> WantedShapes() {
    std::istringstream wanted(Environment("BENCH_SHAPES"));
    std::vector<Shape> shapes;
    for (std::string name; wanted >> name;) {
        const auto* const shape = std::ranges::find(kShapes, name, &Shape::name);
        if (shape == std::end(kShapes))
            throw std::invalid_argument("BENCH_SHAPES: there is no shape " + name);
        shapes.push_back(*shape);
    }
    return shapes.empty() ? std::vector<Shape>(std::begin(kShapes), std::end(kShapes)) : shapes;
}

// ---- the running daemon ----

// A daemon's memory after so many notifications, in bytes; those that warmed it up are not counted.
using Series = std::vector<std::pair<std::size_t, double>>;

// A daemon that is sent notifications, each when it has dealt with the one before.
class Reader {
public:
    explicit Reader(const Shape& shape)
        : frame_(ChangerInfoGenerator(shape.changers, shape.slots)) {
        run_.StartDaemon();
        subscriber_ = server_.AwaitSubscriber();
        Push(subscriber_, frame_.Bytes());
        server_.AnswerRequests(shape.changers); // the daemon shows that it has no builds there
        AwaitDealtWith();
    }

    void SendChanged() {
        constexpr std::size_t kStride =
            7919; // prime, so that each disc changes once before any twice
        frame_.ChangeDisc(++sent_ * kStride % frame_.CountDiscs());
        Push(subscriber_, frame_.Bytes());
        AwaitDealtWith();
    }
    double Memory() {
        return ReadDirtyMemory(run_.Daemon().Pid());
    }
    void End() {
        EndCleanly(run_);
    }

private:
    // Nothing answers a notification. But they are dealt with in order, and a wrong one costs a
    // line in the log and leaves nothing in memory.
    void AwaitDealtWith() {
        Push(subscriber_, nonsense_);
        run_.AwaitLog({".*fail get changer list as array.*"});
    }

    testbed::TestRun run_;
    AwaitedServer server_;
    testbed::Descriptor subscriber_;
    ChangingFrame frame_;
    const std::string nonsense_ =
        MakeFrame("<plist version=\"1.0\"><dict><key>changer list</key><true/></dict></plist>");
    std::size_t sent_ = 0;
};

double GrowthEach(const Series& series) {
    return (series.back().second - series.front().second) /
           static_cast<double>(series.back().first - series.front().first);
}

void TellProgress(const Shape& shape, const Series& series) {
    std::fprintf(stderr, "    %s: %zu notifications, %.2f KiB each\n",
                 std::string(shape.name).c_str(), series.back().first,
                 GrowthEach(series) / kKibibyte);
}

Series MeasureShape(const Shape& shape) {
    const std::size_t count = CountNotifications();
    Reader reader(shape);
    for (std::size_t i = 0; i < kToWarmUp; ++i)
        reader.SendChanged();
    Series series = {{0, reader.Memory()}};
    for (std::size_t i = 1; i <= count; ++i) {
        reader.SendChanged();
        if (i % kBetweenSamples == 0 || i == count)
            series.emplace_back(i, reader.Memory());
        if (i % (10 * kBetweenSamples) == 0)
            TellProgress(shape, series);
    }
    reader.End();
    return series;
}

std::string Describe(const Shape& shape) {
    return std::to_string(shape.changers) + " x " + InUnits(static_cast<double>(shape.slots), "");
}

void AddTo(Data& data, const Shape& shape, const Series& series) {
    data.BeginSet(Describe(shape) + " discs");
    for (const auto& [notifications, memory] : series) {
        data.Add(
            {static_cast<double>(notifications), (memory - series.front().second) / kMebibyte});
    }
}

std::string TellGrowth(double bytesANotification) {
    constexpr double kGibibyte = kMebibyte * kKibibyte;
    const double aDay = bytesANotification * kChangesADay;
    return "a day: " + InUnits(aDay / kMebibyte, "MiB") +
           ", a year: " + InUnits(aDay * kDaysAYear / kGibibyte, "GiB");
}

void MeasureRunning(Report& report, const std::vector<Shape>& shapes) {
    Data data({"notifications", "MiB since the first"});
    for (const Shape& shape : shapes) {
        const Series series = MeasureShape(shape);
        AddTo(data, shape, series);
        const double each = GrowthEach(series);
        report.AddAtMost(Describe(shape) + " discs: memory for a notification", shape.goal,
                         each / kKibibyte, "KiB",
                         TellGrowth(each) + "; with the first lists " +
                             InUnits(series.front().second / kMebibyte, "MiB"));
    }
    data.Write("memory");
    report.ShowPicture("memory.svg", "Memory over notifications for the six shapes");
}

} // namespace

void MeasureMemory(Report& report) {
    const std::vector<Shape> shapes = WantedShapes();
    report.BeginSection(
        "Memory for years",
        "The daemon as installed keeps each \"changer info\" that it gets. It is sent " +
            InUnits(static_cast<double>(CountNotifications()), "notifications") +
            " of so many changers with so many identified discs each, in each of which one disc "
            "has changed, after " +
            std::to_string(kToWarmUp) +
            " to warm up. A notification's memory is the growth of the daemon's private dirty "
            "memory, as the kernel counts it, divided by their number; a year has 1,200 changes a "
            "day. Single lists are measured in processes that have read nothing before: what they "
            "keep on the heap, their peaks as resident memory.");
    MeasureLists(report);
    MeasureRunning(report, shapes);
}

} // namespace bench
