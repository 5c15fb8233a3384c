#include "Figures.h"

#include "ChangerInfoGenerator.h"
#include "Comparison.h"
#include "Data.h"
#include "Libplist.h"
#include "Notification.h"

#include <cstddef>
#include <string>
#include <vector>

namespace bench {
namespace {

// The goals are libplist's time over ours at least, 0 for sizes that are only drawn.
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

void MeasureReading(Report& report, Data& data, const std::string& what, const Size& size,
                    double goal) {
    const std::string text = ChangerInfoGenerator(size.changers, size.slots).MakeNotification();
    const Notification notification(text);
    Comparison comparison;
    comparison.Add("ours", [&] { notification.Read(); });
    comparison.Add("libplist", [&] { plist_free(ReadByLibplist(text)); });
    comparison.Run();
    const Spread ratio = comparison.Ratio("libplist", "ours");
    data.Add(
        {static_cast<double>(size.changers * size.slots), ratio.median, ratio.low, ratio.high});
    if (goal > 0) {
        report.AddAtLeast("reading with " + what + ", " + Describe(size) +
                              ": libplist's time over ours",
                          goal, ratio, "", comparison.Tell({"ours", "libplist"}));
    }
}

void Keep(const Size& size) {
    const ChangerInfoGenerator shelf(size.changers, size.slots);
    KnowChangers(shelf);
    Notification(shelf.MakeNotification()).Deliver();
    RequireKept(shelf);
}

// Of a list that is kept already.
void MeasureDelivery(Report& report, const Size& size) {
    const Notification notification(
        ChangerInfoGenerator(size.changers, size.slots).MakeNotification());
    Comparison comparison;
    comparison.Add("reading", [&] { notification.Read(); });
    comparison.AddTimed("all", [&] { return notification.Deliver(); });
    comparison.Run();
    report.AddAtMost("last byte to end of callbacks, " + Describe(size) + ": over reading", 1.5,
                     comparison.Ratio("all", "reading"), "", comparison.Tell({"reading", "all"}));
}

} // namespace

void MeasureNotifications(Report& report) {
    report.BeginSection(
        "Notifications",
        "A \"changer info\" of 10 changers with 500 slots each, and of one with 20, as XML. "
        "Beside: libplist's `plist_from_xml` with its `plist_free`. The picture has other sizes, "
        "too, of one changer.");
    Data data({"discs", "ratio", "low", "high"});
    data.BeginSet("nothing kept");
    for (const Size& size : kSizes)
        MeasureReading(report, data, "nothing kept", size, size.goalWithNoneKept);
    // The daemon keeps every list that it gets, so that each but the first finds its values there.
    data.BeginSet("the last list kept");
    for (const Size& size : kSizes) {
        Keep(size);
        if (size.goalWithLastKept > 0)
            MeasureDelivery(report, size);
        MeasureReading(report, data, "the last list kept", size, size.goalWithLastKept);
    }
    data.Write("reading");
    report.ShowPicture("reading.svg", "Reading beside libplist over the size of the list");
}

} // namespace bench
