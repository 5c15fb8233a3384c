#ifndef TESTS_UNIT_SUPPORT_NOTCOPYABLE_H
#define TESTS_UNIT_SUPPORT_NOTCOPYABLE_H

/* Base of classes whose objects stand for one state of the test program. */
struct NotCopyable {
    NotCopyable() = default;
    NotCopyable(const NotCopyable&) = delete;
    NotCopyable& operator=(const NotCopyable&) = delete;
};

#endif
