#include "changerctl/CommandLine.h"

#include "changerctl/Failure.h"

#include <gmock/gmock.h>

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

namespace changerctl {
namespace {

std::optional<Options> Parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "changerctl");
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    return ParseCommandLine(static_cast<int>(arguments.size()), pointers.data());
}

// What the arguments print to standard output, without a command.
std::string TextOf(const std::vector<std::string>& arguments) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(Parse(arguments).has_value(), false);
    return testing::internal::GetCapturedStdout();
}

TEST(CommandLine, ArgumentsAndOptionsMayMix) {
    const auto options = Parse({"identify", "A1", "--wait", "3-7", "--timeout", "20", "9"});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->command, "identify");
    EXPECT_THAT(options->arguments, ElementsAre("A1", "3-7", "9"));
    EXPECT_TRUE(options->waits);
    EXPECT_THAT(options->timeLimit, Optional(std::chrono::seconds(20)));
}

TEST(CommandLine, GlobalOptionsMayPrecedeOrFollowTheCommand) {
    for (const auto& arguments : {std::vector<std::string>{"--verbose", "--color=never", "list"},
                                  {"list", "--verbose", "--color=never"}}) {
        const auto options = Parse(arguments);
        ASSERT_TRUE(options);
        EXPECT_TRUE(options->isVerbose);
        EXPECT_EQ(options->colour, ColourChoice::Never);
    }
}

TEST(CommandLine, DefaultsShowEverythingOnce) {
    const auto options = Parse({"show"});
    ASSERT_TRUE(options);
    EXPECT_TRUE(options->hasHeader);
    EXPECT_FALSE(options->asJson || options->waits || options->isVerbose || options->isForced);
    EXPECT_THAT(options->columns, testing::IsEmpty());
    EXPECT_EQ(options->colour, ColourChoice::Auto);
    EXPECT_EQ(options->FirstNotificationLimit(), std::chrono::seconds(5));
}

TEST(CommandLine, ColumnsTakeOneArgumentOnly) {
    for (const auto& arguments : {std::vector<std::string>{"show", "--columns=slot,disc", "A1"},
                                  {"show", "--columns", "slot,disc", "A1"},
                                  {"show", "--columns", "slot", "A1", "--columns", "disc"}}) {
        const auto options = Parse(arguments);
        ASSERT_TRUE(options);
        EXPECT_THAT(options->columns, ElementsAre("slot", "disc"));
        EXPECT_THAT(options->arguments, ElementsAre("A1"));
    }
}

TEST(CommandLine, TableOptionsAreRead) {
    const auto options = Parse({"list", "--no-header", "--columns=changer,ready"});
    ASSERT_TRUE(options);
    EXPECT_FALSE(options->hasHeader);
    EXPECT_THAT(options->columns, ElementsAre("changer", "ready"));
    EXPECT_TRUE(Parse({"list", "--json"})->asJson);
}

TEST(CommandLine, DiscOptionsAreRead) {
    EXPECT_THAT(Parse({"mount", "7", "--drive", "0"})->drive, Optional(0));
    EXPECT_TRUE(Parse({"eject", "A1", "7", "--force"})->isForced);
    EXPECT_TRUE(Parse({"identify", "--new", "--withdraw"})->onlyNew);
}

TEST(CommandLine, WrongUsageIsRefused) {
    const std::vector<std::vector<std::string>> wrong{{},
                                                      {"forget"},
                                                      {"list", "A1"},
                                                      {"list", "--wait"},
                                                      {"list", "--timeout", "-1"},
                                                      {"list", "--timeout", "1000001"},
                                                      {"list", "--timeout", "soon"},
                                                      {"list", "--color=blue"},
                                                      {"list", "show"},
                                                      {"mount", "7", "--drive", "65535"},
                                                      {"mount", "7", "--drive", "-1"},
                                                      {"mount", "7", "--force"}};
    for (const auto& arguments : wrong) {
        try {
            Parse(arguments);
            ADD_FAILURE() << testing::PrintToString(arguments);
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.Status(), ExitStatus::Usage) << testing::PrintToString(arguments);
            EXPECT_THAT(failure.what(), HasSubstr("--help")) << testing::PrintToString(arguments);
        }
    }
}

TEST(CommandLine, HelpAndVersionGoToStandardOutput) {
    EXPECT_THAT(TextOf({"--help"}), AllOf(HasSubstr("usage: changerctl COMMAND"),
                                          HasSubstr("identify"), HasSubstr("CHANGER is the GUID")));
    EXPECT_THAT(TextOf({"identify", "--help"}),
                AllOf(HasSubstr("usage: changerctl identify [CHANGER] SLOT... [OPTION...]"),
                      HasSubstr("--new")));
    EXPECT_THAT(TextOf({"--version"}), testing::MatchesRegex("changerctl [0-9.]+\n"));
}

} // namespace
} // namespace changerctl
