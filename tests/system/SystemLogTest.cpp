#include "SystemTest.h"

#include <cstdio>

namespace {

using SystemLogTest = SystemTest;

// Its lines are lost, and nothing else is; once the log is back it has the next ones.
TEST_F(SystemLogTest, MissingSystemLogLosesLinesOnlyAndIsUsedAgainWhenBack) {
    Begin();
    ASSERT_EQ(std::rename("/dev/log", "/dev/log.away"), 0);
    Tell("fault on=\"eject disc\" do=error code=1050 text=unheard");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitServedRequest(0);

    ASSERT_EQ(std::rename("/dev/log.away", "/dev/log"), 0);
    Tell("fault on=\"eject disc\" do=error code=1050 text=heard");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitIdentification(1);
    AwaitLog({Link("ChangerServerMessages", "GetMessageReplyErr", "heard (VErrCode = 1050)"),
              Link("ChangerServerEjectDisc", "ChangerServerEjectDisc",
                   "fail send message to changer server (VErrCode = 1050)"),
              // A daemon that got a late turn may just be identifying the first disc once more.
              Link("MediaIdThread", "RunMediaIdThread",
                   "fail ChangerServerEjectDisc for changer 5000C500ABCD00A1/storage elem ") +
                  "[01] \\(VErrCode = 1050\\)"});
}

} // namespace
