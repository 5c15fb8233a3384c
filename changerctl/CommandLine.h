#ifndef CHANGERCTL_COMMANDLINE_H
#define CHANGERCTL_COMMANDLINE_H

/* The command line: its options and its help. */

#include "changerctl/Options.h"

#include <optional>

namespace changerctl {

/* Parses the arguments of the program. For --help and --version, prints the text to standard output
   and returns nothing. Throws Failure with ExitStatus::Usage. */
std::optional<Options> ParseCommandLine(int argc, char** argv);

} // namespace changerctl

#endif
