#ifndef TESTS_UNIT_SUPPORT_CHAIN_H
#define TESTS_UNIT_SUPPORT_CHAIN_H

/* Error chains as lists of links, oldest first, as in the log. */

#include "common/VErr.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

struct RaisedLink {
    std::string message;
    std::string function;
    std::string file;
    VErrCode code = kVErrCodeDefault;
    UInt16 level = kVErrLevelDefault;

    bool operator==(const RaisedLink&) const = default;
};

using Chain = std::vector<RaisedLink>;

inline void PrintTo(const RaisedLink& link, std::ostream* out) {
    *out << '"' << link.message << "\" in " << link.function << " of " << link.file;
    if (link.code >= kVErrFacilityBase)
        *out << ", VErrCode " << link.code - kVErrFacilityBase;
    else
        *out << ", err " << link.code;
    if (link.level != kVErrLevelDefault)
        *out << ", level " << link.level;
}

/* A copy of the link. " (no line)" marks a site without a line number, which no raise may leave;
   the message of the shared static link is "(generic)". */
inline RaisedLink ReadLink(const VErrLink* link) {
    const auto text = [](const char* field) { return field != nullptr ? field : "(none)"; };
    RaisedLink read = {text(link->message), text(link->funcName), text(link->fileName), link->code,
                       link->level};
    if (link == &g_genericVErr)
        read.message = "(generic)";
    else if (link->line <= 0)
        read.function += " (no line)";
    return read;
}

inline Chain ReadChain(const VErrLink* newest) {
    Chain chain;
    for (const VErrLink* link = newest; link != nullptr; link = link->next)
        chain.push_back(ReadLink(link));
    std::reverse(chain.begin(), chain.end());
    return chain;
}

/* Reads the chain and releases it. Empty for success. */
inline Chain TakeChain(VErrLink* owned) {
    Chain chain = ReadChain(owned);
    ReleaseVErrLink(owned);
    return chain;
}

inline std::vector<std::string> MessagesOf(const Chain& chain) {
    std::vector<std::string> messages;
    for (const RaisedLink& link : chain)
        messages.push_back(link.message);
    return messages;
}

/* The messages of the chain, which is released. */
inline std::vector<std::string> TakeMessages(VErrLink* owned) {
    return MessagesOf(TakeChain(owned));
}

#endif
