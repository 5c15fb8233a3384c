#ifndef BENCH_LIBPLIST_H
#define BENCH_LIBPLIST_H

#include <plist/plist.h>

#include <string>

namespace bench {

/* Parses XML by libplist. The caller frees the result by plist_free(). Throws std::runtime_error if
   libplist reports an error. */
plist_t ParseByLibplist(const std::string& text);

} // namespace bench

#endif
