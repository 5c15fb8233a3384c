// changerctl list and show: what they print of the server's state, and where.

#include "CommandTest.h"
#include "tests/unit/support/Matchers.h"

#include <csignal>
#include <string>

namespace {

constexpr const char* kHeading =
    "CHANGER           READY  DRIVES  BUSY  SLOTS  DISCS  NEW  WANTED  ACTIVITY\n";

class CommandOutputTest : public CommandTest {
protected:
    void SetUp() override {
        StartServer("slots=4 drives=2");
        Do("pulse every=0");
        PutDisc(0, "identified=yes");
        PutDisc(2);
        Do("identify changer=5000C500ABCD00A1 slot=2");
    }

    // Runs the command while the server shows only this one changer.
    CommandEnd RunWithChanger(const std::vector<std::string>& arguments,
                              const std::string& members) {
        Do("pause");
        testbed::Process command = Start(arguments);
        AwaitSubscription();
        NotifyAboutChanger(members);
        return AwaitEnd(command);
    }
};

TEST_F(CommandOutputTest, ListPrintsALineForEachChanger) {
    Do("add-changer changer=B7 slots=3 drives=4 ready=no");
    EXPECT_THAT(
        Run({"list"}),
        Prints(
            kHeading +
            std::string("00000000000000B7  no     4       0     3      0      0    0       -\n"
                        "5000C500ABCD00A1  yes    2       0     4      2      1    1       -\n")));
}

TEST_F(CommandOutputTest, ListShowsWhatTheClientsAndTheUserWant) {
    Do("abort changer=5000C500ABCD00A1 client=trayprobed create=yes");
    Do("identify changer=5000C500ABCD00A1");
    EXPECT_THAT(Run({"list", "--columns=activity"}),
                Prints("ACTIVITY\ntrayprobed, 0 of 0 (abort requested); build requested\n"));
}

TEST_F(CommandOutputTest, ShowPrintsSlotsAndPreferences) {
    Do("preferences changer=5000C500ABCD00A1 identify-on-insert=yes hours=3");
    const CommandEnd end = Run({"show"});
    EXPECT_THAT(end,
                Prints(MatchesRegex("SLOT  DISC    PLACE  IDENTIFIED           WANTED  PARTITIONS\n"
                                    "   0  kind 1  slot   20..-..-.. ..:..:..  no      1\n"
                                    "   1  empty   -      -                    -       -\n"
                                    "   2  kind 1  slot   never                yes     -\n"
                                    "   3  empty   -      -                    -       -\n"
                                    "\n"
                                    "PREFERENCE          VALUE\n"
                                    "identify on insert  yes\n"
                                    "build on identify   -\n"
                                    "build on schedule   -\n"
                                    "build at hour       3\n"
                                    "build at minute     -\n")));
}

TEST_F(CommandOutputTest, ShowPrintsTheClientStatusesIfThereAreAny) {
    Do("abort changer=5000C500ABCD00A1 client=backup create=yes");
    EXPECT_THAT(Run({"show"}), Prints(EndsWith("\n\n"
                                               "CLIENT  STEP    ABORT  MESSAGE\n"
                                               "backup  0 of 0  yes    \n")));
}

TEST_F(CommandOutputTest, ChangerIsNamedWithOrWithoutZerosAndPrefix) {
    Do("add-changer changer=B7 slots=1 drives=4");
    for (const char* name : {"B7", "b7", "0xB7", "00000000000000B7"})
        EXPECT_THAT(Run({"show", name, "--columns=slot", "--no-header"}), Prints("0\n"));
}

TEST_F(CommandOutputTest, UnknownChangerEndsWithStatusFour) {
    EXPECT_THAT(Run({"show", "B8"}), Fails(4, "the server has no changer 00000000000000B8"));
}

TEST_F(CommandOutputTest, SeveralChangersWithoutANameAreAUsageError) {
    Do("add-changer changer=B7 slots=3 drives=4");
    EXPECT_THAT(Run({"show"}), Fails(2, "00000000000000B7, 5000C500ABCD00A1"));
}

TEST_F(CommandOutputTest, WrongUsageEndsWithStatusTwo) {
    EXPECT_THAT(Run({}), Fails(2, "changerctl --help"));
    EXPECT_THAT(Run({"dance"}), Fails(2, "changerctl --help"));
    EXPECT_THAT(Run({"list", "--columns=weight"}), Fails(2, "no column weight"));
    EXPECT_THAT(Run({"show", "shelf"}), Fails(2, "shelf is no changer"));
}

TEST_F(CommandOutputTest, ColumnsArePrintedInTheChosenOrder) {
    EXPECT_THAT(Run({"list", "--no-header", "--columns=discs,changer"}),
                Prints("2  5000C500ABCD00A1\n"));
}

TEST_F(CommandOutputTest, ListAsJsonHasEachMemberOfTheSchema) {
    Do("abort changer=5000C500ABCD00A1 client=trayprobed create=yes");
    const CommandEnd end = Run({"list", "--json"});
    EXPECT_THAT(end, Prints(Not(IsEmpty())));
    EXPECT_THAT(RunJq(R"(. == [{"changer": "5000C500ABCD00A1", "ready": true, "drives": 2,
                          "busy": 0, "slots": 4, "discs": 2, "new": 1, "wanted": 1,
                          "build_wanted": false, "clients": [{"client": "trayprobed",
                          "message": "", "current_step": 0, "maximum_step": 0,
                          "abort_requested": true}]}])",
                      end.output),
                Prints("true\n"));
}

