#ifndef BENCH_FIGURES_H
#define BENCH_FIGURES_H

#include "Report.h"

namespace bench {

/* Each function runs the benchmarks of one section of the report and adds their results. They must
   be called in a sandbox, block until done, and throw on errors. */
void MeasureMemory(Report& report);
void MeasureWalk(Report& report);
void MeasureNotifications(Report& report);
void MeasureServer(Report& report);
void MeasureIdleAndStart(Report& report);
void MeasureGrowth(Report& report);
void MeasureScaling(Report& report);

/* Parts of the sections "memory" and "growth". */
void MeasureLists(Report& report);
void MeasureNotificationGrowth(Report& report);
void MeasureHostileGrowth(Report& report);

} // namespace bench

#endif
