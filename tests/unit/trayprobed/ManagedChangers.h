#ifndef TESTS_UNIT_TRAYPROBED_MANAGEDCHANGERS_H
#define TESTS_UNIT_TRAYPROBED_MANAGEDCHANGERS_H

/*
 * The handling of notifications with the real store and fake commands. The journal shows what the
 * handlers start, followed by " (unlocked)" if they do not hold the state lock:
 *
 *     reset 9EDCBA9876543210      build 9EDCBA9876543210      identify 9EDCBA9876543210/5 down
 *
 * " to be aborted" follows a build whose changer's abort flag is set. The journal also shows the
 * timers (RecordedTimers.h).
 */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "KnownChangerLists.h"
#include "RecordedTimers.h"
#include "Store.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

/* Failures and hooks of the fakes, and the calls that they recorded. */
struct ManagerFakes {
    std::string failing;           // the function that fails with errno 5
    std::function<void()> onReset; // called when a changer's progress is reset
    std::function<void(const ChangerServerProcess&)>
        onServer; // called with a notification's server
    std::vector<ChangerNotificationCallBack> callBacks;
    std::vector<ChangerNotificationSubscription*> unsubscribed;
};
extern ManagerFakes g_fakes;
extern ChangerNotificationSubscription g_subscription; // passed to the callbacks

class ManagedChangers : KnownChangerLists, public Store {
protected:
    ManagedChangers();
    ~ManagedChangers() override;

    // Delivers a "changer info". Returns the journal.
    std::vector<std::string> Notify(std::initializer_list<Value> changers);
    // Calls the handler with the state lock held, as the callback does.
    template<typename Handler, typename Argument>
    Chain Handle(Handler handler, const Argument& argument) {
        EXPECT_EQ(LockMediaIdState(), nullptr);
        Chain chain = TakeChain(handler(argument));
        UnlockMediaIdState();
        return chain;
    }
    template<typename Handler, typename Argument>
    std::vector<std::string> MessagesOf(Handler handler, const Argument& argument) {
        return ::MessagesOf(Handle(handler, argument));
    }

    RecordedTimers timers_;
};

/* One entry of "changer info": a ready changer with two drives, no media and no preferences, plus
   `changes`. */
CFOwned<CFMutableDictionaryRef> Changer(UInt64 changerGUID,
                                        std::initializer_list<Entry> changes = {});
/* The same, with these preferences, and with preferences for a daily build plus `changes`. */
CFOwned<CFMutableDictionaryRef> ChangerThatPrefers(const Value& preferences);
CFOwned<CFMutableDictionaryRef> ChangerWithDailyBuild(std::initializer_list<Entry> changes = {});
/* A medium in that slot: identified, not requested, not mounted, plus `changes`. */
CFOwned<CFMutableDictionaryRef> Medium(int storageElem, std::initializer_list<Entry> changes = {});
CFOwned<CFMutableDictionaryRef> NewMedium(int storageElem);
CFOwned<CFMutableDictionaryRef> RequestedMedium(int storageElem);
/* The journal's entry of the start of an identification of kChanger. */
std::string Identify(int storageElem);

#endif
