#ifndef SIMULATOR_SIMULATOR_H
#define SIMULATOR_SIMULATOR_H

/*
 * The whole changer server: its changers with their file systems, its sockets, its faults.
 *
 * The calls come from one thread, that of the control; connections, file systems and the publisher
 * look changers up from theirs.
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
    explicit Simulator(simulator::Events& events, std::string socketDirectory = "/tmp");
    ~Simulator();

    // Without a mount point its file system is not mounted yet.
    void AddChanger(const ChangerConfig& config, const ChangerTiming& timing,
                    const FileSystemOptions& options);
    void RemoveChanger(std::uint64_t guid);
    std::shared_ptr<Changer> FindChanger(std::uint64_t guid) const; // throws CommandError
    std::vector<std::shared_ptr<Changer>> Changers() const;
    // With no path, where it was mounted before.
    void MountFileSystem(std::uint64_t guid, const std::string& path);
    void UnmountFileSystem(std::uint64_t guid);

    void SetIdentifyOnInsert(std::optional<bool> identify);
    void SetSerial(bool serial) {
        isSerial_ = serial;
    }

    void Start();
    void Stop();
    // Until it is stopped, writes every notification also to this file or pipe.
    void CopyNotifications(const std::string& path);
    // Sends bytes to all subscribers that are no notification of ours.
    void SendRaw(const std::vector<Piece>& pieces);

    simulator::Publisher& Publisher() {
        return publisher_;
    }
    simulator::Faults& Faults() {
        return faults_;
    }
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

    mutable std::mutex lock_; // of the two below
    std::map<std::uint64_t, Unit> units_;
    std::optional<bool> identifyOnInsert_;

    simulator::Publisher publisher_;
    std::unique_ptr<NotificationServer> notifications_;
    std::unique_ptr<MessageServer> messages_;
};

} // namespace simulator

#endif
