#ifndef TESTS_FAULTS_REFUSEDKEY_H
#define TESTS_FAULTS_REFUSEDKEY_H

/* Dictionaries without memory for the value of one key: without this seam the value that makes a
   dictionary grow depends on its size. Name RefusedKey in the SEAMS of add_unit_test. */

#include "support/NotCopyable.h"

#include <string>

/* While it lives, CFDictionarySetValue() changes nothing for a key that is equal to `utf8`. One at
   a time. */
class RefusedKey : NotCopyable {
public:
    // Copies the text.
    explicit RefusedKey(const std::string& utf8);
    ~RefusedKey();
};

#endif
