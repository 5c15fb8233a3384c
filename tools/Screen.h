#ifndef TOOLS_SCREEN_H
#define TOOLS_SCREEN_H

#include <chrono>
#include <string>

/* Lines with the time since the beginning, and a progress bar that stays below them; colours and
   redrawing only on a terminal. Each function writes at once, and throws testbed::Failure when
   standard output cannot be written. */
class Screen {
public:
    enum class Colour { Plain, Bold, Dim, Red, Green, Yellow, Cyan };

    Screen();

    void Title(const std::string& text);
    void Say(const std::string& who, const std::string& text, Colour colour = Colour::Plain);
    void ShowBar(int step, int steps);
    void RemoveBar();

private:
    std::string Painted(const std::string& text, Colour colour) const;
    void Print(const std::string& line);

    bool isTerminal_;
    std::string bar_; // as it is on the terminal now
    std::chrono::steady_clock::time_point start_;
};

#endif
