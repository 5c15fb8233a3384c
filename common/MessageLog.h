#ifndef COMMON_MESSAGELOG_H
#define COMMON_MESSAGELOG_H

/*
 * The daemon's only output: printf-style messages to the system log at alert priority, or, for
 * errors when g_vErrLogPath is set, appended to that file. Nothing here reports a failure; each
 * message is one system log call or one open-write-close, so threads interleave by line.
 */

#include "common/VErr.h"

#include <cstdarg>

/* Append the time on a line of its own, the message and a newline. Unopenable: dropped. */
void VFLogMessage(const char* path, const char* format, va_list arguments)
    __attribute__((format(printf, 2, 0)));
void FLogMessage(const char* path, const char* format, ...) __attribute__((format(printf, 2, 3)));

void VLogMessage(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));
void LogMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* To the file when g_vErrLogPath is set, else to the system log. */
void VLogErr(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));
void LogErr(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* What follows the last "/", in place. */
const char* GetFileNameFromPath(const char* path);

/* A message that no link could hold, then its code unless that is the default; not above level
   50. The arguments stay usable. */
void LogErrStr(VErrCode code, UInt16 level, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

/* A raising site that no link could hold. */
void LogErrFileFuncLine(const char* file, const char* func, SInt64 line);

#endif
