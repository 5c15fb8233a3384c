#ifndef SIMULATOR_SIMULATOR_H
#define SIMULATOR_SIMULATOR_H

/*
 * The changer server: the changers with their file systems, the sockets, the injected faults.
 *
 * One thread, that of the control, calls the public functions. The threads of connections and of
 * the publisher only look up changers.
 */

#include "simulator/Changer.h"
#include "simulator/ChangerFileSystem.h"
#include "simulator/Events.h"
#include "simulator/Faults.h"
#include "simulator/MessageServer.h"
#include "simulator/NotificationServer.h"
#include "simulator/Publisher.h"
#include "simulator/RequestHandler.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace simulator {

class Simulator {
public:
    // Creates its sockets in `socketDirectory`. `events` must outlive the object.
    explicit Simulator(simulator::Events& events, std::string socketDirectory = "/tmp");
    // Closes the sockets and removes all changers.
    ~Simulator();

    // Adds a changer and mounts its file system; not mounted if the mount point is empty. Throws
    // CommandError if the GUID is in use or the mount fails.
    void AddChanger(const ChangerConfig& config, const ChangerTiming& timing,
                    const FileSystemOptions& options);
    // Removes a changer and unmounts its file system. Throws CommandError if the GUID is unknown.
    void RemoveChanger(std::uint64_t guid);
    // The changer of this GUID; throws CommandError if the GUID is unknown.
    std::shared_ptr<Changer> FindChanger(std::uint64_t guid) const;
    // All changers, sorted by GUID.
    std::vector<std::shared_ptr<Changer>> Changers() const;
    // Mount and unmount the file system of a changer; an empty path means the previous mount point.
    // Throw CommandError if the GUID or the mount point is unknown, or if the state is that
    // already.
    void MountFileSystem(std::uint64_t guid, const std::string& path);
    void UnmountFileSystem(std::uint64_t guid);

    // Sets or removes the key of "root preferences".
    void SetIdentifyOnInsert(std::optional<bool> identify);
    // If true, replies wait until the subscribers have read all notifications.
    void SetSerial(bool serial) {
        isSerial_ = serial;
    }

    // Opens the two sockets. Throws CommandError if they are open, std::system_error on failure.
    void Start();
    // Closes the sockets and all connections, if they are open.
    void Stop();
    // Also writes every notification to this file or pipe, until Stop(). Throws CommandError if the
    // sockets or the file are not open.
    void CopyNotifications(const std::string& path);
    // Sends any bytes to all subscribers. Throws CommandError if the sockets are not open.
    void SendRaw(const std::vector<Piece>& pieces);

    // Parts that the control uses directly; valid as long as the simulator.
    simulator::Publisher& Publisher() {
        return publisher_;
    }
    // The pending faults.
    simulator::Faults& Faults() {
        return faults_;
    }
    // The output of the program.
    simulator::Events& Events() {
        return events_;
    }

private:
    struct Unit {
        std::shared_ptr<Changer> changer;
        FileSystemOptions options;
        std::unique_ptr<ChangerFileSystem> fileSystem;
        std::jthread clock;
    };

    Unit& FindUnit(std::uint64_t guid);           // throws CommandError
    NotificationServer& FindNotificationServer(); // throws CommandError
    KnownChanger Find(std::uint64_t guid) const;
    Value Describe(Notifications notification) const;
    MessageServer::Services MakeServices();
    static void TakeDown(Unit unit);

    simulator::Events& events_;
    const std::string socketDirectory_;
    simulator::Faults faults_;
    RequestHandler handler_;
    std::atomic<bool> isSerial_ = false;

    mutable std::mutex lock_; // guards the two members below
    std::map<std::uint64_t, Unit> units_;
    std::optional<bool> identifyOnInsert_;

    simulator::Publisher publisher_;
    std::unique_ptr<NotificationServer> notifications_;
    std::unique_ptr<MessageServer> messages_;
};

} // namespace simulator

#endif
