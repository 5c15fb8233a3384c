#ifndef TESTS_UNIT_CONNECTION_SEAMS_H
#define TESTS_UNIT_CONNECTION_SEAMS_H

/* Calls to the platform that fail when a test says so: wrap those named in Seams.cpp. */

// While it lives, this thread's calls of one function fail.
class Failing {
public:
    explicit Failing(const char* function);
    Failing(const Failing&) = delete;
    Failing& operator=(const Failing&) = delete;
    ~Failing();

    static bool Is(const char* function);
};

#endif
