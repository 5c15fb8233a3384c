#ifndef TESTS_UNIT_TRAYPROBED_NULLELEMENT_H
#define TESTS_UNIT_TRAYPROBED_NULLELEMENT_H

/* Makes an element of an array read as null; real arrays contain no null. */

#include "support/NotCopyable.h"

#include <CoreFoundation/CoreFoundation.h>

/* While an object lives, the element at that index of every array reads as null after `goodReads`
   normal reads. One object at a time. */
class NullElement : NotCopyable {
public:
    explicit NullElement(CFIndex index, int goodReads = 0);
    ~NullElement();
};

#endif
