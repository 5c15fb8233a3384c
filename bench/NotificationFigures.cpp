#include "Figures.h"

#include "Contest.h"
#include "Notification.h"
#include "Shelf.h"

#include <plist/plist.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace bench {
namespace {

struct Size {
    std::size_t changers;
    std::size_t slots;
};
constexpr Size kLarge = {10, 500};
constexpr Size kSmall = {1, 20};

std::string Describe(Size size) {
    return std::to_string(size.changers * size.slots) + " discs";
}

void ReadByLibplist(const std::string& text) {
    plist_t list = nullptr;
    plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &list);
    if (list == nullptr) {
        throw std::runtime_error("libplist cannot read a notification");
    }
    plist_free(list);
}

void MeasureReading(Report& report, const std::string& what, Size size) {
    const std::string text = Shelf(size.changers, size.slots).MakeNotification();
    const Notification notification(text);
    Contest contest;
    contest.Add("ours", [&] { notification.Read(); });
    contest.Add("libplist", [&] { ReadByLibplist(text); });
    const auto times = contest.Run();
    report.AddAtLeast(what + ", " + Describe(size) + ": libplist's time over ours", 3.0,
                      times.at("libplist") / times.at("ours"), "",
                      Contest::Tell(times, {"ours", "libplist"}));
}

void MeasureDelivery(Report& report, Size size) {
    const Shelf shelf(size.changers, size.slots);
    const Notification notification(shelf.MakeNotification());
    KnowChangers(shelf);
    Contest contest;
    contest.Add("reading", [&] { notification.Read(); });
    contest.AddTimed("all", [&] { return notification.Deliver(); });
    const auto times = contest.Run();
    RequireKept(shelf);
    report.AddAtMost("last byte to end of callbacks, " + Describe(size) + ": over reading", 1.5,
                     times.at("all") / times.at("reading"), "",
                     Contest::Tell(times, {"reading", "all"}));
}

} // namespace

void MeasureNotifications(Report& report) {
    report.BeginSection("Notifications", "A \"changer info\" of 10 changers with 500 slots each, "
                                         "and of one with 20, as XML. Beside: "
                                         "libplist's `plist_from_xml` with its `plist_free`.");
    for (const Size size : {kSmall, kLarge}) {
        MeasureReading(report, "reading a list with none kept", size);
    }
    // The daemon keeps every list that it gets, so that each but the first finds its values there.
    for (const Size size : {kSmall, kLarge}) {
        MeasureDelivery(report, size);
        MeasureReading(report, "reading it again", size);
    }
}

} // namespace bench
