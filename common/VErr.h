#ifndef COMMON_VERR_H
#define COMMON_VERR_H

/*
 * The error chain that every fallible operation returns.
 *
 * Null is success; anything else points to the newest link of a chain that leads back, link by
 * link, to the failure it began with. Who notices a failure raises a link; who receives a chain
 * raises its own link on top and returns it; who has nobody to return to logs the chain and frees
 * it. A chain belongs to the thread whose local slot holds it. Raising never fails: out of memory
 * the chain collapses to the static g_genericVErr, and what the links said is logged at once.
 */

#include <CoreFoundation/CFBase.h>

#include <stdarg.h>
#include <stddef.h>

typedef SInt64 VErrCode;

/*
 * Codes are outside error numbers (errno, a socket error) or, from this base up, the daemon's own.
 * The base is the high word 0x40000000; logs show what is added to it.
 */
constexpr VErrCode kVErrFacilityBase = 0x4000000000000000;

constexpr VErrCode kVErrCodeDefault = kVErrFacilityBase + 1; // no particular code; never shown
constexpr VErrCode kVErrCodeUserAborted = kVErrFacilityBase + 2;
constexpr VErrCode kVErrCodeNotFound = kVErrFacilityBase + 20;
constexpr VErrCode kVErrCodeStringEncoding = kVErrFacilityBase + 100;
constexpr VErrCode kVErrCodeServerNotFound = kVErrFacilityBase + 1001;
constexpr VErrCode kVErrCodeConnectFailed = kVErrFacilityBase + 1002;
constexpr VErrCode kVErrCodeReplyTimeout = kVErrFacilityBase + 1004;
constexpr VErrCode kVErrCodeConnectionLost = kVErrFacilityBase + 1005;
constexpr VErrCode kVErrCodeMountUnderWay = kVErrFacilityBase + 1020; // from the server
constexpr VErrCode kVErrCodeServerBusy = kVErrFacilityBase + 1021;    // from the server
constexpr VErrCode kVErrCodeCommandTimedOut = kVErrFacilityBase + 1024;

constexpr UInt16 kVErrLevelDefault = 50; // links above it are not logged

struct VErrLink {
    char* message; // owned, as are the two names and the rest of the chain
    UInt16 level;
    VErrCode code;
    SInt64 line;
    char* funcName;
    char* fileName;
    VErrLink* next; // the older link, which this one wraps
};

extern VErrLink g_genericVErr; // shared; never freed, never printed
extern char* g_vErrLogPath;    // null: errors go to the system log

/* First and last of the daemon's stages. Init returns 1 (0 would be failure). */
int InitVErrSystem(void);
void TermVErrSystem(void);

/* Sends errors to a file instead; call it before threads start. The earlier path is not freed. */
void SetVErrLogFilePath(const char* path);

/* An empty link, or null. ReleaseVErrLink frees it and everything older. */
VErrLink* GetVErrLink(void);
void ReleaseVErrLink(VErrLink* link);

/*
 * Push a link on the slot and return the chain, which is then never null. A plain raise, with the
 * default level or code, takes over those of the link that it wraps. The texts are printf formats.
 */
VErrLink* VErrThrowCore(VErrLink** err, UInt16 level, VErrCode code, const char* format,
                        va_list arguments) __attribute__((format(printf, 4, 0)));
VErrLink* VErrThrow(VErrLink** err, const char* format, ...) __attribute__((format(printf, 2, 3)));
/* The level is ignored. */
VErrLink* VErrThrowLevel(VErrLink** err, UInt16 level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
VErrLink* VErrThrowWithErrCode(VErrLink** err, VErrCode code, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
VErrLink* VErrThrowLevelWithErrCode(VErrLink** err, UInt16 level, VErrCode code, const char* format,
                                    ...) __attribute__((format(printf, 4, 5)));

/* Records the raising site on the newest link; every raise is followed by this at once. */
void VErrAddFileFuncLine(VErrLink* link, const char* file, const char* func, SInt64 line);

/* Frees the chain in the slot and empties the slot. */
void VErrCatch(VErrLink** err);

/* One line per link, oldest first, unless the newest link's level is above 50. Null is quiet. */
void VErrLog(VErrLink* err);
void VErrLogCore(VErrLink* link);
void VErrLogLink(const VErrLink* link);

UInt16 VErrGetErrLevel(const VErrLink* link);
VErrCode VErrGetErrCode(const VErrLink* link);
/* Copies the newest message, cut to fit and always terminated; a size of 0 copies nothing. */
void VErrGetErrMessage(const VErrLink* link, char* buffer, size_t size);

/* What whoever has nobody to return to does with a chain. */
inline void VErrLogAndCatch(VErrLink** err) {
    VErrLog(*err);
    VErrCatch(err);
}

/* Records the site and hands the chain on. Use it through the macros below. */
inline VErrLink* VErrRaise(VErrLink* link, const char* file, const char* func, SInt64 line) {
    VErrAddFileFuncLine(link, file, func, line);
    return link;
}

/*
 * The macros that raise links. A source that uses them defines kSourcePath, the path that its links
 * name, without suffix:
 *
 *     return VERR_RAISE(VErrThrow(&err, "fail alloc num"));
 *
 * A sequence of steps, in which the first failure skips the rest. err is a variable, and empty as
 * long as no step has failed; a step that is skipped evaluates nothing but err:
 *
 *     // a call that returns a chain
 *     VERR_STEP(err, LockMediaIdState(), "fail LockMediaIdState");
 *     // a call that returns an object, or null (or false) on failure; it is assigned to `number`
 *     VERR_GET(err, number, CFHCreateUInt64Number(changerGUID), "fail alloc num");
 *     // a condition
 *     VERR_NEED(err, CFGetTypeID(value) == CFArrayGetTypeID(), "fail get list as array");
 *     // a call that returns an errno value, which becomes the link's code
 *     VERR_STATUS(err, pthread_attr_init(&attributes), "fail pthread_attr_init");
 */
#define VERR_RAISE(thrown) VErrRaise((thrown), kSourcePath, __func__, __LINE__)
#define VERR_STEP(err, call, ...) VERR_STEP_IN(__func__, err, call, __VA_ARGS__)
#define VERR_GET(err, target, call, ...) VERR_GET_IN(__func__, err, target, call, __VA_ARGS__)
#define VERR_NEED(err, condition, ...) VERR_NEED_IN(__func__, err, condition, __VA_ARGS__)

/* For a static function that several public ones share: its links name `function`, which is the
   public function that was called. */
#define VERR_STEP_IN(function, err, call, ...)                                                     \
    do {                                                                                           \
        if ((err) == nullptr && ((err) = (call)) != nullptr)                                       \
            VErrRaise(VErrThrow(&(err), __VA_ARGS__), kSourcePath, (function), __LINE__);          \
    } while (false)

#define VERR_GET_IN(function, err, target, call, ...)                                              \
    VERR_NEED_IN(function, err, (target) = (call), __VA_ARGS__)

#define VERR_NEED_IN(function, err, condition, ...)                                                \
    do {                                                                                           \
        if ((err) == nullptr && !(condition))                                                      \
            VErrRaise(VErrThrow(&(err), __VA_ARGS__), kSourcePath, (function), __LINE__);          \
    } while (false)

#define VERR_STATUS(err, call, ...)                                                                \
    do {                                                                                           \
        const int verrStatus = (err) == nullptr ? (call) : 0;                                      \
        if (verrStatus != 0)                                                                       \
            VERR_RAISE(VErrThrowWithErrCode(&(err), verrStatus, __VA_ARGS__));                     \
    } while (false)

#endif
