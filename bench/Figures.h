#ifndef BENCH_FIGURES_H
#define BENCH_FIGURES_H

#include "Report.h"

namespace bench {

void MeasureMemory(Report& report);
void MeasureWalk(Report& report);
void MeasureNotifications(Report& report);
void MeasureServer(Report& report);
void MeasureIdleAndStart(Report& report);
void MeasureGrowth(Report& report);
void MeasureScaling(Report& report);

/* Parts of a section. */
void MeasureLists(Report& report);
void MeasureNotificationGrowth(Report& report);
void MeasureHostileGrowth(Report& report);

} // namespace bench

#endif
