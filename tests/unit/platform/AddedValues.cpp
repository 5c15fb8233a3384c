#include "AddedValues.h"

#include "plist/ListBuilder.h"

#include <utility>

namespace {
thread_local std::size_t g_addedValues = 0;
}

// A member function is called like a C function whose first parameter is the object.
extern "C" {
void __real__ZN2cf11ListBuilder9AddMemberENS_5OwnedIKNS_6ObjectEEE(cf::ListBuilder* builder,
                                                                   cf::Value member);
void __real__ZN2cf11ListBuilder7AddPairEPKNS_6ObjectENS_5OwnedIS2_EE(cf::ListBuilder* builder,
                                                                     const cf::Object* key,
                                                                     cf::Value value);

void __wrap__ZN2cf11ListBuilder9AddMemberENS_5OwnedIKNS_6ObjectEEE(cf::ListBuilder* builder,
                                                                   cf::Value member) {
    ++g_addedValues;
    __real__ZN2cf11ListBuilder9AddMemberENS_5OwnedIKNS_6ObjectEEE(builder, std::move(member));
}

void __wrap__ZN2cf11ListBuilder7AddPairEPKNS_6ObjectENS_5OwnedIS2_EE(cf::ListBuilder* builder,
                                                                     const cf::Object* key,
                                                                     cf::Value value) {
    ++g_addedValues;
    __real__ZN2cf11ListBuilder7AddPairEPKNS_6ObjectENS_5OwnedIS2_EE(builder, key, std::move(value));
}
}

std::size_t CountAddedValues() {
    return g_addedValues;
}

void ResetAddedValues() {
    g_addedValues = 0;
}
