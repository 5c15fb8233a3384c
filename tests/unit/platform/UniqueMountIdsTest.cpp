#include "disks/UniqueMountIds.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <optional>
#include <vector>

namespace disks {
namespace {

constexpr long kStatMount = 457;
constexpr long kListMount = 458;

// The mounts of the kernel. A mount's reused id is its unique id modulo kIdsInUse.
struct FakeKernel {
    static constexpr std::uint64_t kIdsInUse = 1000;

    std::vector<std::uint64_t> mounts; // unique ids in ascending order
    int listError = 0;
    std::uint64_t unknownMount = 0; // its status fails with statusError
    int statusError = 0;
    int lists = 0;
};
std::optional<FakeKernel> g_kernel;

// The first version of struct mnt_id_req.
struct Request {
    std::uint32_t size;
    std::uint32_t spare;
    std::uint64_t mount;
    std::uint64_t parameter;
};

long Fail(int error) {
    errno = error;
    return -1;
}

long List(const Request& request, std::uint64_t* ids, std::size_t capacity) {
    ++g_kernel->lists;
    if (g_kernel->listError != 0)
        return Fail(g_kernel->listError);
    if (request.size != sizeof request || request.spare != 0 || request.mount != UINT64_MAX)
        return Fail(EINVAL);
    const auto next = std::ranges::upper_bound(g_kernel->mounts, request.parameter);
    const auto left = static_cast<std::size_t>(g_kernel->mounts.end() - next);
    const std::size_t count = std::min(capacity, left);
    std::copy_n(next, count, ids);
    return static_cast<long>(count);
}

long GetStatus(const Request& request, char* status, std::size_t size) {
    constexpr std::uint64_t kBasics = 2;
    constexpr std::size_t kReusedIdAt = 56;
    if (request.size != sizeof request || request.spare != 0 || request.parameter != kBasics)
        return Fail(EINVAL);
    if (request.mount == g_kernel->unknownMount)
        return Fail(g_kernel->statusError);
    const auto reused = static_cast<std::uint32_t>(request.mount % FakeKernel::kIdsInUse);
    if (size < kReusedIdAt + sizeof reused)
        return Fail(EOVERFLOW);
    std::memcpy(status + kReusedIdAt, &reused, sizeof reused);
    return 0;
}

class UniqueMountIdsTest : public testing::Test {
protected:
    UniqueMountIdsTest() {
        g_kernel.emplace();
    }
    ~UniqueMountIdsTest() override {
        g_kernel.reset();
    }
};

TEST_F(UniqueMountIdsTest, AreFoundByTheReusedIds) {
    g_kernel->mounts = {1, 7002, 9005};
    EXPECT_EQ(ReadUniqueMountIds(), (UniqueMountIds{{1, 1}, {2, 7002}, {5, 9005}}));
}

TEST_F(UniqueMountIdsTest, AreFoundWhenErrnoIsLeftFromAnEarlierCall) {
    g_kernel->mounts = {7001};
    errno = ENOMEM; // successful calls do not change it
    EXPECT_EQ(ReadUniqueMountIds(), (UniqueMountIds{{1, 7001}}));
}

TEST_F(UniqueMountIdsTest, OfMoreMountsThanOneCallListsAreAllFound) {
    UniqueMountIds expected;
    for (std::uint64_t id = 0; id < 900; ++id) {
        g_kernel->mounts.push_back(5000 + id);
        expected[static_cast<int>(id)] = 5000 + id;
    }
    EXPECT_EQ(ReadUniqueMountIds(), expected);
    EXPECT_GT(g_kernel->lists, 2);
}

TEST_F(UniqueMountIdsTest, OfAMountThatEndedMeanwhileAreOmitted) {
    g_kernel->mounts = {7001, 7002, 7003};
    g_kernel->unknownMount = 7002;
    g_kernel->statusError = ENOENT;
    EXPECT_EQ(ReadUniqueMountIds(), (UniqueMountIds{{1, 7001}, {3, 7003}}));
}

TEST_F(UniqueMountIdsTest, AreUnknownWhenMemoryIsShortForAMount) {
    g_kernel->mounts = {7001, 7002, 7003};
    g_kernel->unknownMount = 7002;
    g_kernel->statusError = ENOMEM;
    EXPECT_EQ(ReadUniqueMountIds(), std::nullopt);
}

TEST_F(UniqueMountIdsTest, AreUnknownWhenMemoryIsShortForTheList) {
    g_kernel->mounts = {7001};
    g_kernel->listError = ENOMEM;
    EXPECT_EQ(ReadUniqueMountIds(), std::nullopt);
}

TEST_F(UniqueMountIdsTest, AreNoneOnAKernelWithoutTheCalls) {
    g_kernel->mounts = {7001};
    for (const int error : {ENOSYS, EPERM}) {
        g_kernel->listError = error;
        EXPECT_EQ(ReadUniqueMountIds(), UniqueMountIds());
    }
}

} // namespace
} // namespace disks

extern "C" {
long __real_syscall(long number, ...);

// All arguments have the kernel's width. The kernel ignores those that the caller did not pass.
long __wrap_syscall(long number, ...) {
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& argument : arguments)
        argument = va_arg(list, long);
    va_end(list);
    const auto address = [&](int index) { return reinterpret_cast<void*>(arguments[index]); };
    if (disks::g_kernel && (number == disks::kListMount || number == disks::kStatMount)) {
        const auto& request = *static_cast<const disks::Request*>(address(0));
        const auto size = static_cast<std::size_t>(arguments[2]);
        if (number == disks::kListMount)
            return disks::List(request, static_cast<std::uint64_t*>(address(1)), size);
        return disks::GetStatus(request, static_cast<char*>(address(1)), size);
    }
    return __real_syscall(number, arguments[0], arguments[1], arguments[2], arguments[3],
                          arguments[4], arguments[5]);
}
}
