#include "SystemTest.h"

#include <fstream>
#include <gmock/gmock.h>
#include <string>

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

namespace {

constexpr const char* kMessages = "ChangerServerMessages";
constexpr const char* kMount = "ChangerServerMountDisc";
constexpr const char* kEject = "ChangerServerEjectDisc";
constexpr const char* kRequest = "ChangerServerRequestIdentification";
constexpr const char* kWorker = "MediaIdThread";

class IdentificationFailureTest : public SystemTest {
protected:
    // The lines of a withdrawal that the server refuses.
    void AwaitLogOfRefusedWithdrawal(const std::string& text, int code = 1050) {
        const std::string suffix = " (VErrCode = " + std::to_string(code) + ")";
        AwaitLog({Link(kMessages, "GetMessageReplyErr", text + suffix),
                  Link(kRequest, "ChangerServerRequestMediaIdentification",
                       "fail SendMessageToChangerServer" + suffix),
                  Link(kWorker, "RunMediaIdThread",
                       "fail ChangerServerRequestChangerIdentification" + suffix)});
    }

    // From now on the daemon hears this, and nothing else until the server's "resume".
    void NotifyInsteadOfTheServer(const std::string& pair) {
        Tell("pause");
        std::ofstream("/tmp/notification")
            << "<plist version=\"1.0\"><dict>" << pair << "</dict></plist>";
        Tell("notify payload=/tmp/notification");
    }
};

TEST_F(IdentificationFailureTest, AfterAFailedMountNothingIsEjectedAndTheDiscIsTriedAgain) {
    Begin();
    Tell("fault on=\"mount disc\" do=error code=1050 text=\"robot jammed\"");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitLog({Link(kMessages, "GetMessageReplyErr", "robot jammed (VErrCode = 1050)"),
              Link(kMount, "ChangerServerMountDiscInDrive",
                   "fail send message to changer server (VErrCode = 1050)"),
              Link(kMount, "ChangerServerMountDisc",
                   "fail mount disc to drive index kNoDataTransferElem (VErrCode = 1050)"),
              Link(kWorker, "RunMediaIdThread",
                   "Fail ChangerServerMountDisc(5000C500ABCD00A1, 0) (VErrCode = 1050)")});
    AwaitIdentification(0);
    EXPECT_THAT(RequestsSoFar(), ElementsAre("clear status", "withdraw 0", "mount 0", "withdraw 0",
                                             "withdraw 0", "mount 0", "eject 0", "withdraw 0"));
}

TEST_F(IdentificationFailureTest, AfterAFailedEjectTheDiscIsWithdrawnAllTheSame) {
    Begin();
    Tell("fault on=\"eject disc\" do=error code=1050 text=\"robot jammed\"");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitLog({Link(kMessages, "GetMessageReplyErr", "robot jammed (VErrCode = 1050)"),
              Link(kEject, "ChangerServerEjectDisc",
                   "fail send message to changer server (VErrCode = 1050)"),
              Link(kWorker, "RunMediaIdThread",
                   "fail ChangerServerEjectDisc for changer 5000C500ABCD00A1/storage elem 0 "
                   "(VErrCode = 1050)")});
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, AfterAFailedFirstWithdrawalTheDiscIsNeverPickedAgain) {
    Begin();
    Tell("fault on=\"request identification\" do=error code=1050 text=no");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitLogOfRefusedWithdrawal("no");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitIdentification(1);
    AwaitServedRequest(1);
    EXPECT_THAT(RequestsSoFar(), Not(Contains("mount 0")));
}

TEST_F(IdentificationFailureTest, AfterAFailedSecondWithdrawalTheDiscIsNeverPickedAgain) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=2000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}});
    Tell("fault on=\"request identification\" do=error code=1050 text=no");
    AwaitIdentification(0);
    AwaitLogOfRefusedWithdrawal("no");
    Tell("identify changer=5000C500ABCD00A1 slot=0");
    Tell("put changer=5000C500ABCD00A1 slot=1");
    AwaitIdentification(1);
    AwaitServedRequest(1);
    EXPECT_EQ(Server()
                  .AllSoFar("request", {{"command", "mount disc"}, {"storage-element-index", "0"}})
                  .size(),
              1U);
}

