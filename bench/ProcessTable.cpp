#include "ProcessTable.h"

#include "ChangerServerConnectionLib/ChangerServerMessages.h"
#include "testbed/Failure.h"

#include <cstdlib>

namespace bench {

std::size_t ReadProcessTable() {
    struct kinfo_proc* processes = nullptr;
    std::size_t count = 0;
    if (GetBSDProcessList(&processes, &count) != 0)
        throw testbed::Failure("cannot read the process table");
    std::free(processes);
    return count;
}

} // namespace bench
