#ifndef CHANGERCTL_PROGRESSDISPLAY_H
#define CHANGERCTL_PROGRESSDISPLAY_H

/* The progress of work for which a command waits. */

#include "changerctl/Changer.h"
#include "changerctl/Terminal.h"

#include <cstddef>
#include <optional>
#include <string>

namespace changerctl {

/* A bar of 30 characters, and "4 of 10 discs". The bar is full at most; nothing stands for an
   absent number. */
TextLine MakeBar(std::optional<std::size_t> step, std::optional<std::size_t> steps,
                 const char* unit);

/* The changer's GUID, its bar and the message of the status. */
TextLine MakeStatusLine(ChangerGuid changer, const ClientStatus& status);

class ProgressDisplay {
public:
    // On a terminal, hides the cursor until the end of the object; see RedrawnLines.
    explicit ProgressDisplay(ColourChoice colour);

    // Shows the line: on a terminal in place of the previous one, else below it and only if it
    // differs. Throws Failure if the output cannot be written.
    void Show(const TextLine& line);

private:
    bool withColours_;
    std::optional<RedrawnLines> redrawn_; // on a terminal
    std::string shown_;                   // the last line, without styles
};

} // namespace changerctl

#endif
