#ifndef TESTBED_TERMINAL_H
#define TESTBED_TERMINAL_H

#include "testbed/Descriptor.h"

namespace testbed {

/* A pseudo-terminal for the output of a process. Functions throw Failure on errors. */
class Terminal {
public:
    // Creates a terminal of that size.
    Terminal(unsigned short columns, unsigned short rows);

    // Changes the size.
    void Resize(unsigned short columns, unsigned short rows);

    // The end that a process writes to, and a duplicate of the end from which its output is read.
    // Reading fails with EIO when all descriptors of the other end are closed.
    Descriptor OpenWriter() const;
    Descriptor OpenReader() const;

private:
    Descriptor controller_;
};

} // namespace testbed

#endif
