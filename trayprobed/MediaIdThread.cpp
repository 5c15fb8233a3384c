#include "trayprobed/MediaIdThread.h"

#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerEjectDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerMountDisc.h"
#include "ChangerServerConnectionLib/ChangerServerCommands/ChangerServerRequestIdentification.h"
#include "trayprobed/ChangerFSCacheThread.h"
#include "trayprobed/MediaIdState.h"

#include <pthread.h>
#include <stdlib.h>

static const char kSourcePath[] = "trayprobed/MediaIdThread";

constexpr double kCommandTimeout = 300.0; // seconds, for the mount and for the eject
static const char kClientName[] = "Media Identification";
constexpr UInt32 kPrivateFamily = 1;

// ---- the contexts ----

// The contexts of all threads that run, and of those that ended and left their element on the list;
// the newest first. Only the newest context of an element can have hasEnded set: the element on the
// list belongs to the newest thread.
static MediaIdThreadContext* g_contexts = nullptr;
static ChangerServerProcess g_server = {}; // the present sender of notifications
static pthread_mutex_t g_contextsMutex = PTHREAD_MUTEX_INITIALIZER; // guards both

static MediaIdThreadContext* FindContext(MediaIdThreadContext* from,
                                         const MediaIdThreadContext* element) {
    MediaIdThreadContext* context = from;
    while (context != nullptr && (context->changerGUID != element->changerGUID ||
                                  context->storageElem != element->storageElem))
        context = context->next;
    return context;
}

static void RemoveContext(MediaIdThreadContext* context) {
    MediaIdThreadContext** link = &g_contexts;
    while (*link != nullptr && *link != context)
        link = &(*link)->next;
    if (*link != nullptr)
        *link = context->next;
    free(context);
}

// A context that an earlier thread of the element left is obsolete: an element on the list is not
// started, so that thread's element is not on the list any more.
static void AddContext(MediaIdThreadContext* context) {
    pthread_mutex_lock(&g_contextsMutex);
    MediaIdThreadContext* former = FindContext(g_contexts, context);
    if (former != nullptr && former->hasEnded)
        RemoveContext(former);
    context->server = g_server;
    context->next = g_contexts;
    g_contexts = context;
    pthread_mutex_unlock(&g_contextsMutex);
}

static void EndContext(MediaIdThreadContext* context, bool isLeftOnList) {
    pthread_mutex_lock(&g_contextsMutex);
    context->hasEnded = isLeftOnList && FindContext(g_contexts, context) == context;
    if (!context->hasEnded)
        RemoveContext(context);
    pthread_mutex_unlock(&g_contextsMutex);
}

// Returns whether the element is off the list. False without memory.
static bool RemoveElement(const MediaIdThreadContext* context) {
    VErrLink* err =
        RemoveStorageElemFromMediaIdInProgressList(context->changerGUID, context->storageElem);
    const bool isOff = err == nullptr || VErrGetErrCode(err) == kVErrCodeNotFound;
    VErrCatch(&err);
    return isOff;
}

static bool IsChangerKnown(UInt64 changerGUID) {
    SInt32 isKnown = 1;
    VErrLink* err = IsChangerInList(changerGUID, &isKnown);
    VErrCatch(&err);
    return isKnown != 0;
}

void HandleMediaIdServer(const ChangerServerProcess* server) {
    pthread_mutex_lock(&g_contextsMutex);
    g_server = *server;
    for (MediaIdThreadContext *context = g_contexts, *next = nullptr; context != nullptr;
         context = next) {
        next = context->next;
        if (!context->hasEnded)
            continue;
        const bool isObsolete =
            IsSameChangerServerProcess(&context->server, server)
                ? !IsChangerKnown(context->changerGUID)
                : FindContext(next, context) == nullptr && RemoveElement(context);
        if (isObsolete)
            RemoveContext(context);
    }
    pthread_mutex_unlock(&g_contextsMutex);
}

// ---- the thread ----

