// The completion of changerctl in both shells: what it offers, and that it is silent without a
// server.

#include "CommandTest.h"
#include "testbed/Sandbox.h"
#include "tests/unit/support/Matchers.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace {

class CommandCompletionTest : public CommandTest, public testing::WithParamInterface<const char*> {
protected:
    void StartServerWithChangers() {
        StartServer("slots=3 drives=2");
        Do("add-changer changer=B7 slots=2 drives=1");
    }

    // Returns what the shell offers for the last of the words, sorted. Expects no errors.
    std::vector<std::string> Complete(const std::string& words) {
        const CommandEnd end =
            RunShell("PATH=${changerctl%/*}:$PATH exec " +
                     (GetParam() == std::string("bash") ? Bash(words) : Zsh(words)));
        EXPECT_EQ(end.errors, "");
        std::istringstream lines(end.output);
        std::vector<std::string> offered;
        for (std::string line; std::getline(lines, line);)
            if (!line.empty())
                offered.push_back(line);
        std::sort(offered.begin(), offered.end());
        return offered;
    }

private:
    static std::string Bash(const std::string& words) {
        return "bash -c 'source " + testbed::ProgramPath("changerctl.bash") + "; COMP_WORDS=(" +
               words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _changerctl; " +
               "printf \"%s\\n\" \"${COMPREPLY[@]}\"'";
    }
    // In place of the completion system, calls the functions that the arguments name.
    static std::string Zsh(const std::string& words) {
        return "zsh -fc '"
               "_arguments() { local a; for a in \"$@\"; do "
               "if [[ $a = *:_changerctl_* ]]; then ${a##*:}; fi; done }; "
               "compadd() { shift; print -l -- \"$@\" }; "
               "words=(" +
               words + "); CURRENT=$#words; source " + testbed::ProgramPath("_changerctl") + "'";
    }
};

INSTANTIATE_TEST_SUITE_P(Shells, CommandCompletionTest, testing::Values("bash", "zsh"),
                         [](const auto& shell) { return std::string(shell.param); });

TEST_P(CommandCompletionTest, ChangersAreOffered) {
    StartServerWithChangers();
    for (const char* words : {"changerctl show \"\"", "changerctl watch \"\"",
                              "changerctl build \"\"", "changerctl abort \"\""})
        EXPECT_THAT(Complete(words), ElementsAre("00000000000000B7", "5000C500ABCD00A1"));
}

TEST_P(CommandCompletionTest, SlotsOfTheNamedChangerAreOffered) {
    StartServerWithChangers();
    for (const char* words :
         {"changerctl identify B7 \"\"", "changerctl mount 0xb7 \"\"",
          "changerctl eject 00000000000000B7 \"\"", "changerctl identify b7 0 \"\""})
        EXPECT_THAT(Complete(words), ElementsAre("0", "1"));
}

TEST_P(CommandCompletionTest, SlotsOfTheOnlyChangerAreOffered) {
    StartServer("slots=3 drives=2");
    EXPECT_THAT(Complete("changerctl identify 1 \"\""), ElementsAre("0", "1", "2"));
}

TEST_P(CommandCompletionTest, NothingIsOfferedWithoutAServer) {
    for (const char* words :
         {"changerctl show \"\"", "changerctl identify \"\"", "changerctl mount B7 \"\""})
        EXPECT_THAT(Complete(words), IsEmpty());
}

} // namespace
