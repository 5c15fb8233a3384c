#include "Ledger.h"

#include "Changers.h"
#include "Tally.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"
#include "trayprobed/MediaIdThread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <pthread.h>
#include <set>
#include <string>
#include <syslog.h>
#include <utility>

namespace {

using Element = std::pair<UInt64, UInt16>;

std::atomic<bool> g_quiet = false;

std::mutex g_mutex; // guards what follows
std::multiset<Element> g_identified;
std::map<Element, ChangerServerProcess> g_outOfReach; // by the server that asked for it
ChangerServerProcess g_server = {};                   // of the last notification
std::map<UInt64, int> g_builds;
int g_threads = 0;

thread_local bool t_withdrawalFailed = false;

// No storm is an excuse for these.
constexpr const char* kNeverLogged[] = {"alloc",      "header",        "inconsitent data length",
                                        "mutable",    "property list", "pthread_",
                                        "unexpected", "timer",         "<UNKNOWN>"};

struct Body {
    void* (*function)(void*);
    void* argument;
};

void* RunWorker(Body body) {
    const auto* context = static_cast<const MediaIdThreadContext*>(body.argument);
    const Element element = {context->changerGUID, context->storageElem};
    const ChangerServerProcess server = context->server;
    void* result = body.function(body.argument);
    tally::Count(Kind::kWorkerEnded);
    const std::lock_guard lock(g_mutex);
    if (t_withdrawalFailed)
        g_outOfReach[element] = server;
    g_identified.extract(element);
    return result;
}

void* RunBuild(Body body) {
    void* result = body.function(body.argument);
    tally::Count(Kind::kBuildEnded);
    return result;
}

void* Run(void* owned) {
    const Body body = *static_cast<Body*>(owned);
    delete static_cast<Body*>(owned);
    void* result = body.function == RunMediaIdThread ? RunWorker(body) : RunBuild(body);
    const std::lock_guard lock(g_mutex);
    --g_threads;
    return result;
}

// The changer is what both kinds of context begin with.
void NoteStart(const Body& body) {
    const UInt64 changerGUID = *static_cast<const UInt64*>(body.argument);
    const std::lock_guard lock(g_mutex);
    ++g_threads;
    if (body.function == RunMediaIdThread) {
        const auto* context = static_cast<const MediaIdThreadContext*>(body.argument);
        g_identified.insert({changerGUID, context->storageElem});
        tally::Count(Kind::kWorkerStarted);
    } else {
        tally::Count(Kind::kBuildStarted);
        if (++g_builds[changerGUID] > 1 && StaysKnown(changerGUID))
            tally::Complain("two builds of one changer at once");
    }
}

__attribute__((format(printf, 1, 0))) void NoteLogged(const char* format, va_list list) {
    std::array<char, 2048> line;
    std::vsnprintf(line.data(), line.size(), format, list);
    tally::Count(Kind::kLineLogged);
    const auto isIn = [&](const char* text) { return std::strstr(line.data(), text) != nullptr; };
    if (isIn("RunMediaIdThread: fail ChangerServerRequestChangerIdentification"))
        t_withdrawalFailed = true;
    if (g_quiet || std::ranges::any_of(kNeverLogged, isIn))
        tally::Complain(std::string("logged: ") + line.data());
}

} // namespace

extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);
void __wrap_vsyslog(int priority, const char* format, va_list list)
    __attribute__((format(printf, 2, 0)));
void __wrap___vsyslog_chk(int priority, int flag, const char* format, va_list list)
    __attribute__((format(printf, 3, 0)));

// HandleMediaIdServer, SetChangerFSCacheBuildInProgress and VErrThrowWithErrCode
void __real__Z19HandleMediaIdServerPK20ChangerServerProcess(const ChangerServerProcess* server);
void __wrap__Z19HandleMediaIdServerPK20ChangerServerProcess(const ChangerServerProcess* server);
VErrLink* __real__Z32SetChangerFSCacheBuildInProgressyi(UInt64 changerGUID, SInt32 inProgress);
VErrLink* __wrap__Z32SetChangerFSCacheBuildInProgressyi(UInt64 changerGUID, SInt32 inProgress);
VErrLink* __wrap__Z20VErrThrowWithErrCodePP8VErrLinkxPKcz(VErrLink** err, VErrCode code,
                                                          const char* format, ...)
    __attribute__((format(printf, 3, 4)));

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    auto* owned = new Body{body, argument};
    NoteStart(*owned);
    const int status = __real_pthread_create(thread, attributes, Run, owned);
    if (status != 0)
        tally::Complain("no thread could be made");
    return status;
}

void __wrap_vsyslog(int, const char* format, va_list list) {
    NoteLogged(format, list);
}

void __wrap___vsyslog_chk(int, int, const char* format, va_list list) {
    NoteLogged(format, list);
}

void __wrap__Z19HandleMediaIdServerPK20ChangerServerProcess(const ChangerServerProcess* server) {
    {
        const std::lock_guard lock(g_mutex);
        g_server = *server;
    }
    __real__Z19HandleMediaIdServerPK20ChangerServerProcess(server);
}

VErrLink* __wrap__Z32SetChangerFSCacheBuildInProgressyi(UInt64 changerGUID, SInt32 inProgress) {
    if (!inProgress) {
        const std::lock_guard lock(g_mutex);
        --g_builds[changerGUID];
    }
    return __real__Z32SetChangerFSCacheBuildInProgressyi(changerGUID, inProgress);
}

VErrLink* __wrap__Z20VErrThrowWithErrCodePP8VErrLinkxPKcz(VErrLink** err, VErrCode code,
                                                          const char* format, ...) {
    if (code == kVErrCodeUserAborted)
        tally::Count(Kind::kWalkAborted);
    va_list arguments;
    va_start(arguments, format);
    VErrLink* link = VErrThrowCore(err, kVErrLevelDefault, code, format, arguments);
    va_end(arguments);
    return link;
}
}

namespace ledger {

void BeginRound(bool quiet) {
    g_quiet = quiet;
    const std::lock_guard lock(g_mutex);
    g_outOfReach.clear();
}

bool IsBeingIdentified(UInt64 changerGUID, UInt16 storageElem) {
    const std::lock_guard lock(g_mutex);
    return g_identified.contains({changerGUID, storageElem});
}

bool IsOutOfReach(UInt64 changerGUID, UInt16 storageElem) {
    const std::lock_guard lock(g_mutex);
    return g_outOfReach.contains({changerGUID, storageElem});
}

bool WasLeftByFormerServer(UInt64 changerGUID, UInt16 storageElem) {
    const std::lock_guard lock(g_mutex);
    const auto left = g_outOfReach.find({changerGUID, storageElem});
    return left != g_outOfReach.end() && !IsSameChangerServerProcess(&left->second, &g_server);
}

int CountBuilds(UInt64 changerGUID) {
    const std::lock_guard lock(g_mutex);
    return g_builds[changerGUID];
}

bool IsAnybodyAtWork() {
    const std::lock_guard lock(g_mutex);
    return g_threads != 0;
}

} // namespace ledger
