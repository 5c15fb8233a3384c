#ifndef TESTS_UNIT_TRAYPROBED_FAKECOMMANDS_H
#define TESTS_UNIT_TRAYPROBED_FAKECOMMANDS_H

/*
 * Replaces the commands to the changer server. The journal shows each command, followed by
 * " (locked)" if the calling thread holds the state lock:
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
    // From now on all commands succeed.
    static void Reset();

    // The nth command from now whose journal entry begins with `command` fails with
    // kVErrCodeConnectionLost.
    static void Fail(const std::string& command, int nth = 1);
    // The function is called at each command, on the command's thread.
    static void OnCommand(std::function<void(std::string_view command)> function);

    // The last progress report shown, if the command to clear its status failed, else nullptr. The
    // daemon never frees such a report: the caller must. Returns each report once.
    static FSCacheStatusReport* TakeUnclearedReport();
};

/* The result of a fake command with that entry in the journal, as OnCommand() and Fail() request.
 */
VErrLink* AnswerCommand(std::string_view entry);

/* The log line of a failed command. */
constexpr const char* kCommandFailureLine =
    "FakeCommands:123, AnswerCommand: fail on purpose (VErrCode = 1005)";

#endif
