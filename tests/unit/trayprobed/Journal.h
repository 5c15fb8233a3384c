#ifndef TESTS_UNIT_TRAYPROBED_JOURNAL_H
#define TESTS_UNIT_TRAYPROBED_JOURNAL_H

/* The calls that a test's fakes record, in order, from any thread. Adding an entry allocates
   nothing, so it works while memory is short. */

#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

class Journal {
public:
    // The result is valid until the next Take.
    __attribute__((format(printf, 1, 2))) static std::string_view Add(const char* format, ...) {
        const std::lock_guard lock(mutex_);
        char* const entry = bytes_.data() + used_;
        const std::size_t capacity = bytes_.size() - used_;
        va_list arguments;
        va_start(arguments, format);
        const auto length = static_cast<std::size_t>(vsnprintf(entry, capacity, format, arguments));
        va_end(arguments);
        if (length >= capacity) {
            ADD_FAILURE() << "the journal is full";
            return "";
        }
        used_ += length + 1;
        return {entry, length};
    }

    // The entries since the last Take.
    static std::vector<std::string> Take() {
        const std::lock_guard lock(mutex_);
        std::vector<std::string> entries;
        for (std::size_t at = 0; at < used_; at += entries.back().size() + 1)
            entries.emplace_back(bytes_.data() + at);
        used_ = 0;
        return entries;
    }

private:
    static inline std::mutex mutex_;
    static inline std::array<char, 1 << 20> bytes_;
    static inline std::size_t used_ = 0;
};

#endif
