#ifndef BENCH_LIBPLIST_H
#define BENCH_LIBPLIST_H

#include <plist/plist.h>

#include <string>

namespace bench {

/* Has libplist read a notification. The list is the caller's, for plist_free. Throws when libplist
   cannot read it. */
plist_t ReadByLibplist(const std::string& text);

} // namespace bench

#endif
