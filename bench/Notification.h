#ifndef BENCH_NOTIFICATION_H
#define BENCH_NOTIFICATION_H

#include "ChangerInfoGenerator.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string>

namespace bench {

/* Adds the changers to the list of known changers of the daemon's modules in this process, as the
   first notification of each does. Throws std::runtime_error on errors. */
void AddChangers(const ChangerInfoGenerator& generator);

/* Throws std::runtime_error unless the list that was delivered last contains the last disc of the
   generator. */
void RequireDelivered(const ChangerInfoGenerator& generator);

/* A received notification; its functions call the daemon's modules. They throw std::runtime_error
   on errors. */
class Notification {
public:
    // `text`: the payload, XML.
    explicit Notification(const std::string& text);
    ~Notification();
    Notification(const Notification&) = delete;
    Notification& operator=(const Notification&) = delete;

    // Parses the notification; the caller releases the list.
    CFPropertyListRef Create() const;
    // Parses the notification and releases the list.
    void Parse() const;
    // Parses the notification and never releases the list.
    void Leak() const;
    // Assembles the frame, parses it and calls the daemon's callbacks, which keep the list. Returns
    // the seconds from the last byte to the end of the callbacks.
    double Deliver() const;

private:
    CFDataRef text_;
    CFDataRef frame_;
};

} // namespace bench

#endif
