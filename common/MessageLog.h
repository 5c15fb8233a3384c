#ifndef COMMON_MESSAGELOG_H
#define COMMON_MESSAGELOG_H

/*
 * The daemon's only output: printf-style messages to the system log at alert priority. Errors are
 * appended to a file instead if g_vErrLogPath is set. No function reports a failure.
 *
 * Any thread may log. A message is one call of the system log, or one opening, writing and closing
 * of the file, either of which may block for as long as the system does.
 */

#include <CoreFoundation/CFBase.h>

#include <stdarg.h>

extern char* g_vErrLogPath; // of the file for errors; null: the system log

/* Append a line with the time, the message and a newline to the file at path. A message to a file
   that cannot be opened is dropped. */
void VFLogMessage(const char* path, const char* format, va_list arguments)
    __attribute__((format(printf, 2, 0)));
void FLogMessage(const char* path, const char* format, ...) __attribute__((format(printf, 2, 3)));

/* Write a message to the system log. */
void VLogMessage(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));
void LogMessage(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* Write a message to the file g_vErrLogPath if it is set, and else to the system log. */
void VLogErr(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));
void LogErr(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* The part of path behind the last "/"; the whole path if it has none. */
const char* GetFileNameFromPath(const char* path);

/* Logs a raising site for which there is no link: the name of the file, the line, the function. */
void LogErrFileFuncLine(const char* file, const char* func, SInt64 line);

#endif
