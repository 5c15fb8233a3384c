#ifndef TESTS_UNIT_TRAYPROBED_NULLELEMENT_H
#define TESTS_UNIT_TRAYPROBED_NULLELEMENT_H

/* An element of an array that reads as null, which no array here holds: wrap
   CFArrayGetValueAtIndex. */

#include "support/NotCopyable.h"

#include <CoreFoundation/CoreFoundation.h>

/* While it lives, the element at that index of every array reads as null, from the read after so
   many others of it. One at a time. */
class NullElement : NotCopyable {
public:
    explicit NullElement(CFIndex index, int goodReads = 0);
    ~NullElement();
};

#endif
