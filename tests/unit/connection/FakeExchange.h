#ifndef TESTS_UNIT_CONNECTION_FAKEEXCHANGE_H
#define TESTS_UNIT_CONNECTION_FAKEEXCHANGE_H

/*
 * Replaces the exchange under the commands: SendMessageToChangerServer, a clock that only sleep()
 * advances, and a fixed process id.
 */

#include "common/VErr.h"
#include "support/NotCopyable.h"
#include "support/PropertyLists.h"

#include <cstddef>
#include <string>
#include <vector>

constexpr int kOwnProcessId = 4242;

struct ServerAnswer {
    VErrCode code = 0; // of a chain with the message "sent by the server"; 0 is success
    Value reply = Dictionary();
    long clockJump = 0; // seconds by which the clock is changed before the answer
};

inline ServerAnswer Fails(int number, long clockJump = 0) {
    return {kVErrFacilityBase + number, Dictionary(), clockJump};
}

class FakeExchange : NotCopyable {
public:
    // Requests get the answers in order; the last one is used for all further requests.
    explicit FakeExchange(std::vector<ServerAnswer> answers = {{}});
    // Releases the replies that the command did not.
    ~FakeExchange();

    // The requests as XML.
    const std::vector<std::string>& Requests() const {
        return requests_;
    }
    // The time of each request, in seconds since construction.
    const std::vector<long>& Times() const {
        return times_;
    }
    // The released replies, by the index of their request.
    const std::vector<std::size_t>& Released() const {
        return released_;
    }

    VErrLink* Receive(CFDictionaryRef message, CFDictionaryRef* reply);
    void NoteRelease(CFTypeRef object);

private:
    std::vector<ServerAnswer> answers_;
    std::vector<std::string> requests_;
    std::vector<long> times_;
    std::vector<CFTypeRef> replies_;
    std::vector<std::size_t> released_;
};

#endif
