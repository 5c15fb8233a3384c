#include "changerctl/Terminal.h"

#include "changerctl/Failure.h"
#include "changerctl/PrintableText.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace changerctl {
namespace {

constexpr std::string_view kReset = "\033[0m";
// In the order of Style.
constexpr std::array<std::string_view, 6> kStyles{"",         "\033[1m",  "\033[2m",
                                                  "\033[32m", "\033[33m", "\033[31m"};
constexpr std::string_view kHideCursor = "\033[?25l";
constexpr std::string_view kShowCursor = "\033[?25h";
constexpr std::string_view kHome = "\033[H";
constexpr std::string_view kEraseToEnd = "\r\033[J";

std::string Render(const TextLine& line, bool withColours, std::size_t columns) {
    std::string rendered;
    for (const Span& span : line) {
        const std::string_view text = ClippedTo(columns, span.text);
        columns -= ColumnsOf(text);
        const bool isStyled = withColours && span.style != Style::Plain && !text.empty();
        if (isStyled)
            rendered += kStyles.at(static_cast<std::size_t>(span.style));
        rendered += text;
        if (isStyled)
            rendered += kReset;
    }
    return rendered;
}

// A terminal that does not know its size is assumed to have that of the first terminals.
winsize TerminalSize() {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        size = {24, 80, 0, 0};
    return size;
}

} // namespace

bool IsTerminal() {
    const char* type = std::getenv("TERM");
    const bool isDumb = type == nullptr || std::string_view(type) == "dumb";
    return isatty(STDOUT_FILENO) == 1 && !isDumb;
}

bool UsesColours(ColourChoice choice) {
    if (choice == ColourChoice::Auto)
        return IsTerminal() && std::getenv("NO_COLOR") == nullptr;
    return choice == ColourChoice::Always;
}

void Write(const std::string& text) {
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t written = write(STDOUT_FILENO, rest.data(), rest.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            throw Failure(ExitStatus::EndedOtherwise,
                          std::string("cannot write the output: ") + std::strerror(errno));
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
}

void WriteLines(const std::vector<TextLine>& lines, bool withColours) {
    std::string text;
    for (const TextLine& line : lines)
        text += Render(line, withColours, SIZE_MAX) + "\n";
    Write(text);
}

RedrawnLines::RedrawnLines(bool withColours) : withColours_(withColours) {
    Write(std::string(kHideCursor));
}

RedrawnLines::~RedrawnLines() {
    try {
        Write(std::string(kShowCursor));
    } catch (const Failure&) {
        // The output is gone, and the cursor with it.
    }
}

void RedrawnLines::Draw(const std::vector<TextLine>& lines) {
    std::string text = drawn_ > 0 ? "\033[" + std::to_string(drawn_) + "A" : "";
    if (drawn_ > 0 && IsResized())
        text = kHome; // where the lines are now, only the terminal knows
    text += kEraseToEnd;
    const winsize size = TerminalSize();
    columns_ = size.ws_col;
    rows_ = size.ws_row;
    drawn_ = std::min(lines.size(), rows_ - 1);
    for (std::size_t i = 0; i < drawn_; ++i)
        text += Render(lines[i], withColours_, columns_ - 1) + "\n";
    Write(text);
}

bool RedrawnLines::IsResized() const {
    const winsize size = TerminalSize();
    return size.ws_col != columns_ || size.ws_row != rows_;
}

} // namespace changerctl
