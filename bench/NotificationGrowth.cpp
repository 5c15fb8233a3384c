#include "ChangerInfoGenerator.h"
#include "Comparison.h"
#include "Figures.h"
#include "Notification.h"
#include "PlotData.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>

namespace bench {
namespace {

constexpr std::size_t kSlots = 1000;
constexpr std::size_t kChangerCounts[] = {1, 4, 16, 64};
constexpr int kRuns = 5;

using Notifications = std::map<std::size_t, std::unique_ptr<Notification>>; // by number of changers

Notifications DeliverAll() {
    Notifications notifications;
    for (const std::size_t changers : kChangerCounts) {
        const ChangerInfoGenerator generator(changers, kSlots);
        AddChangers(generator);
        notifications[changers] = std::make_unique<Notification>(generator.MakeNotification());
        notifications[changers]->Deliver();
        RequireDelivered(generator);
    }
    return notifications;
}

double CountDiscs(std::size_t changers) {
    return static_cast<double>(changers * kSlots);
}

// Returns the ratio of the times per disc: `changers` over `others`.
Spread CompareCosts(const Comparison& comparison, std::size_t changers, std::size_t others) {
    return comparison.Ratio(std::to_string(changers), std::to_string(others))
        .Times(CountDiscs(others) / CountDiscs(changers));
}

void MeasureOnce(Report& report, PlotData& data, const Notifications& notifications, int run) {
    Comparison comparison;
    for (const auto& [changers, each] : notifications) {
        comparison.AddTimed(std::to_string(changers),
                            [&notification = *each] { return notification.Deliver(); });
    }
    comparison.Run();
    std::map<double, std::size_t> changersByCost;
    std::string details;
    data.BeginSet("run " + std::to_string(run));
    for (const std::size_t changers : kChangerCounts) {
        const std::string name = std::to_string(changers);
        const Spread cost = comparison.Time(name).Times(1 / CountDiscs(changers));
        changersByCost[cost.median] = changers;
        details += (details.empty() ? "" : ", ") + name + ": " + InTime(cost.median);
        data.Add({CountDiscs(changers), cost.median * 1e6, cost.low * 1e6, cost.high * 1e6});
    }
    report.AddAtMost(
        "time per disc of a notification, 1 to 64 changers: highest over lowest, run " +
            std::to_string(run),
        1.25,
        CompareCosts(comparison, changersByCost.rbegin()->second, changersByCost.begin()->second),
        "", details);
}

} // namespace

void MeasureNotificationGrowth(Report& report) {
    const Notifications notifications = DeliverAll();
    PlotData data({"discs", "microseconds per disc", "low", "high"});
    for (int run = 1; run <= kRuns; ++run)
        MeasureOnce(report, data, notifications, run);
    data.Write("cost-per-disc");
    report.ShowPicture("cost-per-disc.svg", "Time per disc of a notification, by number of discs");
}

} // namespace bench