TEST_F(CommandOutputTest, ShowAsJsonHasEachMemberOfTheSchema) {
    Do("preferences changer=5000C500ABCD00A1 build-on-schedule=no minutes=30");
    const CommandEnd end = Run({"show", "--json"});
    EXPECT_THAT(RunJq(R"(.preferences == {"identify_on_insert": null, "build_on_identify": null,
                          "build_on_schedule": false, "build_hour": null, "build_minute": 30}
                          and .slot_list[2] == {"slot": 2, "kind": 1, "place": "slot",
                          "mount_state": 0, "identified": null, "wanted": true,
                          "partitions": 0}
                          and (.slot_list[0].identified | fromdate) > 1700000000
                          and (.slot_list | length) == 4 and .changer == "5000C500ABCD00A1")",
                      end.output),
                Prints("true\n"));
}

TEST_F(CommandOutputTest, ValuesOfTheWrongTypeAreAbsent) {
    const std::string members = "<key>GUID</key><integer>183</integer>"
                                "<key>Changer Ready</key><string>yes</string>"
                                "<key>Data Transfer Element Count</key><true/>"
                                "<key>Changer Preferences</key><integer>1</integer>"
                                "<key>Changer Client Status</key><array/>"
                                "<key>Sparkle</key><data>AAAA</data>"
                                "<key>Changer Media Info</key><array><string>none</string><dict>"
                                "<key>Media Storage Element Index</key><string>0</string>"
                                "<key>Media Kind</key><false/>"
                                "<key>Media Mount State</key><dict/>"
                                "<key>Media Identify Time</key><string>now</string>"
                                "<key>Media Request Identification</key><integer>1</integer>"
                                "<key>Media Partition Info</key><true/></dict></array>";
    const CommandEnd end = RunWithChanger({"show", "--json"}, members);
    EXPECT_THAT(RunJq(R"(.ready == null and .drives == null and .clients == [] and
                          .preferences.build_hour == null and .slot_list == [{"slot": 1,
                          "kind": null, "place": null, "mount_state": null, "identified": null,
                          "wanted": false, "partitions": null}])",
                      end.output),
                Prints("true\n"));
}

// A status of a client named `client`, with this message.
std::string ChangerWithStatus(const std::string& client, const std::string& message) {
    return "<key>GUID</key><integer>183</integer><key>Changer Client Status</key><dict><key>" +
           client + "</key><dict><key>Message</key><string>" + message + "</string></dict></dict>";
}

TEST_F(CommandOutputTest, ControlCharactersOfTheServerAreEscaped) {
    const std::string members =
        ChangerWithStatus("cl\x1B[2Jient", "100%s %n\n\x1B]0;title\x07 \xC2\x9B 3\\4");
    EXPECT_THAT(RunWithChanger({"list", "--no-header", "--columns=activity"}, members),
                Prints("cl\\x1B[2Jient: 100%s %n\\n\\x1B]0;title\\x07 \\x9B 3\\\\4\n"));
}

