#ifndef TESTS_FUZZ_LISTCHECKS_H
#define TESTS_FUZZ_LISTCHECKS_H

/* Checks for every property list that a reader accepts. */

#include "LibplistReference.h"
#include "Lists.h"

#include <string_view>

/* True if the list can be written as XML and read again. XML repeats a value for each reference, so
   a list may be too long; null and NUL characters have no XML form. libplist accepts no NUL. */
bool IsXmlCompatible(CFPropertyListRef list);

/* Reading with mutable containers must give the same list or the same error. */
void ExpectSameWithMutableContainers(std::string_view bytes, const ReadResult& immutable);

/* A list that is written and read again must be equal and be written equally, except for texts that
   begin with a byte order mark. */
void ExpectSameWhenReadAgain(CFPropertyListRef list);

/* If libplist, the reference, accepts the list, both readers must agree on its content. */
void ExpectReferenceAgrees(CFPropertyListRef ours, const Node& theirs, EqualKeys equalKeys);

#endif
