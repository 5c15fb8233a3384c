#include "SystemTest.h"

#include <cstdio>

namespace {

using SystemLogTest = SystemTest;

TEST_F(SystemLogTest, MissingSystemLogLosesLinesOnlyAndIsUsedAgainWhenBack) {
    Begin();
    ASSERT_EQ(std::rename("/dev/log", "/dev/log.away"), 0);
    Do("fault on=\"eject disc\" do=error code=1050 text=unheard");
    IdentifyNewDisc(0);
    AwaitServedRequest(0);

    ASSERT_EQ(std::rename("/dev/log.away", "/dev/log"), 0);
    Do("fault on=\"eject disc\" do=error code=1050 text=heard");
    IdentifyNewDisc(1);
    AwaitLog({Link("ChangerServerMessages", "GetMessageReplyErr", "heard (VErrCode = 1050)"),
              Link("ChangerServerEjectDisc", "ChangerServerEjectDisc",
                   "fail send message to changer server (VErrCode = 1050)"),
              // The first disc may be identified once more at the same time.
              Link("MediaIdThread", "RunMediaIdThread",
                   "fail ChangerServerEjectDisc for changer 5000C500ABCD00A1/storage elem ") +
                  "[01] \\(VErrCode = 1050\\)"});
}

} // namespace
