#ifndef TESTS_UNIT_TRAYPROBED_KNOWNCHANGERLISTS_H
#define TESTS_UNIT_TRAYPROBED_KNOWNCHANGERLISTS_H

/*
 * The lists of known changers, which the handling of each "changer list" never releases.
 */

#include "support/NotCopyable.h"

/* The destructor checks that each list returned since construction is still retained, and releases
   it. Must be a fixture's first base, to be destroyed last: an equal list that the store or the
   test owns is the same object. */
class KnownChangerLists : NotCopyable {
public:
    KnownChangerLists();
    ~KnownChangerLists();
};

#endif
