#include "DeferredThreads.h"

#include "StateLock.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

struct Body {
    void* (*function)(void*);
    void* argument;
};
bool g_isDeferring = false;
bool g_race = false;
std::vector<Body> g_waiting;
std::vector<std::thread> g_racing;
int g_attributeObjects = 0;

std::function<void()> g_onCreation;

std::string g_failing;
int g_status = 0;

int FailureOf(const char* function) {
    return g_failing == function ? (g_failing.clear(), g_status) : 0;
}

void RaceBody(Body body) {
    // Shared: the body may wait again after the starter has returned.
    const auto endedOrWaiting = std::make_shared<std::counting_semaphore<>>(0);
    g_racing.emplace_back([body, endedOrWaiting] {
        const OnWaitingForMutex onWaiting([&] { endedOrWaiting->release(); });
        body.function(body.argument);
        endedOrWaiting->release();
    });
    endedOrWaiting->acquire();
}

void Run(std::vector<Body>::iterator next) {
    const Body body = *next;
    g_waiting.erase(next);
    EXPECT_EQ(body.function(body.argument), nullptr);
}

} // namespace

extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __real_pthread_attr_init(pthread_attr_t* attributes);
int __real_pthread_attr_setdetachstate(pthread_attr_t* attributes, int state);
int __real_pthread_attr_destroy(pthread_attr_t* attributes);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    if (!g_isDeferring)
        return __real_pthread_create(thread, attributes, body, argument);
    if (const int status = FailureOf("pthread_create"))
        return status;
    int state = -1;
    EXPECT_EQ(pthread_attr_getdetachstate(attributes, &state), 0);
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
    if (const auto onCreation = std::exchange(g_onCreation, nullptr))
        onCreation();
    if (g_race)
        RaceBody({body, argument});
    else
        g_waiting.push_back({body, argument});
    return 0;
}

int __wrap_pthread_attr_init(pthread_attr_t* attributes) {
    if (const int status = FailureOf("pthread_attr_init"))
        return status;
    ++g_attributeObjects;
    return __real_pthread_attr_init(attributes);
}

int __wrap_pthread_attr_setdetachstate(pthread_attr_t* attributes, int state) {
    if (const int status = FailureOf("pthread_attr_setdetachstate"))
        return status;
    return __real_pthread_attr_setdetachstate(attributes, state);
}

int __wrap_pthread_attr_destroy(pthread_attr_t* attributes) {
    --g_attributeObjects;
    const int status = __real_pthread_attr_destroy(attributes);
    const int failure = FailureOf("pthread_attr_destroy");
    return failure != 0 ? failure : status;
}
}

DeferredThreads::DeferredThreads() {
    g_waiting.reserve(1000); // no allocation later: memory may be short
    g_isDeferring = true;
    g_attributeObjects = 0;
}

DeferredThreads::~DeferredThreads() {
    Join();
    g_isDeferring = false;
    g_race = false;
    EXPECT_EQ(g_attributeObjects, 0);
    EXPECT_TRUE(g_waiting.empty()) << "threads that were never run";
    g_waiting.clear();
    EXPECT_EQ(g_failing, "") << "was not called";
    g_failing.clear();
}

std::size_t DeferredThreads::Count() {
    return g_waiting.size();
}

void DeferredThreads::RunNext() {
    ASSERT_FALSE(g_waiting.empty()) << "no thread was started";
    Run(g_waiting.begin());
}

void DeferredThreads::RunLast() {
    ASSERT_FALSE(g_waiting.empty()) << "no thread was started";
    Run(g_waiting.end() - 1);
}

void DeferredThreads::RaceWithStarter() {
    g_race = true;
}

void DeferredThreads::Join() {
    for (std::thread& thread : std::exchange(g_racing, {}))
        thread.join();
}

void DeferredThreads::OnCreation(std::function<void()> function) {
    g_onCreation = std::move(function);
}

void DeferredThreads::Fail(const char* function, int status) {
    g_failing = function;
    g_status = status;
}
