#ifndef TESTS_STRESS_SERVER_H
#define TESTS_STRESS_SERVER_H

/*
 * A changer server inside this process, on real sockets: one life of it, from its start to its
 * sudden death. The process that the daemon finds by name is another, which does nothing.
 *
 *   notifier           pushes notifications to whoever is connected, a few ahead of the daemon
 *   message servers    accept, read a request, and answer it in one way or another
 */

#include "Changers.h"

#include <atomic>
#include <mutex>
#include <set>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

class Server {
public:
    explicit Server(Changers& changers);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server();

private:
    bool IsMoody() const {
        return changers_.TheMood() == Mood::kStorm;
    }

    void Notify();
    void Push(int connection);
    void ServeMessages();
    void Answer(int connection);

    // -1 when the server dies.
    int Accept(int listener);
    void Close(int connection);
    void CutConnections();

    Changers& changers_;
    const pid_t process_;
    const int notifications_;
    const int messages_;
    std::atomic<bool> isDying_ = false;
    std::mutex mutex_;
    std::set<int> connections_; // guarded by mutex_
    std::vector<std::thread> threads_;
};

#endif
