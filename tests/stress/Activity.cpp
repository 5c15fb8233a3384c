#include "Activity.h"

#include "Changers.h"
#include "EventCounts.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"
#include "trayprobed/MediaIdThread.h"

#include <pthread.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace {

using Element = std::pair<UInt64, UInt16>;

std::atomic<bool> g_logMustBeEmpty = false;

std::mutex g_mutex; // guards the variables below
std::multiset<Element> g_workers;
std::map<Element, ChangerServerProcess> g_stuckElements; // and the server of each request
ChangerServerProcess g_server = {};                      // of the last notification
std::map<UInt64, int> g_builds;
int g_threads = 0;

thread_local bool t_withdrawalFailed = false;

// These lines are wrong in every phase.
constexpr const char* kForbiddenLines[] = {"alloc",      "header",        "inconsitent data length",
                                           "mutable",    "property list", "pthread_",
                                           "unexpected", "timer",         "<UNKNOWN>"};

struct ThreadBody {
    void* (*function)(void*);
    void* argument;
};

void* RunWorker(ThreadBody body) {
    const auto* context = static_cast<const MediaIdThreadContext*>(body.argument);
    const Element element = {context->changerGUID, context->storageElem};
    const ChangerServerProcess server = context->server;
    void* result = body.function(body.argument);
    event_counts::Count("identifications ended");
    const std::lock_guard lock(g_mutex);
    if (t_withdrawalFailed)
        g_stuckElements[element] = server;
    g_workers.extract(element);
    return result;
}

void* RunBuild(ThreadBody body) {
    void* result = body.function(body.argument);
    event_counts::Count("builds ended");
    return result;
}

void* Run(void* ownedBody) {
    const ThreadBody body = *static_cast<ThreadBody*>(ownedBody);
    delete static_cast<ThreadBody*>(ownedBody);
    void* result = body.function == RunMediaIdThread ? RunWorker(body) : RunBuild(body);
    const std::lock_guard lock(g_mutex);
    --g_threads;
    return result;
}

// The contexts of workers and builds both begin with the changer's GUID.
void RecordStart(const ThreadBody& body) {
    const UInt64 changerGUID = *static_cast<const UInt64*>(body.argument);
    const std::lock_guard lock(g_mutex);
    ++g_threads;
    if (body.function == RunMediaIdThread) {
        const auto* context = static_cast<const MediaIdThreadContext*>(body.argument);
        g_workers.insert({changerGUID, context->storageElem});
        event_counts::Count("identifications started");
    } else {
        event_counts::Count("builds started");
        if (++g_builds[changerGUID] > 1 && IsPermanent(changerGUID))
            event_counts::ReportProblem("two builds of one changer at once");
    }
}

__attribute__((format(printf, 1, 0))) void RecordLogLine(const char* format, va_list list) {
    std::array<char, 2048> line;
    std::vsnprintf(line.data(), line.size(), format, list);
    event_counts::Count("lines logged");
    const auto isIn = [&](const char* text) { return std::strstr(line.data(), text) != nullptr; };
    if (isIn("RunMediaIdThread: fail ChangerServerRequestChangerIdentification"))
        t_withdrawalFailed = true;
    if (g_logMustBeEmpty || std::ranges::any_of(kForbiddenLines, isIn))
        event_counts::ReportProblem(std::string("logged: ") + line.data());
}

} // namespace

extern "C" {
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument);

// The mangled names of HandleMediaIdServer, SetChangerFSCacheBuildInProgress and
// VErrThrowWithErrCode.
void __real__Z19HandleMediaIdServerPK20ChangerServerProcess(const ChangerServerProcess* server);
VErrLink* __real__Z32SetChangerFSCacheBuildInProgressyi(UInt64 changerGUID, SInt32 inProgress);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                          void* argument) {
    auto* ownedBody = new ThreadBody{body, argument};
    RecordStart(*ownedBody);
    const int status = __real_pthread_create(thread, attributes, Run, ownedBody);
    if (status != 0)
        event_counts::ReportProblem("pthread_create failed");
    return status;
}

__attribute__((format(printf, 2, 0))) void __wrap_vsyslog(int, const char* format, va_list list) {
    RecordLogLine(format, list);
}

__attribute__((format(printf, 3, 0))) void __wrap___vsyslog_chk(int, int, const char* format,
                                                                va_list list) {
    RecordLogLine(format, list);
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

__attribute__((format(printf, 3, 4))) VErrLink*
__wrap__Z20VErrThrowWithErrCodePP8VErrLinkxPKcz(VErrLink** err, VErrCode code, const char* format,
                                                ...) {
    if (code == kVErrCodeUserAborted)
        event_counts::Count("walks aborted");
    va_list arguments;
    va_start(arguments, format);
    VErrLink* link = VErrThrowCore(err, kVErrLevelDefault, code, format, arguments);
    va_end(arguments);
    return link;
}
}

namespace activity {

void BeginRound(bool logMustBeEmpty) {
    g_logMustBeEmpty = logMustBeEmpty;
    const std::lock_guard lock(g_mutex);
    g_stuckElements.clear();
}

bool IsBeingIdentified(UInt64 changerGUID, UInt16 storageElem) {
    const std::lock_guard lock(g_mutex);
    return g_workers.contains({changerGUID, storageElem});
}

bool IsStuck(UInt64 changerGUID, UInt16 storageElem) {
    const std::lock_guard lock(g_mutex);
    return g_stuckElements.contains({changerGUID, storageElem});
}

bool IsStuckOfFormerServer(UInt64 changerGUID, UInt16 storageElem) {
    const std::lock_guard lock(g_mutex);
    const auto element = g_stuckElements.find({changerGUID, storageElem});
    return element != g_stuckElements.end() &&
           !IsSameChangerServerProcess(&element->second, &g_server);
}

int CountBuilds(UInt64 changerGUID) {
    const std::lock_guard lock(g_mutex);
    return g_builds[changerGUID];
}

bool HasThreads() {
    const std::lock_guard lock(g_mutex);
    return g_threads != 0;
}

} // namespace activity