VErrLink* StartMediaId(UInt64 changerGUID, UInt16 storageElem, SInt32 buildDirCache) {
    VErrLink* err = nullptr;
    auto* context = static_cast<MediaIdThreadContext*>(calloc(1, sizeof(MediaIdThreadContext)));
    if (context == nullptr)
        return VERR_RAISE(VErrThrow(&err, "fail alloc thread context"));
    context->changerGUID = changerGUID;
    context->storageElem = storageElem;
    context->buildDirCache = buildDirCache;
    AddContext(context);

    pthread_t thread;
    pthread_attr_t attributes;
    VERR_STATUS(err, pthread_attr_init(&attributes), "fail pthread_attr_init");
    const bool attributesInited = err == nullptr;
    VERR_STATUS(err, pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED),
                "fail pthread_attr_setdetachstate");
    VERR_STATUS(err, pthread_create(&thread, &attributes, RunMediaIdThread, context),
                "fail pthread_create");
    const bool created = err == nullptr;
    VERR_STEP(err, AddStorageElemToMediaIdInProgressList(changerGUID, storageElem),
              "fail AddStorageElemToMediaIdInProgressList");

    const int destroyed = attributesInited ? pthread_attr_destroy(&attributes) : 0;
    if (destroyed != 0)
        VERR_RAISE(VErrThrowWithErrCode(&err, destroyed, "fail pthread_attr_destroy"));
    if (!created)
        EndContext(context, false);
    return err;
}

// A failed mount, walk or eject is logged at once: the following steps must run all the same. After
// a failed withdrawal the element stays on the list, so that it is not started again.
void* RunMediaIdThread(void* threadContext) {
    auto* context = static_cast<MediaIdThreadContext*>(threadContext);
    const UInt64 changerGUID = context->changerGUID;
    const UInt16 storageElem = context->storageElem;
    VErrLink* err = nullptr;
    VERR_STEP(err, ChangerServerRequestMediaIdentification(changerGUID, storageElem, false),
              "fail ChangerServerRequestChangerIdentification");
    if (err == nullptr) {
        VERR_STEP(err,
                  ChangerServerMountDisc(kCommandTimeout, changerGUID, storageElem, "", kClientName,
                                         kMountDiscPrivate, kPrivateFamily, nullptr, 0, nullptr, 0),
                  "Fail ChangerServerMountDisc(%016llX, %ld)", changerGUID,
                  static_cast<long>(storageElem));
        const bool mounted = err == nullptr;
        VErrLogAndCatch(&err);
        if (mounted) {
            VERR_STEP(err, RunFSCache(changerGUID, storageElem, context->buildDirCache),
                      "fail RunFSCache(%016llX, %ld)", changerGUID, static_cast<long>(storageElem));
            VErrLogAndCatch(&err);
            VERR_STEP(err,
                      ChangerServerEjectDisc(kCommandTimeout, changerGUID, storageElem,
                                             kEjectDiscPrivate, kPrivateFamily),
                      "fail ChangerServerEjectDisc for changer %016llX/storage elem %d",
                      changerGUID, storageElem);
            VErrLogAndCatch(&err);
        }

        // Withdraw again: a request that was made meanwhile is fulfilled, too.
        VERR_STEP(err, ChangerServerRequestMediaIdentification(changerGUID, storageElem, false),
                  "fail ChangerServerRequestChangerIdentification");
        SInt32 isKnown = 0;
        VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
        const bool locked = err == nullptr;
        VERR_STEP(err, IsChangerInList(changerGUID, &isKnown),
                  "fail IsChangerInList for GUID %016llX", changerGUID);
        if (isKnown)
            VERR_STEP(err, RemoveStorageElemFromMediaIdInProgressList(changerGUID, storageElem),
                      "fail remove changer GUID %016llX/storage elem %d", changerGUID, storageElem);
        if (locked)
            UnlockMediaIdState();
    }
    EndContext(context, err != nullptr);
    VErrLogAndCatch(&err);
    return nullptr;
}