TEST_F(IdentificationFailureTest, ErrorWithoutTextHasTheGeneralOne) {
    Begin();
    Tell("fault on=\"request identification\" do=error code=1050");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitLogOfRefusedWithdrawal("an error has occurred");
}

TEST_F(IdentificationFailureTest, PercentSignsInTheServersTextDoNoHarm) {
    Begin();
    Tell("fault on=\"request identification\" do=error code=1050 text=\"100%% of %s%n%99999999d\"");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitLogOfRefusedWithdrawal("100% of %s%n%99999999d");
}

TEST_F(IdentificationFailureTest, LostConnectionEndsTheCommand) {
    Begin();
    Tell("fault on=\"mount disc\" do=close");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
    AwaitLog({Link(kMessages, "GetMessageReplyErr",
                   "lost connection with changer server (VErrCode = 1005)"),
              Link(kMount, "ChangerServerMountDiscInDrive",
                   "fail send message to changer server (VErrCode = 1005)"),
              Link(kMount, "ChangerServerMountDisc",
                   "fail mount disc to drive index kNoDataTransferElem (VErrCode = 1005)"),
              Link(kWorker, "RunMediaIdThread",
                   "Fail ChangerServerMountDisc(5000C500ABCD00A1, 0) (VErrCode = 1005)")});
    AwaitIdentification(0);
}

// A list of discs without the changer's, which no real server sends, leaves the walk without an
// answer to what kind of disc it has before it.
TEST_F(IdentificationFailureTest, AfterAFailedWalkTheDiscIsEjected) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=2000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}});
    NotifyInsteadOfTheServer("<key>changer info</key><array/>");
    AwaitIdentification(0);
    AwaitLog({Link("MediaIdState", "GetChangerInfoDict",
                   "fail find changer GUID 5000C500ABCD00A1 (VErrCode = 20)"),
              Link("MediaIdState", "MediaHasMountablePartitions",
                   "fail GetChangerInfoDict (VErrCode = 20)"),
              Link("ChangerFSCacheThread", "RunFSCache",
                   "fail MediaHasMountablePartitions (VErrCode = 20)"),
              Link(kWorker, "RunMediaIdThread",
                   "fail RunFSCache(5000C500ABCD00A1, 0) (VErrCode = 20)")});
    EXPECT_THAT(RequestsSoFar(), Contains("eject 0"));
    Tell("resume");
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, WorkerOfAForgottenChangerEndsQuietly) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=2000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("request", {{"command", "mount disc"}});
    NotifyInsteadOfTheServer("<key>changer list</key><array/>");
    AwaitIdentification(0);
    Tell("resume");
    AwaitChangerTakenUp();
    AwaitServedRequest(0);
}

TEST_F(IdentificationFailureTest, WorkerOfARemovedChangerIsRefusedWhatItAsksFor) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=2000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("mounted", {{"slot", "0"}});
    Tell("remove-changer changer=5000C500ABCD00A1");
    AwaitLog({Link(kMessages, "GetMessageReplyErr", "no such changer (VErrCode = 1032)"),
              Link(kEject, "ChangerServerEjectDisc",
                   "fail send message to changer server (VErrCode = 1032)"),
              Link(kWorker, "RunMediaIdThread",
                   "fail ChangerServerEjectDisc for changer 5000C500ABCD00A1/storage elem 0 "
                   "(VErrCode = 1032)")});
    AwaitLogOfRefusedWithdrawal("no such changer", 1032);
}

// Its worker outlives the changer and takes up with the new one of the same GUID.
TEST_F(IdentificationFailureTest, ChangerMayBeRemovedAndAddedAnewWhileADiscIsIdentified) {
    Begin();
    Tell("fault on=\"mount disc\" do=late after=1000");
    Tell("put changer=5000C500ABCD00A1 slot=0");
    Server().Await("mounted", {{"slot", "0"}});
    Tell("remove-changer changer=5000C500ABCD00A1");
    Tell("add-changer changer=5000C500ABCD00A1 slots=2 drives=1");
    AwaitChangerTakenUp();
    Tell("put changer=5000C500ABCD00A1 slot=0");
    AwaitIdentification(0);
}

} // namespace
