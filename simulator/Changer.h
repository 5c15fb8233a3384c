#ifndef SIMULATOR_CHANGER_H
#define SIMULATOR_CHANGER_H

/*
 * The model of one changer: its discs, who uses them, and what its server says about it.
 *
 * Everything is guarded by one lock and happens inside calls: each call first makes the steps of
 * robot and drives whose time has come (Settle), then does its own work, then settles again. Run()
 * lives on a thread of its own and settles when the next step is due. Who waits for a disc leaves a
 * callback, which is called when the lock has been released.
 *
 * A disc comes to a drive for a holder (a client that mounted it) or for waiters (listings of the
 * file system). What cannot begin at once stands in the queue of wanted slots until the robot is
 * idle and a drive is empty or can be emptied: one whose disc nobody holds or waits for.
 */

#include "simulator/DiscTree.h"
#include "simulator/Events.h"
#include "simulator/Mechanics.h"
#include "simulator/Values.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace simulator {

/* Codes of a reply; on the wire they carry the facility's high word. */
enum class ReplyCode : std::int32_t {
    Success = 0,
    UnderWay = 1020,
    Busy = 1021,
    NotMounted = 1030,
    Private = 1031,
    NotFound = 1032,
    MissingKey = 1033,
    UnknownCommand = 1034,
};

struct Outcome {
    ReplyCode code = ReplyCode::Success;
    std::string text;
};

/* Who mounts or ejects. */
struct User {
    bool isPrivate = false;
    std::int64_t processId = 0;
    std::int64_t family = 0;

    bool operator==(const User&) const = default;
};

struct MountRequest {
    SlotIndex slot = 0;
    std::string partitionId{}; // empty: the first
    std::optional<DriveIndex> drive{};
    User user{};
    bool mayStart = true;
};

struct MountOutcome : Outcome {
    std::string mediaRoot; // its name in the file system; empty if the partition has none
    DriveIndex drive = 0;
};

struct EjectRequest {
    SlotIndex slot = 0;
    User user;
    bool overridePrivate = false;
};

struct ClientStatus {
    std::string message;
    std::uint16_t currentStep = 0;
    std::uint16_t maximumStep = 0;
    bool abortRequested = false;
};

/* Absent ones are left out of the notification. */
struct Preferences {
    std::optional<bool> identifyOnInsert{};
    std::optional<bool> buildOnIdentify{};
    std::optional<bool> buildOnSchedule{};
    std::optional<std::int32_t> hours{};
    std::optional<std::int32_t> minutes{};
};

struct NewPartition {
    std::shared_ptr<const DiscTree> tree;
    bool hasFileSystem = true;
};

struct NewDisc {
    SlotIndex slot = 0;
    std::string name;
    std::uint16_t kind = 1;
    bool identified = false;
    std::vector<NewPartition> partitions;
};

/* A partition with a file system: what a media root shows. Only the changer changes directories. */
struct Volume {
    std::uint32_t id; // never used again
    SlotIndex slot;
    std::string name;
    std::string partitionId;
    std::shared_ptr<const DiscTree> tree;

    struct Directory {
        bool cached = false;
        unsigned listings = 0;
    };
    std::map<EntryIndex, Directory> directories; // those that were listed
};

struct ChangerConfig {
    std::uint64_t guid = 0;
    std::size_t slots = 0;
    std::size_t drives = 0;
    bool ready = true;
};

struct ChangerTiming {
    DriveTiming drives;
    milliseconds appear{0};    // from identification to the media roots
    milliseconds timeout{500}; // of a request before it is answered "busy"
};

class Changer {
public:
    using Clock = std::function<TimePoint()>;
    using Callback = std::function<void(int errorNumber)>;

    // Changed is called, with the lock held, whenever the information has changed.
    Changer(const ChangerConfig& config, Events& events, std::function<void()> changed,
            Clock clock);

    std::uint64_t Guid() const {
        return guid_;
    }

    // For the user of the program.
    void SetReady(bool ready);
    void SetTiming(const ChangerTiming& timing);
    ChangerTiming CurrentTiming() const;
    void SetPreferences(const Preferences& preferences);
    Preferences CurrentPreferences() const;
    void Put(NewDisc disc);    // throws CommandError
    void Take(SlotIndex slot); // throws CommandError
    void Forget(SlotIndex slot);
    void RequestAbort(const std::string& client, bool create); // throws CommandError

    // For clients of the server.
    MountOutcome Mount(const MountRequest& request);
    // UnderWay when the robot has just begun, Busy while it has not, or not yet, come to the end.
    Outcome Eject(const EjectRequest& request);
    Outcome RequestDiscIdentification(SlotIndex slot, bool request);
    void RequestChangerIdentification(bool request);
    void SetClientStatus(const std::string& client, const ClientStatus& status);

    // Counts up whenever something in the model has moved.
    std::uint64_t Generation() const;
    // Waits until it is no longer this one; false at the deadline or when asked to stop.
    bool WaitForChange(std::uint64_t generation, TimePoint deadline, std::stop_token stop);

