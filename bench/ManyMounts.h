#ifndef BENCH_MANYMOUNTS_H
#define BENCH_MANYMOUNTS_H

#include <cstddef>
#include <string>

namespace bench {

/* Many volumes: directories of one tmpfs, each bind-mounted on itself. The destructor unmounts
   them. For use in a sandbox. */
class ManyMounts {
public:
    // Mounts the tmpfs, without volumes. Throws Failure on errors.
    ManyMounts();
    ~ManyMounts();
    ManyMounts(const ManyMounts&) = delete;
    ManyMounts& operator=(const ManyMounts&) = delete;

    // Adds volumes until there are `count`. Throws Failure on errors.
    void GrowTo(std::size_t count);

private:
    const std::string root_ = "/tmp/volumes";
    std::size_t count_ = 0;
};

} // namespace bench

#endif
