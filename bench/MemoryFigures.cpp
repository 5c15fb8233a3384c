#include "Figures.h"

#include "AwaitedServer.h"
#include "ChangingFrame.h"
#include "Data.h"
#include "Frame.h"
#include "InOrder.h"
#include "ProcessMemory.h"
#include "Shelf.h"

#include "stage/Scene.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace bench {
namespace {

constexpr double kChangesAYear = 1200 * 365;
constexpr std::size_t kNotifications = 10'000;
constexpr std::size_t kToWarmUp = 30;
constexpr std::size_t kBetweenSamples = 250;

struct Shape {
    const char* name;
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

std::size_t CountNotifications() {
    const std::string wanted = Environment("BENCH_NOTIFICATIONS");
    return wanted.empty() ? kNotifications : std::stoul(wanted);
}

bool IsWanted(const Shape& shape) {
    const std::string wanted = Environment("BENCH_SHAPES");
    return wanted.empty() ||
           (" " + wanted + " ").find(" " + std::string(shape.name) + " ") != std::string::npos;
}

// ---- the running daemon ----

// What a daemon's memory was after so many notifications, the first with those that warmed it up.
using Series = std::vector<std::pair<std::size_t, double>>;

// A daemon that is sent one notification after the other, each of which it has dealt with before
// the next one.
class Reader {
public:
    explicit Reader(const Shape& shape) : frame_(Shelf(shape.changers, shape.slots)) {
        scene_.StartDaemon();
        subscriber_ = server_.AwaitSubscriber();
        Push(subscriber_, frame_.Bytes());
        server_.AnswerRequests(shape.changers); // the daemon shows that it has no builds there
        AwaitDealtWith();
    }

    void SendChanged() {
        constexpr std::size_t kStride = 7919; // prime, so that all discs have their turn
        frame_.ChangeDisc(++sent_ * kStride % frame_.CountDiscs());
        Push(subscriber_, frame_.Bytes());
        AwaitDealtWith();
    }
    double Memory() {
        return ReadDirtyMemory(scene_.TheDaemon().Pid());
    }
    void End() {
        EndInOrder(scene_);
    }

private:
    // Nothing answers a notification. But they are dealt with one after the other, and one that is
    // nonsense costs a line in the log and leaves nothing behind.
    void AwaitDealtWith() {
        Push(subscriber_, nonsense_);
        scene_.AwaitLog({".*fail get changer list as array.*"});
    }

    stage::Scene scene_;
    AwaitedServer server_;
    stage::Descriptor subscriber_;
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
    std::fprintf(stderr, "    %s: %zu notifications, %.2f KiB each\n", shape.name,
                 series.back().first, GrowthEach(series) / kKibibyte);
}

Series MeasureShape(const Shape& shape) {
    const std::size_t count = CountNotifications();
    Reader reader(shape);
    for (std::size_t i = 0; i < kToWarmUp; ++i) {
        reader.SendChanged();
    }
    Series series = {{0, reader.Memory()}};
    for (std::size_t i = 1; i <= count; ++i) {
        reader.SendChanged();
        if (i % kBetweenSamples == 0 || i == count) {
            series.emplace_back(i, reader.Memory());
        }
        if (i % (10 * kBetweenSamples) == 0) {
            TellProgress(shape, series);
        }
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

void MeasureRunning(Report& report) {
    Data data({"notifications", "MiB since the first"});
    for (const Shape& shape : kShapes) {
        if (!IsWanted(shape)) {
            continue;
        }
        const Series series = MeasureShape(shape);
        AddTo(data, shape, series);
        const double each = GrowthEach(series);
        constexpr double kGibibyte = kMebibyte * kKibibyte;
        report.AddAtMost(Describe(shape) + " discs: memory for a notification", shape.goal,
                         each / kKibibyte, "KiB",
                         "a year: " + InUnits(each * kChangesAYear / kGibibyte, "GiB") +
                             "; in the beginning " +
                             InUnits(series.front().second / kMebibyte, "MiB"));
    }
    data.Write("memory");
    report.ShowPicture("memory.svg", "Memory over notifications for the six shapes");
}

} // namespace

void MeasureMemory(Report& report) {
    report.BeginSection(
        "Memory for years",
        "The daemon as installed, as a process that keeps each \"changer info\" that it gets. So "
        "many changers with so many identified discs each; " +
            InUnits(static_cast<double>(CountNotifications()), "notifications") +
            " with one disc changed in each, after 30 to warm up. Its private dirty memory, as the "
            "kernel counts it, divided by their number; a year has 1,200 changes a day. Single "
            "lists are measured in processes that have read nothing, their peaks as resident "
            "memory.");
    MeasureLists(report);
    MeasureRunning(report);
}

} // namespace bench
