#ifndef BENCH_BARECLIENT_H
#define BENCH_BARECLIENT_H

#include <string>

namespace bench {

/* The least work of a client: connects to the socket at `path`, writes the frame, reads as many
   bytes, closes. Throws Failure on errors. */
void ExchangeFrame(const std::string& path, const std::string& frame);

} // namespace bench

#endif
