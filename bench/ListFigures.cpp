#include "Figures.h"

#include "ChangerInfoGenerator.h"
#include "Libplist.h"
#include "Memory.h"
#include "Notification.h"
#include "ProcessMemory.h"

#include <algorithm>
#include <malloc.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace bench {
namespace {

// ---- what is kept ----

// The bytes that the last of these takes on the heap when those before are kept.
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

long GrowthByLibplist(const std::string& text) {
    const long before = HeapInUse();
    ReadByLibplist(text);
    return HeapInUse() - before;
}

void MeasureFirst(Report& report) {
    const ChangerInfoGenerator shelf(10, 500);
    const std::string text = shelf.MakeNotification();
    const auto discs = static_cast<double>(shelf.CountDiscs());
    const auto libplist = MeasureApart([&] { return GrowthByLibplist(text); });
    const auto first = MeasureApart([&] { return GrowthByLast({text}); });
    const auto again = MeasureApart([&] { return GrowthByLast({text, text}); });
    report.AddAtMost("10 x 500 discs: memory of the first list, a disc", 130,
                     static_cast<double>(first) / discs, "bytes",
                     "libplist " + InUnits(static_cast<double>(libplist) / discs, "bytes"));
    report.AddAtMost("the same list again: memory of all of it", 0, static_cast<double>(again),
                     "bytes", "");
}

// ---- while it is read ----

// The bytes of memory that reading the text takes at most, beside the text itself.
long PeakOfReading(const std::string& text) {
    const Notification notification(text);
    malloc_trim(0); // what is free would be used again, and not be seen
    const double before = ReadResidentMemory(getpid());
    ForgetPeakMemory();
    notification.Read();
    return static_cast<long>(ReadPeakMemory(getpid()) - before);
}

double PeakOverText(const std::string& text) {
    const auto peak = static_cast<double>(MeasureApart([&] { return PeakOfReading(text); }));
    return peak / static_cast<double>(text.size());
}

// Elements whose parsed form is long beside their text. A '#' stands for a number that is another
// one in each element, so that no two are equal.
constexpr const char* kHostile[] = {"<true/>",
                                    "<array/>",
                                    "<dict/>",
                                    "<array><true/></array>",
                                    "<array><array/></array>",
                                    "<string>#</string>",
                                    "<real>#</real>",
                                    "<array><integer>#</integer></array>",
                                    "<dict><key>#</key><true/></dict>",
                                    "<dict><key/><array/></dict>"};

std::string Repeat(std::string element) {
    constexpr std::size_t kLength = 10'000'000;
    const std::size_t number = element.find('#');
    const std::string behind = number == element.npos ? "" : element.substr(number + 1);
    std::string text = "<array>";
    for (int i = 0; text.size() < kLength; ++i) {
        if (number != element.npos)
            element.replace(number, element.npos, std::to_string(i) + behind);
        text += element;
    }
    return text + "</array>";
}

void MeasurePeaks(Report& report) {
    const ChangerInfoGenerator shelf(1, 20'000);
    const std::string text = shelf.MakeNotification();
    const double peak = PeakOverText(text);
    report.AddUnjudged("1 x 20,000 discs: peak while a list is read, times its text", peak, "",
                       InUnits(peak * static_cast<double>(text.size()) / kMebibyte, "MiB") +
                           " for a text of " +
                           InUnits(static_cast<double>(text.size()) / kMebibyte, "MiB"));

    double most = 0;
    std::string told;
    for (const char* element : kHostile) {
        const double times = PeakOverText(Repeat(element));
        most = std::max(most, times);
        told += (told.empty() ? "`" : ", `") + std::string(element) + "` " + InUnits(times, "");
    }
    report.AddAtMost("the most hostile lists known: peak while one is read, times its text", 16,
                     most, "", told);
}

} // namespace

void MeasureLists(Report& report) {
    MeasureFirst(report);
    MeasurePeaks(report);
}

} // namespace bench
