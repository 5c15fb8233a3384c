#include "common/VErr.h"

#include "common/MessageLog.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

VErrLink g_genericVErr = {nullptr, 0, kVErrCodeDefault, 0, nullptr, nullptr, nullptr};

int InitVErrSystem(void) {
    g_vErrLogPath = nullptr;
    g_genericVErr = {nullptr, 0, kVErrCodeDefault, 0, nullptr, nullptr, nullptr};
    return 1;
}

void TermVErrSystem(void) {
    free(g_vErrLogPath);
}

static char* CopyText(const char* text) {
    const size_t size = strlen(text) + 1;
    char* copy = static_cast<char*>(malloc(size));
    if (copy != nullptr)
        memcpy(copy, text, size);
    return copy;
}

void SetVErrLogFilePath(const char* path) {
    g_vErrLogPath = CopyText(path);
}

VErrLink* GetVErrLink(void) {
    return static_cast<VErrLink*>(calloc(1, sizeof(VErrLink)));
}

// No recursion here and in VErrLogCore(): the failure of a walk has a link for each directory
// level.
void ReleaseVErrLink(VErrLink* link) {
    while (link != nullptr && link != &g_genericVErr) {
        VErrLink* next = link->next;
        free(link->message);
        free(link->funcName);
        free(link->fileName);
        free(link);
        link = next;
    }
}

// Null without memory, or if the format or its arguments cannot be converted.
__attribute__((format(printf, 1, 0))) static char* FormatMessage(const char* format,
                                                                 va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int length = vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0)
        return nullptr;

    const size_t size = static_cast<size_t>(length) + 1;
    char* message = static_cast<char*>(malloc(size));
    if (message == nullptr)
        return nullptr;
    va_list written;
    va_copy(written, arguments);
    vsnprintf(message, size, format, written);
    va_end(written);
    return message;
}

// Without memory for another link: logs the chain now, and replaces it by the shared link.
static void CollapseToGenericVErr(VErrLink** err) {
    VErrLog(*err);
    ReleaseVErrLink(*err);
    *err = &g_genericVErr;
}

void LogErrStr(VErrCode code, UInt16 level, const char* format, va_list arguments) {
    if (level > kVErrLevelDefault)
        return;
    va_list written;
    va_copy(written, arguments);
    VLogErr(format, written);
    va_end(written);

    if (code == kVErrCodeDefault)
        return;
    if (code < kVErrFacilityBase)
        LogErr("err = %lld", code);
    else
        LogErr("VErrCode = %lld", code - kVErrFacilityBase);
}

VErrLink* VErrThrowCore(VErrLink** err, UInt16 level, VErrCode code, const char* format,
                        va_list arguments) {
    VErrLink* link = GetVErrLink();
    char* message = link != nullptr ? FormatMessage(format, arguments) : nullptr;
    if (message == nullptr) {
        free(link);
        CollapseToGenericVErr(err);
        LogErrStr(code, level, format, arguments);
        return *err;
    }

    const VErrLink* wrapped = *err;
    link->code = code == kVErrCodeDefault && wrapped != nullptr ? wrapped->code : code;
    link->level = level == kVErrLevelDefault && wrapped != nullptr ? wrapped->level : level;
    link->message = message;
    link->next = *err;
    *err = link;
    return link;
}

VErrLink* VErrThrow(VErrLink** err, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VErrLink* link = VErrThrowCore(err, kVErrLevelDefault, kVErrCodeDefault, format, arguments);
    va_end(arguments);
    return link;
}

VErrLink* VErrThrowLevel(VErrLink** err, UInt16 /* level */, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VErrLink* link = VErrThrowCore(err, kVErrLevelDefault, kVErrCodeDefault, format, arguments);
    va_end(arguments);
    return link;
}

VErrLink* VErrThrowWithErrCode(VErrLink** err, VErrCode code, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VErrLink* link = VErrThrowCore(err, kVErrLevelDefault, code, format, arguments);
    va_end(arguments);
    return link;
}

VErrLink* VErrThrowLevelWithErrCode(VErrLink** err, UInt16 level, VErrCode code, const char* format,
                                    ...) {
    va_list arguments;
    va_start(arguments, format);
    VErrLink* link = VErrThrowCore(err, level, code, format, arguments);
    va_end(arguments);
    return link;
}

void VErrAddFileFuncLine(VErrLink* link, const char* file, const char* func, SInt64 line) {
    if (link == &g_genericVErr) {
        LogErrFileFuncLine(file, func, line);
        return;
    }
    char* fileName = CopyText(file);
    char* funcName = CopyText(func);
    link->line = line;
    if (fileName == nullptr || funcName == nullptr) {
        free(fileName);
        free(funcName);
        return;
    }
    free(link->fileName);
    free(link->funcName);
    link->fileName = fileName;
    link->funcName = funcName;
}

void VErrCatch(VErrLink** err) {
    ReleaseVErrLink(*err);
    *err = nullptr;
}

void VErrLog(VErrLink* err) {
    if (err != nullptr && err->level <= kVErrLevelDefault)
        VErrLogCore(err);
}

// Moves the links from `link` on to the top of another chain, which reverses their order. *rest
// receives the end of the former chain: null or g_genericVErr, which must not be changed.
static VErrLink* MoveLinksOnto(VErrLink* chain, VErrLink* link, VErrLink** rest) {
    while (link != nullptr && link != &g_genericVErr) {
        VErrLink* next = link->next;
        link->next = chain;
        chain = link;
        link = next;
    }
    *rest = link;
    return chain;
}

void VErrLogCore(VErrLink* link) {
    VErrLink* end = nullptr;
    VErrLink* oldestFirst = MoveLinksOnto(nullptr, link, &end);
    for (const VErrLink* each = oldestFirst; each != nullptr; each = each->next)
        VErrLogLink(each);
    VErrLink* none = nullptr;
    MoveLinksOnto(end, oldestFirst, &none);
}

void VErrLogLink(const VErrLink* link) {
    if (link == nullptr || link == &g_genericVErr)
        return;
    const char* unknown = "<UNKNOWN>";
    const char* message = link->message != nullptr ? link->message : unknown;
    const char* func = link->funcName != nullptr ? link->funcName : unknown;
    const char* file = link->fileName != nullptr ? GetFileNameFromPath(link->fileName) : unknown;

    if (link->code == kVErrCodeDefault)
        LogErr("%s:%lld, %s: %s", file, link->line, func, message);
    else if (link->code < kVErrFacilityBase)
        LogErr("%s:%lld, %s: %s (err = %lld)", file, link->line, func, message, link->code);
    else
        LogErr("%s:%lld, %s: %s (VErrCode = %lld)", file, link->line, func, message,
               link->code - kVErrFacilityBase);
}

UInt16 VErrGetErrLevel(const VErrLink* link) {
    return link->level;
}

VErrCode VErrGetErrCode(const VErrLink* link) {
    return link->code;
}

void VErrGetErrMessage(const VErrLink* link, char* buffer, size_t size) {
    if (buffer != nullptr && size != 0)
        snprintf(buffer, size, "%s", link->message != nullptr ? link->message : "");
}
