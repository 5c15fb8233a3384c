#include "LibplistReference.h"

#include "objects/Array.h"
#include "objects/Data.h"
#include "objects/Date.h"
#include "objects/Dictionary.h"
#include "objects/Number.h"
#include "objects/String.h"

#include <CoreFoundation/CFNumber.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <span>

namespace {

bool IsSameText(const cf::Object* ours, plist_t theirs) {
    const auto* string = cf::As<cf::String>(ours);
    const char* text = plist_get_string_ptr(theirs, nullptr);
    return string != nullptr && text != nullptr && cf::TextOf(string) == text;
}

bool IsSameInteger(const cf::Object* ours, plist_t theirs) {
    const auto number = cf::NumberIn(ours);
    std::uint64_t value = 0;
    plist_get_uint_val(theirs, &value);
    return number && number->kind != cf::kRealNumber && number->Unsigned() == value;
}

// Four units in the last place, as GoogleTest has it: libplist writes fewer digits.
bool IsSameReal(const cf::Object* ours, plist_t theirs) {
    const auto number = cf::NumberIn(ours);
    double value = 0;
    plist_get_real_val(theirs, &value);
    if (!number || number->kind != cf::kRealNumber)
        return false;
    return std::isnan(value) ? std::isnan(number->Real())
                             : testing::internal::Double(number->Real())
                                   .AlmostEquals(testing::internal::Double(value));
}

// libplist counts whole seconds in 32 bits, towards zero.
bool IsSameDate(const cf::Object* ours, plist_t theirs) {
    const auto* date = cf::As<cf::Date>(ours);
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(theirs, &seconds, &microseconds);
    return date != nullptr && (std::abs(date->absoluteTime) > std::numeric_limits<int>::max() ||
                               std::trunc(date->absoluteTime) == seconds);
}

bool IsSameBoolean(const cf::Object* ours, plist_t theirs) {
    std::uint8_t truth = 0;
    plist_get_bool_val(theirs, &truth);
    return ours == cf::AsObject(truth ? kCFBooleanTrue : kCFBooleanFalse);
}

bool AreSameBytes(const cf::Object* ours, plist_t theirs) {
    const auto* data = cf::As<cf::Data>(ours);
    std::uint64_t length = 0;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(plist_get_data_ptr(theirs, &length));
    return data != nullptr && std::ranges::equal(cf::BytesOf(data), std::span(bytes, length));
}

std::string DifferenceOfMembers(const cf::Object* ours, plist_t theirs, EqualKeys equalKeys) {
    const auto* array = cf::As<cf::Array>(ours);
    if (array == nullptr || array->count != plist_array_get_size(theirs))
        return "array";
    std::string difference;
    for (std::uint32_t i = 0; i < array->count && difference.empty(); ++i)
        difference =
            DifferenceOf(cf::MemberAt(array, i), plist_array_get_item(theirs, i), equalKeys);
    return difference.empty() ? "" : "array, " + difference;
}

std::map<std::string, plist_t> PairsOf(plist_t dictionary, EqualKeys equalKeys) {
    std::map<std::string, plist_t> pairs;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(dictionary, &iterator);
    char* key = nullptr;
    plist_t value = nullptr;
    while (plist_dict_next_item(dictionary, iterator, &key, &value), value != nullptr) {
        if (equalKeys == EqualKeys::LastCounts || !pairs.contains(key))
            pairs[key] = value;
        std::free(key);
    }
    std::free(iterator);
    return pairs;
}

std::string DifferenceOfPairs(const cf::Object* ours, plist_t theirs, EqualKeys equalKeys) {
    const auto* dictionary = cf::As<cf::Dictionary>(ours);
    const auto pairs = PairsOf(theirs, equalKeys);
    if (dictionary == nullptr || dictionary->count != pairs.size())
        return "dictionary";
    std::string difference;
    cf::VisitPairs(dictionary, [&](const cf::Object* key, const cf::Object* value) {
        const std::string text(cf::TextOf(cf::As<cf::String>(key)));
        const auto pair = pairs.find(text);
        if (difference.empty() && pair == pairs.end())
            difference = "missing";
        else if (difference.empty())
            difference = DifferenceOf(value, pair->second, equalKeys);
        if (!difference.empty())
            difference = "\"" + text + "\", " + difference;
    });
    return difference;
}

} // namespace

Node LibplistFromXml(std::string_view xml) {
    plist_t list = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &list);
    return Node(list);
}

Node LibplistFromBinary(std::string_view bytes) {
    plist_t list = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &list);
    return Node(list);
}

std::string DifferenceOf(const cf::Object* ours, plist_t theirs, EqualKeys equalKeys) {
    switch (plist_get_node_type(theirs)) {
    case PLIST_STRING:
        return IsSameText(ours, theirs) ? "" : "string";
    case PLIST_UINT:
        return IsSameInteger(ours, theirs) ? "" : "integer";
    case PLIST_REAL:
        return IsSameReal(ours, theirs) ? "" : "real";
    case PLIST_DATE:
        return IsSameDate(ours, theirs) ? "" : "date";
    case PLIST_DATA:
        return AreSameBytes(ours, theirs) ? "" : "data";
    case PLIST_BOOLEAN:
        return IsSameBoolean(ours, theirs) ? "" : "boolean";
    case PLIST_ARRAY:
        return DifferenceOfMembers(ours, theirs, equalKeys);
    case PLIST_DICT:
        return DifferenceOfPairs(ours, theirs, equalKeys);
    default:
        return "kind of node";
    }
}
