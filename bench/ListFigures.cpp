#include "ChangerInfoGenerator.h"
#include "Figures.h"
#include "Libplist.h"
#include "Memory.h"
#include "Notification.h"
#include "ProcessMemory.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace bench {
namespace {

// ---- retained memory ----

// Returns the heap growth in bytes by the last of these lists, while the earlier ones are retained.
long HeapGrowthByLast(const std::vector<std::string>& texts) {
    long growth = 0;
    for (const std::string& text : texts) {
        const Notification notification(text);
        const long before = HeapInUse();
        notification.Leak();
        growth = HeapInUse() - before;
    }
    return growth;
}

long HeapGrowthByLibplist(const std::string& text) {
    const long before = HeapInUse();
    ParseByLibplist(text);
    return HeapInUse() - before;
}

void MeasureFirst(Report& report) {
    const ChangerInfoGenerator generator(10, 500);
    const std::string text = generator.MakeNotification();
    const auto discs = static_cast<double>(generator.CountDiscs());
    const auto libplist = MeasureInChild([&] { return HeapGrowthByLibplist(text); });
    const auto first = MeasureInChild([&] { return HeapGrowthByLast({text}); });
    const auto again = MeasureInChild([&] { return HeapGrowthByLast({text, text}); });
    report.AddAtMost("10 x 500 discs: memory of the first list, per disc", 130,
                     static_cast<double>(first) / discs, "bytes",
                     "libplist " + InUnits(static_cast<double>(libplist) / discs, "bytes"));
    report.AddAtMost("the same list again: memory of the whole list", 0, static_cast<double>(again),
                     "bytes", "");
}

// ---- peak memory ----

// Returns the peak memory in bytes while the text is parsed, without the text itself.
long PeakOfParsing(const std::string& text) {
    const Notification notification(text);
    malloc_trim(0); // free memory would be reused, and would not count
    const double before = ReadResidentMemory(getpid());
    ResetPeakMemory();
    notification.Parse();
    return static_cast<long>(ReadPeakMemory(getpid()) - before);
}

double PeakOverText(const std::string& text) {
    const auto peak = static_cast<double>(MeasureInChild([&] { return PeakOfParsing(text); }));
    return peak / static_cast<double>(text.size());
}

// Elements with a large parsed form for their text. '#' stands for a number that is different in
// each element: equal elements would share memory.
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
    const ChangerInfoGenerator generator(1, 20'000);
    const std::string text = generator.MakeNotification();
    const double peak = PeakOverText(text);
    report.AddWithoutGoal(
        "1 x 20,000 discs: peak while parsing a list, in multiples of its text", peak, "",
        InUnits(peak * static_cast<double>(text.size()) / kMebibyte, "MiB") + " for a text of " +
            InUnits(static_cast<double>(text.size()) / kMebibyte, "MiB"));

    double most = 0;
    std::string peaks;
    for (const char* element : kHostile) {
        const double times = PeakOverText(Repeat(element));
        most = std::max(most, times);
        peaks += (peaks.empty() ? "`" : ", `") + std::string(element) + "` " + InUnits(times, "");
    }
    report.AddAtMost("most hostile known lists: peak while parsing one, in multiples of its text",
                     16, most, "", peaks);
}

} // namespace

void MeasureLists(Report& report) {
    MeasureFirst(report);
    MeasurePeaks(report);
}

} // namespace bench
