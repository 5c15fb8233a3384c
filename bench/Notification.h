#ifndef BENCH_NOTIFICATION_H
#define BENCH_NOTIFICATION_H

#include "ChangerInfoGenerator.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string>

namespace bench {

/* Lets the daemon's state, which is this process's, know the changers, as after their first
   notification. */
void KnowChangers(const ChangerInfoGenerator& shelf);
/* Throws unless the last list that was delivered is this shelf's, to its last disc. */
void RequireKept(const ChangerInfoGenerator& shelf);

/* A notification that has arrived, and the daemon's own ways with it. */
class Notification {
public:
    explicit Notification(const std::string& text);
    ~Notification();
    Notification(const Notification&) = delete;
    Notification& operator=(const Notification&) = delete;

    // The list; the caller releases it.
    CFPropertyListRef Create() const;
    // Makes the list and frees it.
    void Read() const;
    // Makes the list and keeps it for good.
    void Keep() const;
    // Gathers its bytes, reads it and calls back; it is kept. Returns the seconds from the last
    // byte to the end of the callbacks.
    double Deliver() const;

private:
    CFDataRef text_;
    CFDataRef frame_;
};

} // namespace bench

#endif
