#include "common/MessageLog.h"

#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

char* g_vErrLogPath = nullptr;

void VFLogMessage(const char* path, const char* format, va_list arguments) {
    FILE* file = fopen(path, "a+");
    if (file == nullptr)
        return;
    const time_t now = time(nullptr);
    char stamp[32] = "";
    if (ctime_r(&now, stamp) != nullptr)
        fputs(stamp, file);
    vfprintf(file, format, arguments);
    fputs("\n", file);
    fclose(file);
}

void FLogMessage(const char* path, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VFLogMessage(path, format, arguments);
    va_end(arguments);
}

// There is no openlog(): the facility and the name in each line are the system's defaults.
void VLogMessage(const char* format, va_list arguments) {
    vsyslog(LOG_ALERT, format, arguments);
}

void LogMessage(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VLogMessage(format, arguments);
    va_end(arguments);
}

void VLogErr(const char* format, va_list arguments) {
    if (g_vErrLogPath == nullptr)
        VLogMessage(format, arguments);
    else
        VFLogMessage(g_vErrLogPath, format, arguments);
}

void LogErr(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VLogErr(format, arguments);
    va_end(arguments);
}

const char* GetFileNameFromPath(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

void LogErrFileFuncLine(const char* file, const char* func, SInt64 line) {
    LogErr("%s:%lld, %s", GetFileNameFromPath(file), line, func);
}
