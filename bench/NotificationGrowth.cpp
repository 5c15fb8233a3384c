#include "Figures.h"

#include "ChangerInfoGenerator.h"
#include "Comparison.h"
#include "Data.h"
#include "Notification.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>

namespace bench {
namespace {

constexpr std::size_t kSlots = 1000;
constexpr std::size_t kChangerCounts[] = {1, 4, 16, 64};
constexpr int kRuns = 5;

using Notifications = std::map<std::size_t, std::unique_ptr<Notification>>; // by changers

Notifications DeliverAll() {
    Notifications notifications;
    for (const std::size_t changers : kChangerCounts) {
        const ChangerInfoGenerator shelf(changers, kSlots);
        KnowChangers(shelf);
        notifications[changers] = std::make_unique<Notification>(shelf.MakeNotification());
        notifications[changers]->Deliver();
        RequireKept(shelf);
    }
    return notifications;
}

double CountDiscs(std::size_t changers) {
    return static_cast<double>(changers * kSlots);
}

// Seconds for a disc of the first over those for one of the second.
Spread CompareCosts(const Comparison& comparison, std::size_t changers, std::size_t others) {
    return comparison.Ratio(std::to_string(changers), std::to_string(others))
        .Times(CountDiscs(others) / CountDiscs(changers));
}

void MeasureOnce(Report& report, Data& data, const Notifications& notifications, int run) {
    Comparison comparison;
    for (const auto& [changers, each] : notifications) {
        comparison.AddTimed(std::to_string(changers),
                            [&notification = *each] { return notification.Deliver(); });
    }
    comparison.Run();
    std::map<double, std::size_t> changersByCost;
    std::string beside;
    data.BeginSet("run " + std::to_string(run));
    for (const std::size_t changers : kChangerCounts) {
        const std::string name = std::to_string(changers);
        const Spread cost = comparison.Time(name).Times(1 / CountDiscs(changers));
        changersByCost[cost.median] = changers;
        beside += (beside.empty() ? "" : ", ") + name + ": " + InTime(cost.median);
        data.Add({CountDiscs(changers), cost.median * 1e6, cost.low * 1e6, cost.high * 1e6});
    }
    report.AddAtMost(
        "a notification's cost for a disc, 1 to 64 changers: most over least, run " +
            std::to_string(run),
        1.25,
        CompareCosts(comparison, changersByCost.rbegin()->second, changersByCost.begin()->second),
        "", beside);
}

} // namespace

void MeasureNotificationGrowth(Report& report) {
    const Notifications notifications = DeliverAll();
    Data data({"discs", "microseconds a disc", "low", "high"});
    for (int run = 1; run <= kRuns; ++run)
        MeasureOnce(report, data, notifications, run);
    data.Write("cost-per-disc");
    report.ShowPicture("cost-per-disc.svg", "A notification's cost for a disc over their number");
}

} // namespace bench
