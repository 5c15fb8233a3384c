#ifndef TESTS_ADDEDVALUES_H
#define TESTS_ADDEDVALUES_H

/*
 * Counts the values that the readers of property lists add to containers: the measure of their
 * work. It is the seam between a reader and ListBuilder.
 */

#include <cstddef>

/* The calls of AddMember and AddPair on this thread since the last ResetAddedValues(). */
std::size_t CountAddedValues();
void ResetAddedValues();

#endif
