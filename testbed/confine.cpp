// confine PROGRAM ARGV0 [ARGUMENT...]: becomes PROGRAM with what the systemd unit permits: as a
// user of its own, with the unit's capabilities and no new privileges, in a mount namespace that
// receives the caller's later mounts, without the system calls that the unit denies.
//
// Without being root outside, the caller's namespace has one user only; PROGRAM then remains that
// user, with the unit's capabilities.

#include <sched.h>
#include <seccomp.h>
#include <sys/capability.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

#include "Confinement.h"

// The first of the user ids that systemd allocates dynamically: no user or group of the machine.
constexpr uid_t kUser = 61184;

void Require(bool condition, const char* problem) {
    if (condition)
        return;
    std::fprintf(stderr, "confine: %s: %s\n", problem, std::strerror(errno));
    std::exit(EXIT_FAILURE);
}

bool IsPermitted(cap_value_t capability) {
    return std::find(kCapabilities.begin(), kCapabilities.end(), capability) != kCapabilities.end();
}

// The propagation of "slave": mounts of the original namespace arrive, none leaves.
void EnterMountNamespace() {
    Require(unshare(CLONE_NEWNS) == 0, "cannot enter a mount namespace");
    Require(mount("none", "/", nullptr, MS_REC | MS_SLAVE, nullptr) == 0,
            "cannot make the mounts slaves");
}

void LimitCapabilities() {
    for (cap_value_t capability = 0; capability < cap_max_bits(); ++capability)
        if (!IsPermitted(capability))
            Require(cap_drop_bound(capability) == 0, "cannot drop a capability");
}

// EINVAL: the user namespace does not map the user.
void BecomeUser() {
    const bool isUser = cap_setgroups(kUser, 0, nullptr) == 0 && cap_setuid(kUser) == 0;
    Require(isUser || errno == EINVAL || errno == EPERM, "cannot change the user");
}

// The ambient set keeps the capabilities through execv(), for which they must be inheritable.
void KeepPermittedCapabilities() {
    const cap_t sets = cap_init();
    for (const cap_value_t capability : kCapabilities)
        for (const cap_flag_t flag : {CAP_PERMITTED, CAP_EFFECTIVE, CAP_INHERITABLE})
            Require(cap_set_flag(sets, flag, 1, &capability, CAP_SET) == 0,
                    "cannot list a capability");
    Require(cap_set_proc(sets) == 0, "cannot set the capabilities");
    cap_free(sets);
    for (const cap_value_t capability : kCapabilities)
        Require(cap_set_ambient(capability, CAP_SET) == 0, "cannot keep a capability");
}

// Some calls of the list do not exist on each processor, or are newer than the library.
void DenyCalls() {
    const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
    Require(filter != nullptr, "cannot create the filter of system calls");
    for (const char* name : kDeniedCalls) {
        const int call = seccomp_syscall_resolve_name(name);
        if (call == __NR_SCMP_ERROR)
            continue;
        const int result = seccomp_rule_add(filter, SCMP_ACT_ERRNO(EPERM), call, 0);
        Require(result == 0 || result == -EDOM, "cannot deny a system call");
    }
    Require(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "cannot refuse new privileges");
    Require(seccomp_load(filter) == 0, "cannot install the filter of system calls");
    seccomp_release(filter);
}

} // namespace

int main(int argc, char** argv) {
    Require(argc > 2, "usage: confine PROGRAM ARGV0 [ARGUMENT...]");
    EnterMountNamespace();
    LimitCapabilities();
    BecomeUser();
    KeepPermittedCapabilities();
    DenyCalls(); // capset(2) is among them
    execv(argv[1], argv + 2);
    Require(false, argv[1]);
}
