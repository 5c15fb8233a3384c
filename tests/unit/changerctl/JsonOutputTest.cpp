#include "changerctl/JsonOutput.h"

#include <gtest/gtest.h>

namespace changerctl {
namespace {

TEST(JsonOutput, AbsentValuesAreNull) {
    EXPECT_EQ(Dump(ChangerToJson(Changer{}), false),
              R"({"changer":null,"ready":null,"drives":null,"busy":0,"slots":0,"discs":0,"new":0,)"
              R"("wanted":0,"build_wanted":false,"clients":[],"preferences":{)"
              R"("identify_on_insert":null,"build_on_identify":null,"build_on_schedule":null,)"
              R"("build_hour":null,"build_minute":null},"slot_list":[]})");
    EXPECT_EQ(Dump(StatusToJson({.client = "c"}), false),
              R"({"client":"c","message":null,"current_step":null,"maximum_step":null,)"
              R"("abort_requested":null})");
    EXPECT_EQ(Dump(SlotToJson({.number = 7}), false),
              R"({"slot":7,"kind":null,"place":null,"mount_state":null,"identified":null,)"
              R"("wanted":false,"partitions":null})");
}

TEST(JsonOutput, SlotHasItsPlaceAsAWordAndItsTimeInUtc) {
    EXPECT_EQ(Dump(SlotToJson({7, 1, 1700000000, true, 0x40, 2}), false),
              R"({"slot":7,"kind":1,"place":"slot","mount_state":64,)"
              R"("identified":"2023-11-14T22:13:20Z","wanted":true,"partitions":2})");
}

TEST(JsonOutput, DiscThatWasNeverIdentifiedHasNoTime) {
    EXPECT_TRUE(SlotToJson({.kind = 1, .identifyTime = 0})["identified"].is_null());
}

TEST(JsonOutput, GuidIsAStringOfSixteenDigits) {
    Changer changer;
    changer.guid = 0x5000C500ABCD1234;
    EXPECT_EQ(SummaryToJson(changer)["changer"], "5000C500ABCD1234");
}

TEST(JsonOutput, ControlCharactersAreEscapedAndInvalidBytesReplaced) {
    EXPECT_EQ(Dump(Json("\033[2J\n\x7F\u009B\xFF"), false), R"("\u001b[2J\n\u007f\u009b\ufffd")");
}

TEST(JsonOutput, TimesBeforeTheEpochAreFormatted) {
    EXPECT_EQ(FormatUtc(-1), "1969-12-31T23:59:59Z");
}

} // namespace
} // namespace changerctl
