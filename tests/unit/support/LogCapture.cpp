#include "LogCapture.h"

#include <gtest/gtest.h>

#include <syslog.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace {

// Consecutive texts with their terminators, in an array: capturing must not allocate.
struct CaughtLines {
    std::mutex mutex;
    std::array<char, 1024 * 1024> bytes;
    std::size_t used = 0;
    bool capturing = false;
};
CaughtLines g_caught;

__attribute__((format(printf, 2, 0))) void Catch(int priority, const char* format, va_list list) {
    const std::lock_guard lock(g_caught.mutex);
    char* const line = g_caught.bytes.data() + g_caught.used;
    const std::size_t capacity = g_caught.bytes.size() - g_caught.used;
    std::size_t length = 0;
    if (priority != LOG_ALERT)
        length = static_cast<std::size_t>(snprintf(line, capacity, "(priority %d) ", priority));
    int written = vsnprintf(line + length, capacity - length, format, list);
    if (written < 0)
        written = snprintf(line + length, capacity - length, "(cannot be formatted)");
    if (!g_caught.capturing)
        ADD_FAILURE() << "logged without a capture: " << line;
    else if (length + static_cast<std::size_t>(written) >= capacity)
        ADD_FAILURE() << "the capture's buffer is full";
    else
        g_caught.used += length + static_cast<std::size_t>(written) + 1;
}

// Replaces the number in "file:77, function"; other lines stay unchanged.
std::string WithoutLineNumber(const std::string& line) {
    const std::size_t number = line.find(':') + 1;
    const std::size_t behind = line.find_first_not_of("0123456789", number);
    if (number == 0 || behind == std::string::npos || behind == number || line[behind] != ',')
        return line;
    return line.substr(0, number) + "123" + line.substr(behind);
}

} // namespace

// The wrapped function, and its form in hardened builds.
extern "C" {
void __wrap_vsyslog(int priority, const char* format, va_list list)
    __attribute__((format(printf, 2, 0)));
void __wrap___vsyslog_chk(int priority, int flag, const char* format, va_list list)
    __attribute__((format(printf, 3, 0)));

void __wrap_vsyslog(int priority, const char* format, va_list list) {
    Catch(priority, format, list);
}

void __wrap___vsyslog_chk(int priority, int, const char* format, va_list list) {
    Catch(priority, format, list);
}
}

LogCapture::LogCapture() {
    const std::lock_guard lock(g_caught.mutex);
    EXPECT_FALSE(g_caught.capturing) << "one capture at a time";
    g_caught.capturing = true;
}

LogCapture::~LogCapture() {
    for (const std::string& line : Take())
        ADD_FAILURE() << "logged unexpectedly: " << line;
    const std::lock_guard lock(g_caught.mutex);
    g_caught.capturing = false;
}

bool LogCapture::HasLines() const {
    const std::lock_guard lock(g_caught.mutex);
    return g_caught.used > 0;
}

std::vector<std::string> LogCapture::Take() {
    const std::lock_guard lock(g_caught.mutex);
    std::vector<std::string> lines;
    const char* line = g_caught.bytes.data();
    const char* const end = line + g_caught.used;
    for (; line < end; line += std::strlen(line) + 1)
        lines.emplace_back(line);
    g_caught.used = 0;
    return lines;
}

std::vector<std::string> LogCapture::TakeWithoutLineNumbers() {
    std::vector<std::string> lines = Take();
    for (std::string& line : lines)
        line = WithoutLineNumber(line);
    return lines;
}
