#ifndef CHANGERCTL_TERMINAL_H
#define CHANGERCTL_TERMINAL_H

/* Standard output: plain lines, and on a terminal colours and lines that are redrawn. */

#include "changerctl/Interruption.h"
#include "changerctl/Options.h"

#include <cstddef>
#include <string>
#include <vector>

namespace changerctl {

/* Printable text in one style. */
enum class Style { Plain, Bold, Dim, Green, Yellow, Red };
struct Span {
    std::string text;
    Style style = Style::Plain;
};
using TextLine = std::vector<Span>;

/* True if standard output is a terminal that understands escape sequences. */
bool IsTerminal();

/* True if colours are to be used: by choice, or on a terminal if NO_COLOR is not in the
   environment. */
bool UsesColours(ColourChoice choice);

/* Write the text, or the lines with a newline each, without a buffer. Throw Failure if that
   fails. */
void Write(const std::string& text);
void WriteLines(const std::vector<TextLine>& lines, bool withColours);

/*
 * Lines at the end of the output that are replaced by newer ones. For a terminal only.
 *
 * The cursor is hidden meanwhile. The destructor shows the cursor again and leaves the last lines.
 * Signals are deferred for it: call Interruption::Check() regularly.
 */
class RedrawnLines {
public:
    // Precondition: IsTerminal().
    explicit RedrawnLines(bool withColours);
    ~RedrawnLines();
    RedrawnLines(const RedrawnLines&) = delete;
    RedrawnLines& operator=(const RedrawnLines&) = delete;

    // Replaces the lines. Clips them to the present width of the terminal, and their number to its
    // height: a wrapped or scrolled line could not be erased.
    void Draw(const std::vector<TextLine>& lines);
    // True if the size of the terminal has changed since the last Draw().
    bool IsResized() const;

private:
    Interruption interruption_;
    bool withColours_;
    std::size_t drawn_ = 0;   // lines
    std::size_t columns_ = 0; // of the terminal, at the last Draw()
    std::size_t rows_ = 0;
};

} // namespace changerctl

#endif
