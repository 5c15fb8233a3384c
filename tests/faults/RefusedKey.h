#ifndef TESTS_FAULTS_REFUSEDKEY_H
#define TESTS_FAULTS_REFUSEDKEY_H

/* Dictionaries that find no memory for one value: add RefusedKey.cpp and wrap
   CFDictionarySetValue. Which value makes a dictionary grow depends on its size otherwise. */

#include <string>

/* While it lives, dictionaries stay as they were when a value is set under that key. */
class RefusedKey {
public:
    explicit RefusedKey(const std::string& utf8);
    RefusedKey(const RefusedKey&) = delete;
    RefusedKey& operator=(const RefusedKey&) = delete;
    ~RefusedKey();
};

#endif
