#include "Figures.h"
#include "Machine.h"
#include "common/VErr.h"
#include "trayprobed/MediaIdState.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Section {
    const char* name;
    void (*measure)(bench::Report& report);
};

// Memory and notifications come first: they need a process that has parsed no list yet.
constexpr Section kSections[] = {
    {"memory", bench::MeasureMemory},    {"notifications", bench::MeasureNotifications},
    {"walk", bench::MeasureWalk},        {"server", bench::MeasureServer},
    {"growth", bench::MeasureGrowth},    {"scaling", bench::MeasureScaling},
    {"idle", bench::MeasureIdleAndStart}};

void Measure(const std::vector<std::string>& names) {
    const std::string head = bench::DescribeRun();
    bench::Report report;
    for (const std::string& name : names)
        if (std::ranges::none_of(kSections, [&](const Section& each) { return name == each.name; }))
            throw std::invalid_argument("unknown section: " + name);
    for (const Section& section : kSections)
        if (names.empty() || std::ranges::find(names, section.name) != names.end())
            section.measure(report);
    std::printf("%s%s", head.c_str(), report.Format().c_str());
    std::fprintf(stderr, "\n%s", report.FormatSummary().c_str());
}

} // namespace

int main(int argc, char** argv) {
    if (!InitVErrSystem() || InitMediaIdState() != nullptr) {
        std::fprintf(stderr, "cannot initialise the daemon's modules\n");
        return 1;
    }
    try {
        Measure({argv + 1, argv + argc});
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
