/* Fault sweeps of the notification connection: attempts to connect, and its loss. */

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "WholeDaemon.h"

#include <unistd.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

using testing::Contains;
using testing::HasSubstr;

namespace {

class ConnectionSweep : public WholeDaemon {
protected:
    ConnectionSweep() {
        EXPECT_EQ(
            SubscribeToChangerNotifications(nullptr, nullptr, nullptr, nullptr, &subscription_),
            nullptr);
    }
    ~ConnectionSweep() override {
        EXPECT_EQ(UnsubscribeFromChangerNotifications(subscription_), nullptr);
    }

    bool IsConnected() const {
        return subscription_->socket != nullptr && subscription_->connectTimer == nullptr;
    }
    bool IsTrying() const {
        return subscription_->socket == nullptr && subscription_->connectTimer != nullptr;
    }
    void Try() {
        TryNotificationConnect(nullptr, subscription_);
    }
    void LoseConnection() {
        const CFOwned<CFDataRef> nothing = Bytes("");
        ServerNotificationSocketCallBack(subscription_->socket, kCFSocketDataCallBack, nullptr,
                                         nothing.Get(), subscription_);
    }
    // By design the daemon never releases it.
    void ReleaseEarlierSource() {
        if (subscription_->source != nullptr)
            CFRelease(std::exchange(subscription_->source, nullptr));
    }

    ChangerNotificationSubscription* subscription_ = nullptr;

private:
    static void ServeUntilTheEnd(Connection& connection) {
        const NoSystemCallFaultsHere unfailing;
        connection.WaitForEnd();
    }

    static constexpr std::size_t kConnections = 10'000; // more than any sweep makes
    ScriptedServer notifications_{"/tmp/carouseldn-" + std::to_string(getpid()),
                                  std::vector<Script>(kConnections, ServeUntilTheEnd)};
};

// The attempt is repeated if the server cannot be reached, but not if memory is short: that is
// logged.
TEST_F(ConnectionSweep, AttemptConnectsOrIsRepeatedOrLogsWhyNot) {
    Report(SweepFaults([&] { Try(); },
                       [&](const Fault& fault) {
                           const auto lines = ExpectSound(fault, IsConnected() || IsTrying());
                           if (!lines.empty()) {
                               EXPECT_THAT(lines,
                                           Contains(HasSubstr("fail get notifcation socket")));
                               EXPECT_TRUE(fault.function.empty()) << fault.what;
                           }
                           if (!IsConnected()) {
                               EXPECT_EQ(StartNotificationConnectCycle(subscription_), nullptr);
                               Try();
                           }
                           EXPECT_TRUE(IsConnected()) << fault.what;
                           LoseConnection();
                           ReleaseEarlierSource();
                       }));
}

TEST_F(ConnectionSweep, LossStartsAttemptsOrLogsAnError) {
    Try();
    const std::size_t faults = SweepMemory(
        1, [&] { LoseConnection(); },
        [&](const Fault& fault) {
            ExpectSound(fault, IsTrying());
            EXPECT_EQ(StartNotificationConnectCycle(subscription_), nullptr);
            ReleaseEarlierSource();
            Try();
            EXPECT_TRUE(IsConnected()) << fault.what;
        });
    EXPECT_GT(faults, 0U);
}

} // namespace
