#ifndef TESTS_UNIT_CONNECTION_FAKEEXCHANGE_H
#define TESTS_UNIT_CONNECTION_FAKEEXCHANGE_H

/*
 * The server as the commands see it: SendMessageToChangerServer itself, a clock that only sleeping
 * moves, and a process id. Wrap those named in FakeExchange.cpp.
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
    long clockJump = 0; // seconds by which somebody sets the clock before the answer
};

inline ServerAnswer Fails(int number, long clockJump = 0) {
    return {kVErrFacilityBase + number, Dictionary(), clockJump};
}

class FakeExchange : NotCopyable {
public:
    // Gives the answers one after the other; the last is for all that follow.
    explicit FakeExchange(std::vector<ServerAnswer> answers = {{}});
    // Frees the replies that the command left behind.
    ~FakeExchange();

    // The messages, as XML.
    const std::vector<std::string>& Requests() const {
        return requests_;
    }
    // When each came, in seconds of the clock since the server was made.
    const std::vector<long>& Times() const {
        return times_;
    }
    // Which of the replies were released, by the number of their request from 0.
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
