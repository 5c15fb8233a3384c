#include "FakeExchange.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"

#include <gtest/gtest.h>

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

static const char kSourcePath[] = "tests/unit/FakeExchange";

static FakeExchange* g_server = nullptr;
static time_t g_now = 0;

// An arbitrary start of the command's clock.
constexpr time_t kStart = 1'000'000'000;

FakeExchange::FakeExchange(std::vector<ServerAnswer> answers) : answers_(std::move(answers)) {
    EXPECT_EQ(g_server, nullptr);
    g_server = this;
    g_now = kStart;
}

FakeExchange::~FakeExchange() {
    g_server = nullptr;
    for (std::size_t i = 0; i < replies_.size(); ++i) {
        CFRelease(replies_[i]);
        if (std::find(released_.begin(), released_.end(), i) == released_.end())
            CFRelease(replies_[i]);
    }
}

VErrLink* FakeExchange::Receive(CFDictionaryRef message, CFDictionaryRef* reply) {
    const ServerAnswer& answer = answers_[std::min(requests_.size(), answers_.size() - 1)];
    g_now += answer.clockJump;
    requests_.push_back(XmlOf(message));
    times_.push_back(g_now - kStart);
    // Each request gets its own copy, which stays retained: the address identifies the reply.
    CFDictionaryRef copy =
        CFDictionaryCreateMutableCopy(nullptr, 0, static_cast<CFDictionaryRef>(answer.reply.Get()));
    replies_.push_back(CFRetain(copy));
    *reply = copy;
    VErrLink* err = nullptr;
    if (answer.code != 0)
        VERR_RAISE(VErrThrowWithErrCode(&err, answer.code, "sent by the server"));
    return err;
}

void FakeExchange::NoteRelease(CFTypeRef object) {
    const auto found = std::find(replies_.begin(), replies_.end(), object);
    if (found != replies_.end())
        released_.push_back(static_cast<std::size_t>(found - replies_.begin()));
}

VErrLink* SendMessageToChangerServer(CFDictionaryRef message, CFDictionaryRef* reply) {
    return g_server->Receive(message, reply);
}

extern "C" {
void __real_CFRelease(CFTypeRef object);

void __wrap_CFRelease(CFTypeRef object) {
    if (g_server != nullptr)
        g_server->NoteRelease(object);
    __real_CFRelease(object);
}

time_t __wrap_time(time_t*) {
    return g_now;
}

unsigned __wrap_sleep(unsigned seconds) {
    g_now += seconds;
    return 0;
}

pid_t __wrap_getpid(void) {
    return kOwnProcessId;
}
}
