#ifndef TESTS_FUZZ_LISTCHECKS_H
#define TESTS_FUZZ_LISTCHECKS_H

/* What must hold of every property list that a reader accepts. */

#include "LibplistReference.h"
#include "Lists.h"

#include <string_view>

/* Whether the list can be written and read again as XML: each value is written as often as it is
   referred to, which may be too often; XML has neither what stands for null nor a NUL. Nor does
   libplist take one in a text. */
bool HasXml(CFPropertyListRef list);

/* Mutable containers change nothing of what is read, refused or said about it. */
void ExpectSameWithMutableContainers(std::string_view bytes, const ReadResult& immutable);

/* What is written is read again, as the same values, and then written the same; but for texts that
   begin with a byte-order mark. */
void ExpectSameWhenReadAgain(CFPropertyListRef list);

/* Where libplist accepts the list too, it finds the same in it. */
void ExpectWitnessAgrees(CFPropertyListRef ours, const Node& theirs, EqualKeys equalKeys);

#endif
