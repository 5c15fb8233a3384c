#include "Figures.h"

#include "Contest.h"
#include "Data.h"
#include "Notification.h"
#include "Shelf.h"

#include <plist/plist.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {
namespace {

// What libplist's time over ours is to be at least, 0 for sizes that are only drawn.
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

void ReadByLibplist(const std::string& text) {
    plist_t list = nullptr;
    plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &list);
    if (list == nullptr) {
        throw std::runtime_error("libplist cannot read a notification");
    }
    plist_free(list);
}

void Reads(Report& report, Data& data, const std::string& what, const Size& size, double goal) {
    const std::string text = Shelf(size.changers, size.slots).MakeNotification();
    const Notification notification(text);
    Contest contest;
    contest.Add("ours", [&] { notification.Read(); });
    contest.Add("libplist", [&] { ReadByLibplist(text); });
    contest.Run();
    const Spread ratio = contest.Ratio("libplist", "ours");
    data.Add(
        {static_cast<double>(size.changers * size.slots), ratio.median, ratio.low, ratio.high});
    if (goal > 0) {
        report.AddAtLeast("reading with " + what + ", " + Describe(size) +
                              ": libplist's time over ours",
                          goal, ratio, "", contest.Tell({"ours", "libplist"}));
    }
}

void MeasureDelivery(Report& report, const Size& size) {
    const Shelf shelf(size.changers, size.slots);
    const Notification notification(shelf.MakeNotification());
    KnowChangers(shelf);
    Contest contest;
    contest.Add("reading", [&] { notification.Read(); });
    contest.AddTimed("all", [&] { return notification.Deliver(); });
    contest.Run();
    RequireKept(shelf);
    if (size.goalWithLastKept > 0) {
        report.AddAtMost("last byte to end of callbacks, " + Describe(size) + ": over reading", 1.5,
                         contest.Ratio("all", "reading"), "", contest.Tell({"reading", "all"}));
    }
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
    for (const Size& size : kSizes) {
        Reads(report, data, "nothing kept", size, size.goalWithNoneKept);
    }
    // The daemon keeps every list that it gets, so that each but the first finds its values there.
    data.BeginSet("the last list kept");
    for (const Size& size : kSizes) {
        MeasureDelivery(report, size);
        Reads(report, data, "the last list kept", size, size.goalWithLastKept);
    }
    data.Write("reading");
    report.ShowPicture("reading.svg", "Reading beside libplist over the size of the list");
}

} // namespace bench
