#ifndef COMMON_VERR_H
#define COMMON_VERR_H

/*
 * The error chain, which every function that can fail returns.
 *
 * Null is success. Any other value points to the newest link of a chain, which leads to the oldest
 * link, the first failure. A function that detects a failure raises a link. A function that
 * receives a chain raises a link on top and returns the chain. A function without such a caller, as
 * a callback or the body of a thread, logs the chain and releases it.
 *
 * A chain belongs to the thread whose local variable holds it; there are no locks. Raising never
 * fails: without memory, the links of the chain are logged at once and released, and the chain
 * becomes the shared link g_genericVErr.
 */

#include <CoreFoundation/CFBase.h>

#include <stdarg.h>
#include <stddef.h>

typedef SInt64 VErrCode;

/* A code below this base is an error number of the system (errno, a socket error); the daemon's own
   codes follow it. The log shows the difference to the base. */
constexpr VErrCode kVErrFacilityBase = 0x4000000000000000;

constexpr VErrCode kVErrCodeDefault = kVErrFacilityBase + 1; // no particular code; not logged
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

constexpr UInt16 kVErrLevelDefault = 50; // a chain of a higher level is not logged

struct VErrLink {
    char* message; // owned, as are funcName, fileName and next
    UInt16 level;
    VErrCode code;
    SInt64 line;
    char* funcName;
    char* fileName;
    VErrLink* next; // the next older link; null at the end
};

extern VErrLink g_genericVErr; // shared; never released, never logged

/* Sets the global variables to their defaults. The first call of the daemon. Returns 1 for success;
   it does not fail. */
int InitVErrSystem(void);

/* Frees the log path. The last call of the daemon: nothing may be raised or logged after it. */
void TermVErrSystem(void);

/* Makes errors go to the file at path, which is copied. Call it before other threads start. A
   former path is not freed. Without memory, errors go to the system log. */
void SetVErrLogFilePath(const char* path);

/* Allocates a link of zeros. Null without memory. */
VErrLink* GetVErrLink(void);

/* Frees the link and all older ones. Null and g_genericVErr are ignored. */
void ReleaseVErrLink(VErrLink* link);

/*
 * Raise a link: put it on top of the chain *err, and return *err, which is not null then. A default
 * level or code is replaced by that of the link below. The message is a printf format and its
 * arguments; VErrThrowLevel() ignores its level.
 */
VErrLink* VErrThrowCore(VErrLink** err, UInt16 level, VErrCode code, const char* format,
                        va_list arguments) __attribute__((format(printf, 4, 0)));
VErrLink* VErrThrow(VErrLink** err, const char* format, ...) __attribute__((format(printf, 2, 3)));
VErrLink* VErrThrowLevel(VErrLink** err, UInt16 level, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
VErrLink* VErrThrowWithErrCode(VErrLink** err, VErrCode code, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
VErrLink* VErrThrowLevelWithErrCode(VErrLink** err, UInt16 level, VErrCode code, const char* format,
                                    ...) __attribute__((format(printf, 4, 5)));

/* Copies the raising site to the link. Without memory, only the line is set. For g_genericVErr, the
   site is logged instead. */
void VErrAddFileFuncLine(VErrLink* link, const char* file, const char* func, SInt64 line);

/* Releases the chain *err and sets *err to null. */
void VErrCatch(VErrLink** err);

/* Logs a line for each link, the oldest first, unless the newest link has a level above
   kVErrLevelDefault. Null is ignored. The chain stays the caller's. */
void VErrLog(VErrLink* err);
/* The same, whatever the level. */
void VErrLogCore(VErrLink* link);
/* Logs the line of one link. Null and g_genericVErr are ignored. */
void VErrLogLink(const VErrLink* link);

/* Logs a message for which there is no memory for a link; and its code, unless that is the default.
   A level above kVErrLevelDefault is not logged. The caller may use the arguments again. */
void LogErrStr(VErrCode code, UInt16 level, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

/* The level and the code of a link, which must not be null. */
UInt16 VErrGetErrLevel(const VErrLink* link);
VErrCode VErrGetErrCode(const VErrLink* link);

/* Copies the message of the link, cut to size - 1 bytes; empty if the link has none. A null buffer
   or a size of 0 is ignored. */
void VErrGetErrMessage(const VErrLink* link, char* buffer, size_t size);

/* Logs the chain and releases it, where there is no caller to return it to. *err becomes null. */
inline void VErrLogAndCatch(VErrLink** err) {
    VErrLog(*err);
    VErrCatch(err);
}

/* Copies the raising site to the link and returns the link. For the macros below. */
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
 * A sequence of steps, in which the first failure skips the rest. err is the variable of the chain.
 * A step that is skipped evaluates no other argument:
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

#define VERR_NEED_IN(function, err, condition, ...)                                                \
    do {                                                                                           \
        if ((err) == nullptr && !(condition))                                                      \
            VErrRaise(VErrThrow(&(err), __VA_ARGS__), kSourcePath, (function), __LINE__);          \
    } while (false)

#define VERR_GET_IN(function, err, target, call, ...)                                              \
    VERR_NEED_IN(function, err, (target) = (call), __VA_ARGS__)

#define VERR_STATUS(err, call, ...)                                                                \
    do {                                                                                           \
        const int verrStatus = (err) == nullptr ? (call) : 0;                                      \
        if (verrStatus != 0)                                                                       \
            VERR_RAISE(VErrThrowWithErrCode(&(err), verrStatus, __VA_ARGS__));                     \
    } while (false)

#endif
