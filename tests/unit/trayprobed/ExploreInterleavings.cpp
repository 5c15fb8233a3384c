#include "ExploreInterleavings.h"

#include <CoreFoundation/CoreFoundation.h>

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <deque>
#include <semaphore>
#include <set>
#include <thread>
#include <utility>

namespace {

enum class State { kNew, kAtStep, kWaiting, kEnded };

struct Runner {
    Runner(std::size_t itsNumber, std::function<void()> itsBody)
        : number(itsNumber), body(std::move(itsBody)) {}

    const std::size_t number;
    const std::function<void()> body;
    State state = State::kNew;
    const pthread_mutex_t* awaited = nullptr; // the mutex that the thread waits for
    std::multiset<const pthread_mutex_t*> held;
    std::binary_semaphore mayRun{0};
    std::thread thread;
};

// Used by one thread at a time: the running thread, or the scheduler.
std::deque<Runner> g_runners;
std::deque<std::function<void()>> g_deferred; // bodies of threads that do not participate
bool g_deferStarted = false;
bool g_isRunning = false;
std::size_t g_started = 0;
std::vector<std::size_t> g_ended; // numbers of threads
std::set<std::string> g_steps;
std::binary_semaphore g_hasStopped{0};

thread_local Runner* t_self = nullptr;

void Stop(State state) {
    t_self->state = state;
    g_hasStopped.release();
    t_self->mayRun.acquire();
}

void StopAtStep(const char* kind) {
    g_steps.insert(kind);
    Stop(State::kAtStep);
}

void RunBody(Runner& self) {
    t_self = &self;
    self.mayRun.acquire();
    self.body();
    t_self = nullptr;
    self.state = State::kEnded;
    g_ended.push_back(self.number);
    g_hasStopped.release();
}

void AddRunner(std::function<void()> body) {
    Runner& runner = g_runners.emplace_back(g_runners.size(), std::move(body));
    runner.thread = std::thread([&runner] { RunBody(runner); });
}

// Runs the thread up to its next step.
void Resume(Runner& runner) {
    runner.mayRun.release();
    g_hasStopped.acquire();
}

std::vector<Runner*> RunnersAtStep() {
    std::vector<Runner*> ready;
    for (Runner& runner : g_runners)
        if (runner.state == State::kAtStep)
            ready.push_back(&runner);
    return ready;
}

// A thread's work before its first step is independent of other threads.
void RunNewRunnersToTheirFirstStep() {
    for (std::size_t i = 0; i < g_runners.size(); ++i)
        if (g_runners[i].state == State::kNew)
            Resume(g_runners[i]);
}

struct Choice {
    std::size_t chosen;
    std::size_t count;
};

void EndProcess(const char* reason) {
    std::fprintf(stderr, "%s\n", reason);
    std::abort();
}

// Follows `choices`; at each later step chooses the first runner and appends that choice.
void RunOnce(std::vector<Choice>& choices) {
    RunNewRunnersToTheirFirstStep();
    std::size_t step = 0;
    for (auto ready = RunnersAtStep(); !ready.empty(); ready = RunnersAtStep(), ++step) {
        if (step == choices.size())
            choices.push_back({0, ready.size()});
        if (ready.size() != choices[step].count)
            EndProcess("a thread behaves differently in the same order");
        Resume(*ready[choices[step].chosen]);
        RunNewRunnersToTheirFirstStep();
    }
    for (Runner& runner : g_runners) {
        if (runner.state != State::kEnded)
            EndProcess("deadlock: each remaining thread waits for a mutex");
        runner.thread.join();
    }
    g_runners.clear();
}

// Sets the choices of the next order. Returns false after the last order.
bool AdvanceToNextOrder(std::vector<Choice>& choices) {
    while (!choices.empty() && choices.back().chosen + 1 == choices.back().count)
        choices.pop_back();
    if (choices.empty())
        return false;
    ++choices.back().chosen;
    return true;
}

void RunScenario(const Scenario& scenario, std::vector<Choice>& choices) {
    g_isRunning = true;
    g_started = 0;
    g_ended.clear();
    g_deferStarted = false;
    scenario.prepare();
    g_deferStarted = scenario.checkBeforeStarted != nullptr;
    for (const auto& body : scenario.threads)
        AddRunner(body);
    RunOnce(choices);
    if (scenario.checkBeforeStarted)
        scenario.checkBeforeStarted();
    for (; !g_deferred.empty(); g_deferred.pop_front())
        g_deferred.front()();
    g_isRunning = false;
    scenario.check();
}

} // namespace

ExploredOrders RunInEveryOrder(const Scenario& scenario) {
    std::vector<Choice> choices;
    ExploredOrders orders;
    g_steps.clear();
    do {
        RunScenario(scenario, choices);
        ++orders.count;
        orders.endings.insert(g_ended);
    } while (AdvanceToNextOrder(choices));
    orders.steps = g_steps;
    return orders;
}

std::size_t CountStartedThreads() {
    return g_started;
}

// ---- the steps ----

extern "C" {
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
CFMutableDictionaryRef __real_CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                            CFIndex capacity,
                                                            CFDictionaryRef dictionary);
void __real_CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key,
                                 const void* value);

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (t_self == nullptr)
        return __real_pthread_mutex_lock(mutex);
    if (!t_self->held.contains(mutex))
        StopAtStep("lock");
    t_self->awaited = mutex;
    while (pthread_mutex_trylock(mutex) != 0)
        Stop(State::kWaiting);
    t_self->held.insert(mutex);
    return 0;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (t_self != nullptr)
        t_self->held.extract(mutex);
    for (Runner& runner : g_runners)
        if (runner.state == State::kWaiting && runner.awaited == mutex)
            runner.state = State::kAtStep;
    return __real_pthread_mutex_unlock(mutex);
}

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    if (!g_isRunning)
        return __real_pthread_create(thread, attributes, body, argument);
    ++g_started;
    const auto run = [=] { body(argument); };
    if (g_deferStarted)
        g_deferred.emplace_back(run);
    else
        AddRunner(run);
    return 0;
}

CFMutableDictionaryRef __wrap_CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                            CFIndex capacity,
                                                            CFDictionaryRef dictionary) {
    if (t_self != nullptr)
        StopAtStep("copy");
    return __real_CFDictionaryCreateMutableCopy(allocator, capacity, dictionary);
}

// Dictionaries are stored in the table of changers only.
void __wrap_CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key,
                                 const void* value) {
    if (t_self != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID())
        StopAtStep("store");
    __real_CFDictionarySetValue(dictionary, key, value);
}
}
