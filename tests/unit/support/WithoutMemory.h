#ifndef TESTS_UNIT_SUPPORT_WITHOUTMEMORY_H
#define TESTS_UNIT_SUPPORT_WITHOUTMEMORY_H

#include "AllocationFaults.h"
#include "support/Chain.h"

/* Calls the function with its first allocation failing, and takes the chain that it returns. */
template<typename Call>
Chain ChainWithoutMemory(Call call) {
    VErrLink* err = nullptr;
    {
        const AllocationFault fault(1);
        err = call();
    }
    return TakeChain(err);
}

#endif
