#include "Figures.h"

#include "Contest.h"
#include "Memory.h"
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

constexpr int kChangesADay = 1200;
constexpr int kDaysAYear = 365;

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

long GrowthByLibplist(const std::string& text) {
    const long before = HeapInUse();
    plist_t list = nullptr;
    plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &list);
    return HeapInUse() - before;
}

// What reading the last of these takes, while those before are kept.
long GrowthByLast(const std::vector<std::string>& texts) {
    long growth = 0;
    for (const std::string& text : texts) {
        const Notification notification(text);
        const long before = HeapInUse();
        notification.Keep();
        growth = HeapInUse() - before;
    }
    return growth;
}

long GrowthInADay(Shelf shelf) {
    Notification(shelf.MakeNotification()).Keep();
    const long before = HeapInUse();
    for (std::size_t change = 0; change < kChangesADay; ++change) {
        shelf.ChangeDisc(change * 7919 % shelf.CountDiscs());
        Notification(shelf.MakeNotification()).Keep();
    }
    return HeapInUse() - before;
}

void MeasureMemory(Report& report) {
    Shelf shelf(kLarge.changers, kLarge.slots);
    const auto discs = static_cast<double>(shelf.CountDiscs());
    const std::string text = shelf.MakeNotification();
    const auto libplist = MeasureApart([&] { return GrowthByLibplist(text); });
    const auto first = MeasureApart([&] { return GrowthByLast({text}); });
    const auto second = MeasureApart([&] { return GrowthByLast({text, text}); });
    report.AddAtMost("memory of the first list, a disc", 300, static_cast<double>(first) / discs,
                     "bytes",
                     "libplist " + InUnits(static_cast<double>(libplist) / discs, "bytes"));
    report.AddAtMost("of the same again, for all", 1, static_cast<double>(second) / kKibibyte,
                     "KiB", "");
    shelf.ChangeDisc(0);
    const std::string changed = shelf.MakeNotification();
    const auto third = MeasureApart([&] { return GrowthByLast({text, changed}); });
    report.AddAtMost("of one with one disc changed, for all", 8,
                     static_cast<double>(third) / kKibibyte, "KiB", "");

    const auto day = static_cast<double>(MeasureApart([&] { return GrowthInADay(shelf); }));
    report.AddUnjudged("of a day of " + std::to_string(kChangesADay) + " changes", day / kMebibyte,
                       "MiB", "a year: " + InUnits(day * kDaysAYear / kMebibyte, "MiB"));
}

} // namespace

void MeasureNotifications(Report& report) {
    report.BeginSection("Notifications", "A \"changer info\" of 10 changers with 500 slots each, "
                                         "and of one with 20, as XML. Beside: "
                                         "libplist's `plist_from_xml` with its `plist_free`.");
    MeasureMemory(report); // first, in a process that has read nothing
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
