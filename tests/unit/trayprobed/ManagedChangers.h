#ifndef TESTS_UNIT_TRAYPROBED_MANAGEDCHANGERS_H
#define TESTS_UNIT_TRAYPROBED_MANAGEDCHANGERS_H

/*
 * The notification handling over the real store, with fakes around it. The journal shows what the
 * handlers start, " (unlocked)" behind what they start without the state lock:
 *
 *     reset 9EDCBA9876543210      build 9EDCBA9876543210      identify 9EDCBA9876543210/5 down
 *
 * " to be aborted" behind a build whose changer's abort flag is set,
 * and the timers (RecordedTimers.h).
 */

#include "KnownChangerLists.h"
#include "RecordedTimers.h"
#include "Store.h"

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

/* What the fakes are asked to do wrong, and what they were asked. */
struct ManagerFakes {
    std::string failing;           // the name of a function; fails with errno 5
    std::function<void()> onReset; // called when a changer's progress is reset
    std::function<void(const ChangerServerProcess&)> onServer; // told of a notification's server
    std::vector<ChangerNotificationCallBack> callBacks;
    std::vector<ChangerNotificationSubscription*> unsubscribed;
};
extern ManagerFakes g_fakes;
extern ChangerNotificationSubscription g_subscription; // that the callbacks are called with

class ManagedChangers : KnownChangerLists, public Store {
protected:
    ManagedChangers();
    ~ManagedChangers() override;

    // Delivers a "changer info" and returns what was started.
    std::vector<std::string> Notify(std::initializer_list<Value> changers);
    // Calls one handler as the callback does, with the lock held.
    template<typename Handler, typename Argument>
    Chain Handle(Handler handler, const Argument& argument) {
        EXPECT_EQ(LockMediaIdState(), nullptr);
        Chain chain = TakeChain(handler(argument));
        UnlockMediaIdState();
        return chain;
    }
    template<typename Handler, typename Argument>
    std::vector<std::string> MessagesOf(Handler handler, const Argument& argument) {
        std::vector<std::string> messages;
        for (const RaisedLink& link : Handle(handler, argument))
            messages.push_back(link.message);
        return messages;
    }

    RecordedTimers timers_;
};

/* One entry of "changer info": a ready changer with two drives, no media and no preferences,
   changed by these entries. */
CFOwned<CFMutableDictionaryRef> Changer(UInt64 changerGUID,
                                        std::initializer_list<Entry> changes = {});
CFOwned<CFMutableDictionaryRef> Without(CFOwned<CFMutableDictionaryRef> dictionary,
                                        const char* key);

#endif
