#include "simulator/Values.h"

#include <plist/plist.h>

#include <cstdlib>

namespace simulator {

namespace {

// libplist frees nested values by recursion; requests contain no nested values.
constexpr std::size_t kMaximumContainers = 64;

std::size_t CountOccurrences(std::string_view text, std::string_view word) {
    std::size_t count = 0;
    for (auto at = text.find(word); at != text.npos; at = text.find(word, at + word.size()))
        ++count;
    return count;
}

std::string TakeBuffer(char* buffer, std::uint32_t length) {
    const std::unique_ptr<char, decltype(&std::free)> owner(buffer, &std::free);
    if (!buffer)
        throw ValueError("cannot write the property list");
    return std::string(buffer, length);
}

std::int64_t ReadInteger(plist_t node) {
    std::uint64_t integer = 0;
    plist_get_uint_val(node, &integer);
    return static_cast<std::int64_t>(integer);
}

std::string ReadString(plist_t node) {
    std::uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    return std::string(text, length);
}

bool ReadBoolean(plist_t node) {
    std::uint8_t boolean = 0;
    plist_get_bool_val(node, &boolean);
    return boolean != 0;
}

} // namespace

void Value::Free::operator()(void* node) const {
    plist_free(node);
}

Value Value::MakeDictionary() {
    return Value(plist_new_dict());
}

Value Value::MakeArray() {
    return Value(plist_new_array());
}

Value Value::MakeBoolean(bool boolean) {
    return Value(plist_new_bool(boolean));
}

Value Value::MakeInteger(std::int64_t integer) {
#if HAVE_PLIST_NEW_INT
    return Value(plist_new_int(integer));
#else
    return Value(plist_new_uint(static_cast<std::uint64_t>(integer)));
#endif
}

Value Value::MakeString(const std::string& text) {
    return Value(plist_new_string(text.c_str()));
}

Value Value::ParseXml(std::string_view xml) {
    if (CountOccurrences(xml, "<array") + CountOccurrences(xml, "<dict") > kMaximumContainers)
        throw ValueError("too many arrays and dictionaries");
    plist_t node = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &node);
    if (!node)
        throw ValueError("not an XML property list");
    return Value(node);
}

Value Value::Copy() const {
    return Value(plist_copy(node_.get()));
}

std::string Value::ToXml() const {
    char* buffer = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(node_.get(), &buffer, &length);
    return TakeBuffer(buffer, length);
}

std::string Value::ToBinary() const {
    char* buffer = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(node_.get(), &buffer, &length);
    return TakeBuffer(buffer, length);
}

Value& Value::Set(const char* key, Value value) {
    if (!IsDictionary())
        throw ValueError("not a dictionary");
    plist_dict_set_item(node_.get(), key, value.node_.release());
    return *this;
}

Value& Value::Set(const char* key, bool boolean) {
    return Set(key, MakeBoolean(boolean));
}

Value& Value::Set(const char* key, const std::string& text) {
    return Set(key, MakeString(text));
}

Value& Value::Set(const char* key, const char* text) {
    return Set(key, MakeString(text));
}

Value& Value::Append(Value value) {
    plist_array_append_item(node_.get(), value.node_.release());
    return *this;
}

bool Value::IsDictionary() const {
    return plist_get_node_type(node_.get()) == PLIST_DICT;
}

std::vector<std::string> Value::Keys() const {
    std::vector<std::string> keys;
    if (!IsDictionary())
        return keys;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node_.get(), &iterator);
    const std::unique_ptr<void, decltype(&std::free)> owner(iterator, &std::free);
    for (;;) {
        char* key = nullptr;
        plist_dict_next_item(node_.get(), iterator, &key, nullptr);
        if (!key)
            return keys;
        keys.emplace_back(key);
        std::free(key);
    }
}

void* Value::FindNode(const char* key) const {
    return IsDictionary() ? plist_dict_get_item(node_.get(), key) : nullptr;
}

bool Value::IsTrue(const char* key) const {
    const plist_t node = FindNode(key);
    return node && plist_get_node_type(node) == PLIST_BOOLEAN && ReadBoolean(node);
}

std::optional<std::int64_t> Value::FindInteger(const char* key) const {
    const plist_t node = FindNode(key);
    if (!node || plist_get_node_type(node) != PLIST_UINT)
        return {};
    return ReadInteger(node);
}

std::optional<std::string> Value::FindString(const char* key) const {
    const plist_t node = FindNode(key);
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return {};
    return ReadString(node);
}

std::string Value::Describe(const char* key) const {
    const plist_t node = FindNode(key);
    switch (node ? plist_get_node_type(node) : PLIST_NONE) {
    case PLIST_BOOLEAN:
        return ReadBoolean(node) ? "yes" : "no";
    case PLIST_UINT:
        return std::to_string(ReadInteger(node));
    case PLIST_STRING:
        return ReadString(node);
    case PLIST_DICT:
        return "<dictionary>";
    case PLIST_ARRAY:
        return "<array>";
    default:
        return "<value>";
    }
}

Value Value::WithWrongTypes() const {
    Value wrong = MakeDictionary();
    for (const std::string& key : Keys()) {
        switch (plist_get_node_type(FindNode(key.c_str()))) {
        case PLIST_UINT:
            wrong.Set(key.c_str(), "not a number");
            break;
        case PLIST_DICT:
            wrong.Set(key.c_str(), MakeArray());
            break;
        case PLIST_ARRAY:
            wrong.Set(key.c_str(), MakeDictionary());
            break;
        default:
            wrong.Set(key.c_str(), 1);
            break;
        }
    }
    return wrong;
}

} // namespace simulator
