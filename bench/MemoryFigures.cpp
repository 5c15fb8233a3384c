#include "BenchServer.h"
#include "ChangerInfoGenerator.h"
#include "ChangingFrame.h"
#include "EndAndCheck.h"
#include "Figures.h"
#include "Frame.h"
#include "PlotData.h"
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

constexpr double kChangesPerDay = 1200;
constexpr double kDaysPerYear = 365;
constexpr std::size_t kNotifications = 10'000; // the default of BENCH_NOTIFICATIONS
constexpr std::size_t kWarmUp = 30;
constexpr std::size_t kBetweenSamples = 250;

struct Shape {
    std::string_view name;
    std::size_t changers;
    std::size_t slots;
    double goal; // KiB per notification
};

constexpr Shape kShapes[] = {{"10x500", 10, 500, 1.25},   {"1x500", 1, 500, 1.25},
                             {"64x78", 64, 78, 1.5},      {"1x5000", 1, 5000, 1.5},
                             {"1x20000", 1, 20000, 1.75}, {"1x65535", 1, 65535, 2.0}};

std::string Environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

// Reads BENCH_NOTIFICATIONS. Throws if it is set but no number above 0.
std::size_t NotificationCount() {
    const std::string text = Environment("BENCH_NOTIFICATIONS");
    std::size_t count = kNotifications;
    const char* const end = text.data() + text.size();
    if (!text.empty() && (std::from_chars(text.data(), end, count).ptr != end || count == 0))
        throw std::invalid_argument("BENCH_NOTIFICATIONS must be a number above 0: " + text);
    return count;
}

// Returns the shapes that BENCH_SHAPES names, in its order; all shapes if it is not set. Throws if
// it contains an unknown name.
std::vector<Shape> SelectedShapes() {
    std::istringstream names(Environment("BENCH_SHAPES"));
    std::vector<Shape> shapes;
    for (std::string name; names >> name;) {
        const auto* const shape = std::ranges::find(kShapes, name, &Shape::name);
        if (shape == std::end(kShapes))
            throw std::invalid_argument("BENCH_SHAPES: unknown shape: " + name);
        shapes.push_back(*shape);
    }
    return shapes.empty() ? std::vector<Shape>(std::begin(kShapes), std::end(kShapes)) : shapes;
}

// ---- the running daemon ----

// Samples of a daemon's memory: notifications since the warm-up, bytes.
using Series = std::vector<std::pair<std::size_t, double>>;

// A daemon that receives notifications, each after it has processed the one before.
class SubscribedDaemon {
public:
    explicit SubscribedDaemon(const Shape& shape)
        : frame_(ChangerInfoGenerator(shape.changers, shape.slots)) {
        run_.StartDaemon();
        subscriber_ = server_.AwaitSubscriber();
        Push(subscriber_, frame_.Bytes());
        server_.AnswerRequests(shape.changers); // the daemon clears its status at each new changer
        AwaitProcessed();
    }

    void SendChanged() {
        constexpr std::size_t kStride =
            7919; // a prime: every disc changes once before one changes twice
        frame_.ChangeDisc(++sent_ * kStride % frame_.CountDiscs());
        Push(subscriber_, frame_.Bytes());
        AwaitProcessed();
    }
    double Memory() {
        return ReadDirtyMemory(run_.Daemon().Pid());
    }
    void End() {
        EndAndCheck(run_);
    }

private:
    // The daemon does not acknowledge notifications, but processes them in order. An invalid
    // notification causes a log line and retains no memory.
    void AwaitProcessed() {
        Push(subscriber_, invalidFrame_);
        run_.AwaitLog({".*fail get changer list as array.*"});
    }

    testbed::TestRun run_;
    BenchServer server_;
    testbed::Descriptor subscriber_;
    ChangingFrame frame_;
    const std::string invalidFrame_ =
        MakeFrame("<plist version=\"1.0\"><dict><key>changer list</key><true/></dict></plist>");
    std::size_t sent_ = 0;
};

double GrowthEach(const Series& series) {
    return (series.back().second - series.front().second) /
           static_cast<double>(series.back().first - series.front().first);
}

void PrintProgress(const Shape& shape, const Series& series) {
    std::fprintf(stderr, "    %s: %zu notifications, %.2f KiB each\n",
                 std::string(shape.name).c_str(), series.back().first,
                 GrowthEach(series) / kKibibyte);
}

Series MeasureShape(const Shape& shape) {
    const std::size_t count = NotificationCount();
    SubscribedDaemon reader(shape);
    for (std::size_t i = 0; i < kWarmUp; ++i)
        reader.SendChanged();
    Series series = {{0, reader.Memory()}};
    for (std::size_t i = 1; i <= count; ++i) {
        reader.SendChanged();
        if (i % kBetweenSamples == 0 || i == count)
            series.emplace_back(i, reader.Memory());
        if (i % (10 * kBetweenSamples) == 0)
            PrintProgress(shape, series);
    }
    reader.End();
    return series;
}

std::string Describe(const Shape& shape) {
    return std::to_string(shape.changers) + " x " + InUnits(static_cast<double>(shape.slots), "");
}

void AddTo(PlotData& data, const Shape& shape, const Series& series) {
    data.BeginSet(Describe(shape) + " discs");
    for (const auto& [notifications, memory] : series) {
        data.Add(
            {static_cast<double>(notifications), (memory - series.front().second) / kMebibyte});
    }
}

std::string DescribeGrowth(double bytesPerNotification) {
    constexpr double kGibibyte = kMebibyte * kKibibyte;
    const double perDay = bytesPerNotification * kChangesPerDay;
    return "per day: " + InUnits(perDay / kMebibyte, "MiB") +
           ", per year: " + InUnits(perDay * kDaysPerYear / kGibibyte, "GiB");
}

void MeasureRunning(Report& report, const std::vector<Shape>& shapes) {
    PlotData data({"notifications", "MiB since the first"});
    for (const Shape& shape : shapes) {
        const Series series = MeasureShape(shape);
        AddTo(data, shape, series);
        const double each = GrowthEach(series);
        report.AddAtMost(Describe(shape) + " discs: memory per notification", shape.goal,
                         each / kKibibyte, "KiB",
                         DescribeGrowth(each) + "; after the warm-up: " +
                             InUnits(series.front().second / kMebibyte, "MiB"));
    }
    data.Write("memory");
    report.ShowPicture("memory.svg", "Memory over notifications for the six shapes");
}

} // namespace

void MeasureMemory(Report& report) {
    const std::vector<Shape> shapes = SelectedShapes();
    report.BeginSection(
        "Memory over years",
        "The daemon as installed keeps each \"changer info\" that it receives. It receives " +
            std::to_string(kWarmUp) + " notifications as a warm-up, and then " +
            InUnits(static_cast<double>(NotificationCount()), "notifications") +
            ". Each notification contains the given number of changers and of identified discs "
            "per changer; in each of them one disc has changed. The memory per notification is "
            "the growth of the daemon's private dirty memory, as counted by the kernel, divided "
            "by their number. A year has 1,200 changes per day. A single list is measured in "
            "a process that has parsed nothing before: retained memory is that on the heap, "
            "peaks are of resident memory.");
    MeasureLists(report);
    MeasureRunning(report, shapes);
}

} // namespace bench