TEST_F(CommandOutputTest, LongTextOfTheServerIsPrintedWhole) {
    const std::string text(65536, 'x');
    EXPECT_THAT(RunWithChanger({"list", "--no-header", "--columns=activity"},
                               ChangerWithStatus("trayprobed", text)),
                Prints("trayprobed: " + text + "\n"));
}

TEST_F(CommandOutputTest, LongTextOfTheServerIsValidJson) {
    const std::string text = std::string(65536, '"') + "\x1B\xC2\x9B\n";
    const CommandEnd end =
        RunWithChanger({"list", "--json"}, ChangerWithStatus("trayprobed", text));
    EXPECT_THAT(RunJq(".[0].clients[0].message | length == 65539", end.output), Prints("true\n"));
}

// ---- where the output goes ----

constexpr const char* kBold = "\x1B[1m";

TEST_F(CommandOutputTest, TerminalGetsColours) {
    const testbed::Terminal terminal(80, 24);
    EXPECT_THAT(RunOn(terminal, {"list"}).output, HasSubstr(kBold));
}

TEST_F(CommandOutputTest, PipeGetsColoursOnlyIfTheyAreRequested) {
    EXPECT_THAT(Run({"list"}).output, Not(HasSubstr(kBold)));
    EXPECT_THAT(Run({"list", "--color=always"}).output, HasSubstr(kBold));
}

TEST_F(CommandOutputTest, ColoursCanBeRefused) {
    const testbed::Terminal terminal(80, 24);
    EXPECT_THAT(RunOn(terminal, {"list", "--color=never"}).output, Not(HasSubstr("\x1B")));
}

TEST_F(CommandOutputTest, NoColorInTheEnvironmentRefusesColoursWhateverItsValue) {
    const testbed::Terminal terminal(80, 24);
    for (const char* value : {"NO_COLOR=", "NO_COLOR=1", "NO_COLOR=0"}) {
        environment_ = {"TERM=xterm", value};
        EXPECT_THAT(RunOn(terminal, {"list"}).output, Not(HasSubstr("\x1B"))) << value;
        EXPECT_THAT(RunOn(terminal, {"list", "--color=always"}).output, HasSubstr(kBold));
    }
}

TEST_F(CommandOutputTest, DumbTerminalGetsNoColours) {
    const testbed::Terminal terminal(80, 24);
    environment_ = {"TERM=dumb"};
    EXPECT_THAT(RunOn(terminal, {"list"}).output, Not(HasSubstr("\x1B")));
}

TEST_F(CommandOutputTest, OutputThatCannotBeWrittenEndsWithStatusSix) {
    EXPECT_THAT(RunShell("$changerctl list >/dev/full"),
                Fails(6, "cannot write the output: No space left on device"));
    EXPECT_THAT(RunShell("$changerctl --help >/dev/full"),
                Fails(6, "cannot write the output: No space left on device"));
}

// Descriptor 3 is the pipe's only reader, and closed before the command begins.
TEST_F(CommandOutputTest, ClosedPipeEndsTheCommandQuietlyByItsSignal) {
    EXPECT_THAT(RunShell("mkfifo /tmp/pipe; exec 3<>/tmp/pipe 4>/tmp/pipe 3<&-; "
                         "exec $changerctl list >&4"),
                Ends(128 + SIGPIPE, "", ""));
}

// The library drops the rest of what it reads with the bad bytes: a pulse repeats the state.
TEST_F(CommandOutputTest, LibraryMessagesAreShownOnRequestOnly) {
    Do("pulse every=100");
    const auto listWithBadNotification = [&](const std::vector<std::string>& arguments) {
        Do("pause");
        testbed::Process command = Start(arguments);
        AwaitSubscription();
        Do("notify hex=0102030405060708090a0b0c");
        Do("resume");
        return AwaitEnd(command);
    };
    EXPECT_THAT(listWithBadNotification({"list"}), Prints(StartsWith(kHeading)));
    EXPECT_THAT(listWithBadNotification({"list", "--verbose"}),
                Ends(0, StartsWith(kHeading),
                     HasSubstr("HandleNotificationSocketData: invalid notification header")));
}

} // namespace
