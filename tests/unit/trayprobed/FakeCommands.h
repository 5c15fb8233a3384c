#ifndef TESTS_UNIT_TRAYPROBED_FAKECOMMANDS_H
#define TESTS_UNIT_TRAYPROBED_FAKECOMMANDS_H

/*
 * The commands to the changer server, in place of the real ones. Each is noted in the journal,
 * with " (locked)" behind it when the calling thread holds the state lock:
 *
 *     withdraw disc 0000000000000007/3            withdraw changer 0000000000000007
 *     mount 0000000000000007/3 within 300 s, partition "", client "...", flags 1, family 1
 *     eject 0000000000000007/3 within 300 s, flags 1, family 1
 *     show 0000000000000007 trayprobed "message" 0/3      clear 0000000000000007 trayprobed
 */

#include "common/VErr.h"

#include <functional>
#include <string>
#include <string_view>

struct FSCacheStatusReport;

class FakeCommands {
public:
    // Serves well, from now on.
    static void Reset();

    // The nth command from now that begins so fails, with kVErrCodeConnectionLost.
    static void Fail(const std::string& command, int nth = 1);
    // Called at each command, on its thread.
    static void OnCommand(std::function<void(std::string_view command)> function);

    // The progress record that was shown last, if the next "clear" failed: the build keeps it for
    // good, so it is the test's to free. Each is given once.
    static FSCacheStatusReport* TakeKeptReport();
};

/* How such a failure looks in the log. */
constexpr const char* kCommandFailureLine =
    "FakeCommands:123, Answer: fail on purpose (VErrCode = 1005)";

#endif
