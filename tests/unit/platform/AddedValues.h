#ifndef TESTS_ADDEDVALUES_H
#define TESTS_ADDEDVALUES_H

/*
 * Counts the values that the readers of property lists add to containers: the measure of their
 * work. It is the seam between a reader and ListBuilder, so a program needs WRAP with
 *
 *     _ZN2cf11ListBuilder9AddMemberENS_5OwnedIKNS_6ObjectEEE
 *     _ZN2cf11ListBuilder7AddPairEPKNS_6ObjectENS_5OwnedIS2_EE
 */

#include <cstddef>

/* The calls of AddMember and AddPair on this thread since the last ResetAddedValues(). */
std::size_t CountAddedValues();
void ResetAddedValues();

#endif
