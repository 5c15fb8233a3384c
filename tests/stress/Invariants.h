#ifndef TESTS_STRESS_INVARIANTS_H
#define TESTS_STRESS_INVARIANTS_H

/* What holds whenever nobody has the state lock, and what holds besides once all is at rest. */

#include <atomic>
#include <thread>

/* Takes the state lock again and again, as long as it lives, and looks. */
class Observer {
public:
    Observer() : thread_([this] { Observe(); }) {}
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;
    ~Observer() {
        isOver_ = true;
        thread_.join();
    }

private:
    void Observe();

    std::atomic<bool> isOver_ = false;
    std::thread thread_;
};

/* Whether the daemon knows all changers and where each is mounted, and has nothing to do. */
bool IsAtRest();
/* Nothing is left to build or to abort, and what is still on an in-progress list is out of reach.
   With anew, the changers were forgotten and added anew, so that nothing is out of reach either. */
void CheckRest(bool anew);

#endif
