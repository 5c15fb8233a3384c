#ifndef TESTS_UNIT_TRAYPROBED_KNOWNCHANGERLISTS_H
#define TESTS_UNIT_TRAYPROBED_KNOWNCHANGERLISTS_H

/*
 * The lists of known changers, which the handling of each "changer list" keeps for good. Wrap
 * GetChangerList by its name for the linker, _Z14GetChangerListPPK9__CFArray.
 */

#include "support/NotCopyable.h"

/* At its end, checks that each list that was given out since its beginning was kept, and releases
   it. A fixture has it as its first base, so that it ends last: an equal list that the store or the
   test holds is the same object. */
class KnownChangerLists : NotCopyable {
public:
    KnownChangerLists();
    ~KnownChangerLists();
};

#endif
