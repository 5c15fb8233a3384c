#ifndef TESTS_STRESS_SERVER_H
#define TESTS_STRESS_SERVER_H

/*
 * A changer server inside this process, on real sockets, from construction to destruction. The
 * process that the daemon finds by name is a separate one, which only sleeps.
 *
 *   one thread          sends notifications to its subscriber, at most five ahead of the daemon
 *   kMessageServers     threads that accept a request and reply, fail or do not reply, at random
 */

#include "Changers.h"
#include "support/NotCopyable.h"

#include <sys/types.h>

#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

class Server : NotCopyable {
public:
    explicit Server(Changers& changers);
    ~Server();

private:
    bool InjectsFaults() const {
        return changers_.CurrentPhase() == Phase::kChurn;
    }

    void ServeSubscribers();
    void PushNotifications(int connection);
    void ServeMessages();
    void Reply(int connection);

    // -1 when the server ends.
    int Accept(int listener);
    void Close(int connection);
    void ShutDownConnections();

    Changers& changers_;
    const pid_t process_;
    const int notifications_;
    const int messages_;
    std::atomic<bool> isEnding_ = false;
    std::mutex mutex_;
    std::set<int> connections_; // guarded by mutex_
    std::vector<std::thread> threads_;
};

#endif
