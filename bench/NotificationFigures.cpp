#include "ChangerInfoGenerator.h"
#include "Comparison.h"
#include "Figures.h"
#include "Libplist.h"
#include "Notification.h"
#include "PlotData.h"

#include <cstddef>
#include <string>
#include <vector>

namespace bench {
namespace {

// The goals are the least ratios of libplist's time to ours; 0 for sizes that are only drawn.
struct Size {
    std::size_t changers;
    std::size_t slots;
    double goalWithNoneKept;
    double goalWithLastKept;
};
constexpr Size kSizes[] = {{1, 20, 3.4, 4.0},   {1, 100, 0, 0},   {1, 500, 0, 0},
                           {10, 500, 5.0, 5.5}, {1, 20000, 0, 0}, {1, 65535, 0, 0}};

std::string Describe(const Size& size) {
    const auto discs = static_cast<double>(size.changers * size.slots);
    return InUnits(discs, "discs");
}

void MeasureParsing(Report& report, PlotData& data, const std::string& what, const Size& size,
                    double goal) {
    const std::string text = ChangerInfoGenerator(size.changers, size.slots).MakeNotification();
    const Notification notification(text);
    Comparison comparison;
    comparison.Add("ours", [&] { notification.Parse(); });
    comparison.Add("libplist", [&] { plist_free(ParseByLibplist(text)); });
    comparison.Run();
    const Spread ratio = comparison.Ratio("libplist", "ours");
    data.Add(
        {static_cast<double>(size.changers * size.slots), ratio.median, ratio.low, ratio.high});
    if (goal > 0) {
        report.AddAtLeast("parsing with " + what + ", " + Describe(size) +
                              ": libplist's time over ours",
                          goal, ratio, "", comparison.DescribeTimes({"ours", "libplist"}));
    }
}

void DeliverOnce(const Size& size) {
    const ChangerInfoGenerator generator(size.changers, size.slots);
    AddChangers(generator);
    Notification(generator.MakeNotification()).Deliver();
    RequireDelivered(generator);
}

// Precondition: the same list has been delivered before.
void MeasureDelivery(Report& report, const Size& size) {
    const Notification notification(
        ChangerInfoGenerator(size.changers, size.slots).MakeNotification());
    Comparison comparison;
    comparison.Add("parsing", [&] { notification.Parse(); });
    comparison.AddTimed("all", [&] { return notification.Deliver(); });
    comparison.Run();
    report.AddAtMost("last byte to end of callbacks, " + Describe(size) + ": over parsing", 1.5,
                     comparison.Ratio("all", "parsing"), "",
                     comparison.DescribeTimes({"parsing", "all"}));
}

} // namespace

void MeasureNotifications(Report& report) {
    report.BeginSection(
        "Notifications",
        "The notification is a \"changer info\" in XML, of 10 changers with 500 slots each "
        "or of one changer with 20 slots. The reference is libplist: `plist_from_xml` and "
        "`plist_free`. The picture shows more sizes, all of one changer.");
    PlotData data({"discs", "ratio", "low", "high"});
    data.BeginSet("nothing kept");
    for (const Size& size : kSizes)
        MeasureParsing(report, data, "nothing kept", size, size.goalWithNoneKept);
    // The daemon keeps every list that it receives: all lists but the first share its values.
    data.BeginSet("the last list kept");
    for (const Size& size : kSizes) {
        DeliverOnce(size);
        if (size.goalWithLastKept > 0)
            MeasureDelivery(report, size);
        MeasureParsing(report, data, "the last list kept", size, size.goalWithLastKept);
    }
    data.Write("reading");
    report.ShowPicture("reading.svg", "Parse time of libplist over ours, by size of the list");
}

} // namespace bench
