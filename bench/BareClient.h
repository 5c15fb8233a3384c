#ifndef BENCH_BARECLIENT_H
#define BENCH_BARECLIENT_H

#include <string>

namespace bench {

/* What a client does at the least: connects, writes the frame, reads as many bytes, closes. */
void ExchangeBarely(const std::string& path, const std::string& frame);

} // namespace bench

#endif
