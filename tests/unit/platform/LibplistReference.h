#ifndef TESTS_LIBPLISTREFERENCE_H
#define TESTS_LIBPLISTREFERENCE_H

/* libplist as an independent reference: lists that it read or made, and where ours differ. */

#include "objects/Object.h"

#include <plist/plist.h>

#include <memory>
#include <string>
#include <string_view>

struct FreeNode {
    void operator()(void* node) const {
        plist_free(node);
    }
};
using Node = std::unique_ptr<void, FreeNode>;

/* Null for lists that libplist refuses. */
Node LibplistFromXml(std::string_view xml);
Node LibplistFromBinary(std::string_view bytes);

/*
 * Which of equal keys counts: in XML the last, in binary lists the first. libplist keeps them all.
 */
enum class EqualKeys { FirstCounts, LastCounts };

/* The first place where the lists differ; empty when they are equal. */
std::string DifferenceOf(const cf::Object* ours, plist_t theirs,
                         EqualKeys equalKeys = EqualKeys::LastCounts);

#endif
