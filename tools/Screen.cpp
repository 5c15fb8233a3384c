#include "Screen.h"

#include "testbed/Failure.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>

namespace {

// Escape sequences that set the text style, in the order of Screen::Colour.
constexpr std::array kColourCodes{"\033[0m",  "\033[1m",  "\033[2m", "\033[31m",
                                  "\033[32m", "\033[33m", "\033[36m"};
constexpr const char* kReset = "\033[0m";
constexpr const char* kEraseToEnd = "\r\033[J";

// ferror() reports earlier failures: on a terminal each newline flushes the buffer.
void Flush() {
    testbed::Require(std::fflush(stdout) == 0 && std::ferror(stdout) == 0,
                     "cannot write the output");
}

} // namespace

Screen::Screen()
    : isTerminal_(isatty(STDOUT_FILENO) == 1), start_(std::chrono::steady_clock::now()) {}

std::string Screen::Painted(const std::string& text, Colour colour) const {
    if (!isTerminal_ || colour == Colour::Plain)
        return text;
    return kColourCodes.at(static_cast<std::size_t>(colour)) + text + kReset;
}

void Screen::Print(const std::string& line) {
    EraseBelow();
    std::printf("%s\n", line.c_str());
    DrawBelow();
    Flush();
}

void Screen::Title(const std::string& text) {
    Print("");
    Print(Painted("== " + text, Colour::Bold));
}

void Screen::Say(const std::string& who, const std::string& text, Colour colour) {
    const std::chrono::duration<double> since = std::chrono::steady_clock::now() - start_;
    std::array<char, 64> head{};
    std::snprintf(head.data(), head.size(), "%7.2f s  %-10s  ", since.count(), who.c_str());
    Print(Painted(head.data(), Colour::Dim) + Painted(text, colour));
}

unsigned short Screen::Columns() const {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void Screen::ShowBelow(const std::vector<std::string>& lines) {
    EraseBelow();
    below_ = lines;
    DrawBelow();
    Flush();
}

void Screen::EraseBelow() const {
    if (!below_.empty())
        std::printf("\033[%zuA%s", below_.size(), kEraseToEnd);
}

void Screen::DrawBelow() const {
    for (const std::string& line : below_)
        std::printf("%s\n", line.c_str());
}
