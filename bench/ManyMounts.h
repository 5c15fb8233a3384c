#ifndef BENCH_MANYMOUNTS_H
#define BENCH_MANYMOUNTS_H

#include <cstddef>
#include <string>

namespace bench {

/* Directories of one file system, each mounted as a volume of its own, as long as this lives. In a
   private world. */
class ManyMounts {
public:
    ManyMounts();
    ~ManyMounts();
    ManyMounts(const ManyMounts&) = delete;
    ManyMounts& operator=(const ManyMounts&) = delete;

    void GrowTo(std::size_t count);

private:
    const std::string root_ = "/tmp/volumes";
    std::size_t count_ = 0;
};

} // namespace bench

#endif
