#ifndef TOOLS_SCREEN_H
#define TOOLS_SCREEN_H

#include <chrono>
#include <string>

/* Writes lines with the elapsed time to standard output, and a progress bar below them. Colours and
   redrawing are used on a terminal only. Each function flushes its output, and throws
   testbed::Failure if standard output cannot be written. */
class Screen {
public:
    enum class Colour { Plain, Bold, Dim, Red, Green, Yellow, Cyan };

    // Starts the clock.
    Screen();

    // Writes an empty line and a heading.
    void Title(const std::string& text);
    // Writes a line: elapsed time, who reports, text.
    void Say(const std::string& who, const std::string& text, Colour colour = Colour::Plain);
    // Shows or updates the progress bar, `step` of `steps` discs. Without a terminal each call
    // writes a line.
    void ShowBar(int step, int steps);
    // Ends the progress bar; its last state remains in the output.
    void RemoveBar();

private:
    std::string Painted(const std::string& text, Colour colour) const;
    void Print(const std::string& line);

    bool isTerminal_;
    std::string bar_; // as shown on the terminal; empty if there is none
    std::chrono::steady_clock::time_point start_;
};

#endif
