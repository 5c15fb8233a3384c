#ifndef TOOLS_SCREEN_H
#define TOOLS_SCREEN_H

#include <chrono>
#include <string>
#include <vector>

/* Writes lines with the elapsed time to standard output; on a terminal in colours, and with other
   lines below them that are redrawn. Each function flushes its output, and throws testbed::Failure
   if standard output cannot be written. */
class Screen {
public:
    enum class Colour { Plain, Bold, Dim, Red, Green, Yellow, Cyan };

    // Starts the clock.
    Screen();

    // Writes an empty line and a heading.
    void Title(const std::string& text);
    // Writes a line: elapsed time, who reports, text.
    void Say(const std::string& who, const std::string& text, Colour colour = Colour::Plain);

    // True if standard output is a terminal.
    bool IsTerminal() const {
        return isTerminal_;
    }
    // The width of the terminal, at least 1.
    unsigned short Columns() const;
    // Replaces the lines below all others. They may contain escape sequences for colours, and must
    // be shorter than the terminal is wide. Precondition: IsTerminal().
    void ShowBelow(const std::vector<std::string>& lines);

private:
    std::string Painted(const std::string& text, Colour colour) const;
    void Print(const std::string& line);
    void EraseBelow() const;
    void DrawBelow() const;

    bool isTerminal_;
    std::vector<std::string> below_;
    std::chrono::steady_clock::time_point start_;
};

#endif