    // For the file system.
    std::vector<std::shared_ptr<const Volume>> MediaRoots();
    std::shared_ptr<const Volume> FindVolume(std::uint32_t id);
    // Ready is called with 0 as soon as the directory is cached, with an error number if it never
    // will be; perhaps before this returns, else on another thread.
    void List(std::uint32_t volume, EntryIndex directory, Callback callback);
    // The same for reading a file, which needs the disc in a drive.
    void Open(std::uint32_t volume, EntryIndex file, Callback callback);

    Value MakeInfo();
    void Print(std::optional<SlotIndex> slot, bool withDirectories);

    // Makes the steps of robot and drives at their times, until it is asked to stop.
    void Run(std::stop_token stop);
    void Settle();
    // Whoever waits for a disc fails.
    void FailWaiters();
    // No request waits any longer.
    void Close();

private:
    struct Holder {
        User user;
        bool identified = false; // by this mount
    };
    struct Waiter {
        std::uint32_t volume;
        EntryIndex entry;
        Callback callback;
    };
    struct Disc {
        std::uint16_t kind = 1;
        std::int32_t identifyTime = 0;
        unsigned timesIdentified = 0;
        unsigned timesMounted = 0;
        bool requested = false;
        std::optional<Holder> holder;
        std::vector<bool> partitionsWithFileSystem;
        std::vector<std::shared_ptr<Volume>> volumes;
        bool appeared = false;
        TimePoint appearance;
        std::vector<Waiter> waiters;
        std::uint64_t lastUse = 0;
    };
    struct QueuedLoad {
        SlotIndex slot;
        std::optional<DriveIndex> drive;
    };
    // The lock held, the model settled before and after, and the callbacks called at the end.
    class Section {
    public:
        explicit Section(Changer& changer);
        Section(const Section&) = delete;
        ~Section();

    private:
        Changer& changer_;
        std::unique_lock<std::mutex> guard_;
    };

    Disc* FindDisc(SlotIndex slot);
    const Disc* FindDisc(SlotIndex slot) const;
    Disc& RequiredDisc(SlotIndex slot); // throws CommandError
    Disc MakeDisc(NewDisc newDisc);
    bool HasMediaRoot(const std::string& name) const;
    Fields Describe(SlotIndex slot) const;
    Fields Describe(const Volume& volume, EntryIndex entry) const;
    Fields Describe(const std::string& client, const ClientStatus& status) const;
    void NoteChange();

    void SettleLocked();
    void Apply(const Step& step);
    void BecomeReadable(SlotIndex slot, Disc& disc);
    void IdentifyDisc(SlotIndex slot, Disc& disc);
    void ShowMediaRoots();
    void ServeWaiters(SlotIndex slot, Disc& disc);
    void FailWaitersOf(Disc& disc);
    void FinishListing(const Waiter& waiter);
    bool BeginNextLoad();
    void EnqueueLoad(SlotIndex slot, std::optional<DriveIndex> drive);
    void CancelLoad(SlotIndex slot);
    bool IsLoadQueued(SlotIndex slot) const;
    bool CanBeEmptied(DriveIndex drive) const;
    std::optional<DriveIndex> ChooseDrive(std::optional<DriveIndex> wished) const;
    void BeginLoad(SlotIndex slot, DriveIndex drive);
    void BeginUnload(SlotIndex slot);
    std::optional<TimePoint> NextDue() const;

    Outcome CheckMount(const MountRequest& request, const Disc* disc) const;
    Outcome BeginMount(const MountRequest& request, Disc& disc);
    MountOutcome DescribeMount(const MountRequest& request, const Disc& disc) const;
    Outcome BeginEject(const EjectRequest& request);
    std::shared_ptr<Volume> FindVolumeLocked(std::uint32_t id) const;
    std::shared_ptr<Volume> FindVolumeOrFail(std::uint32_t id, const Callback& callback);
    void WaitForDisc(const std::shared_ptr<Volume>& volume, EntryIndex entry, Callback callback);

    std::uint32_t MountState(SlotIndex slot) const;
    Value MakeMediaInfo(SlotIndex slot) const;
    Value MakePreferencesInfo() const;
    Value MakeStatusInfo() const;
    void PrintSlot(SlotIndex slot, const Disc& disc, bool withDirectories) const;

    const std::uint64_t guid_;
    Events& events_;
    const std::function<void()> changed_;
    const Clock clock_;

    mutable std::mutex lock_;
    std::condition_variable_any moved_;
    std::uint64_t generation_ = 0;
    std::vector<std::function<void()>> callbacks_; // to be called without the lock
    bool closed_ = false;

    bool ready_;
    bool identificationRequested_ = false;
    ChangerTiming timing_;
    Preferences preferences_;
    std::map<std::string, ClientStatus> statuses_;
    std::vector<std::optional<Disc>> slots_;
    std::map<std::uint32_t, std::shared_ptr<Volume>> volumes_; // those of the discs, by number
    Mechanics mechanics_;
    std::deque<QueuedLoad> loadQueue_;
    std::uint32_t lastVolume_ = 0;
    std::uint64_t lastUse_ = 0;
};

} // namespace simulator

#endif
