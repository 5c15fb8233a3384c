#ifndef TESTS_FUZZ_KEPTLISTS_H
#define TESTS_FUZZ_KEPTLISTS_H

/* The lists that the daemon keeps for ever by design, which a fuzzer's many inputs would make too
   many. */

/* At its end it releases what was kept since its beginning. The store must be gone by then. */
class KeptLists {
public:
    KeptLists() = default;
    ~KeptLists();
    KeptLists(const KeptLists&) = delete;
    KeptLists& operator=(const KeptLists&) = delete;
};

#endif
