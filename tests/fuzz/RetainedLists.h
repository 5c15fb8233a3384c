#ifndef TESTS_FUZZ_RETAINEDLISTS_H
#define TESTS_FUZZ_RETAINEDLISTS_H

#include "support/NotCopyable.h"

/* Releases, in its destructor, the lists that the daemon never frees by design: a fuzzer would run
   out of memory. Terminate the store first. */
class RetainedLists : NotCopyable {
public:
    ~RetainedLists();
};

#endif
