#include "Screen.h"

#include "testbed/Failure.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

namespace {

constexpr int kBarWidth = 40;
// Escape sequences that set the text style, in the order of Screen::Colour.
constexpr std::array kColourCodes{"\033[0m",  "\033[1m",  "\033[2m", "\033[31m",
                                  "\033[32m", "\033[33m", "\033[36m"};
constexpr const char* kReset = "\033[0m";
constexpr const char* kEraseLine = "\r\033[K";

std::string BarOf(int step, int steps) {
    const int filled = steps > 0 ? std::min(kBarWidth * step / steps, kBarWidth) : 0;
    const auto length = [](int count) { return static_cast<std::size_t>(count); };
    return "           [" + std::string(length(filled), '#') +
           std::string(length(kBarWidth - filled), '.') + "] " + std::to_string(step) + " of " +
           std::to_string(steps) + " discs";
}

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
    if (!bar_.empty() && isTerminal_)
        std::fputs(kEraseLine, stdout);
    std::printf("%s\n", line.c_str());
    if (isTerminal_)
        std::fputs(bar_.c_str(), stdout);
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

void Screen::ShowBar(int step, int steps) {
    const std::string bar = BarOf(step, steps);
    if (!isTerminal_) {
        Print(bar);
        return;
    }
    bar_ = Painted(bar, Colour::Green);
    std::printf("%s%s", kEraseLine, bar_.c_str());
    Flush();
}

void Screen::RemoveBar() {
    if (!bar_.empty()) {
        std::printf("\n");
        bar_.clear();
        Flush();
    }
}
