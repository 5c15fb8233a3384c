#ifndef SIMULATOR_CHANGER_H
#define SIMULATOR_CHANGER_H

/*
 * The model of one changer: its discs, their users, and the state that its server publishes.
 *
 * Any thread may call; one lock guards the whole model. The model only changes inside calls: each
 * call first performs the steps of robot and drives that are due (Settle), then its own work, then
 * settles again. Run(), on a thread of its own, settles when the next step is due. A caller that
 * needs a disc passes a callback, which is called after the lock has been released.
 *
 * A disc is loaded into a drive for a holder (the client that mounted it) or for waiters (requests
 * of the file system). Loads that cannot begin are queued until the robot is idle and a drive is
 * empty or can be emptied. A drive can be emptied if its disc has neither holder nor waiters.
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

/* Codes of a reply, without the high word that MakeWireCode() adds. */
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

/* The client that mounts or ejects a disc; a public user by default. */
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
    std::string mediaRoot; // the name in the file system; empty if the partition has none
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

/* The notification contains only the preferences that have a value. */
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

/* A partition with a file system, shown as a media root. Only Changer modifies `directories`. */
struct Volume {
    std::uint32_t id; // unique during the life of the changer
    SlotIndex slot;
    std::string name;
    std::string partitionId;
    std::shared_ptr<const DiscTree> tree;

    struct Directory {
        bool cached = false;
        unsigned listings = 0;
    };
    std::map<EntryIndex, Directory> directories; // the ones listed at least once
};

struct ChangerConfig {
    std::uint64_t guid = 0;
    std::size_t slots = 0;
    std::size_t drives = 0;
    bool ready = true;
};

struct ChangerTiming {
    DriveTiming drives;
    milliseconds appear{0};    // from identification until the media roots are visible
    milliseconds timeout{500}; // how long a mount or eject waits before the reply "busy"
};

class Changer {
public:
    using Clock = std::function<TimePoint()>;
    using Callback = std::function<void(int errorNumber)>;

    // `changed` is called with the lock held after each change of the published state; it must not
    // call the changer. `clock` returns the current time. `events` must outlive the changer.
    Changer(const ChangerConfig& config, Events& events, std::function<void()> changed,
            Clock clock);

    // The identity of the changer; constant.
    std::uint64_t Guid() const {
        return guid_;
    }

    // ---- For the commands of the user ----

    // Replaces "Changer Ready".
    void SetReady(bool ready);
    // Replaces the times; steps that have begun keep theirs.
    void SetTiming(const ChangerTiming& timing);
    ChangerTiming CurrentTiming() const;
    // Replaces all preferences.
    void SetPreferences(const Preferences& preferences);
    Preferences CurrentPreferences() const;
    // Puts a disc into an empty slot. Throws CommandError if there is no such slot, if the slot is
    // not empty, or if a media root of this name exists.
    void Put(NewDisc disc);
    // Removes a disc from its slot or drive; its waiters fail with EIO. Throws CommandError if
    // there is no disc.
    void Take(SlotIndex slot);
    // Drops the cached listings of a disc. Throws CommandError if there is no disc.
    void Forget(SlotIndex slot);
    // Sets "Abort Requested" in the status of `client`. Throws CommandError if the client has no
    // status, unless `create` is true.
    void RequestAbort(const std::string& client, bool create);

    // ---- For the clients of the server; none of these blocks ----

    // Mounts a disc for the user. UnderWay: the disc is on its way to a drive. Busy: nothing could
    // begin, or another user has mounted the disc.
    MountOutcome Mount(const MountRequest& request);
    // Success: the disc is in its slot. UnderWay: this call began the move. Busy: the robot or the
    // drive is in use, also by this move after the call that began it.
    Outcome Eject(const EjectRequest& request);
    // Sets (true) or withdraws (false) the request to identify a disc or the changer.
    Outcome RequestDiscIdentification(SlotIndex slot, bool request);
    void RequestChangerIdentification(bool request);
    // Replaces the status of `client`; an empty message removes it.
    void SetClientStatus(const std::string& client, const ClientStatus& status);

    // A counter that each change of the model increments.
    std::uint64_t Generation() const;
    // Blocks until Generation() differs from `generation`. False at the deadline, on `stop`, or
    // after Close().
    bool WaitForChange(std::uint64_t generation, TimePoint deadline, std::stop_token stop);

    // ---- For the file system ----

    // The volumes whose media roots are visible.
    std::vector<std::shared_ptr<const Volume>> MediaRoots();
    // The volume of this number, visible or not; null if its disc was removed.
    std::shared_ptr<const Volume> FindVolume(std::uint32_t id);
    // Calls `callback` once: with 0 when the directory is cached, or with an errno if it cannot be
    // (ESTALE, EIO). The call happens before List() returns, or later on another thread.
    void List(std::uint32_t volume, EntryIndex directory, Callback callback);
    // The same for reading a file, which needs the disc in a drive each time.
    void Open(std::uint32_t volume, EntryIndex file, Callback callback);

    // The changer's dictionary in the notification "changer info".
    Value MakeInfo();
    // Prints the model as "model" lines: of all discs or of one slot, with or without directories.
    // A `slot` includes the directories.
    void Print(std::optional<SlotIndex> slot, bool withDirectories);

    // Performs the steps of robot and drives when they are due. Blocks until `stop`.
    void Run(std::stop_token stop);
    // Performs the steps that are due.
    void Settle();
    // Calls the callbacks of all waiters with EIO.
    void FailWaiters();
    // Ends every WaitForChange(), at present and in future.
    void Close();

private:
    struct Holder {
        User user;
        bool identified = false; // true after this mount has identified the disc
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
    // Holds the lock. Settles the model at the beginning and at the end, then releases the lock and
    // calls the callbacks.
    class Section {
    public:
        // Locks `changer`, which must outlive the section.
        explicit Section(Changer& changer);
        Section(const Section&) = delete;
        ~Section();

    private:
        Changer& changer_;
        std::unique_lock<std::mutex> guard_;
    };

    Disc* FindDisc(SlotIndex slot);
    const Disc* FindDisc(SlotIndex slot) const;
    Disc& RequiredDisc(SlotIndex slot); // throws CommandError if there is no disc
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
    std::vector<std::function<void()>> callbacks_; // called without the lock
    bool closed_ = false;

    bool ready_;
    bool identificationRequested_ = false;
    ChangerTiming timing_;
    Preferences preferences_;
    std::map<std::string, ClientStatus> statuses_;
    std::vector<std::optional<Disc>> slots_;
    std::map<std::uint32_t, std::shared_ptr<Volume>> volumes_; // of all discs, by id
    Mechanics mechanics_;
    std::deque<QueuedLoad> loadQueue_;
    std::uint32_t lastVolume_ = 0;
    std::uint64_t lastUse_ = 0;
};

} // namespace simulator

#endif
