#ifndef SIMULATOR_VALUES_H
#define SIMULATOR_VALUES_H

/* Property lists, encoded and decoded by libplist. */

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

class ValueError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* Owns one value and the values in it. The functions with a key are for dictionaries: on other
   types, setting throws ValueError, and reading finds nothing. */
class Value {
public:
    // Make a value; dictionaries and arrays are empty.
    static Value MakeDictionary();
    static Value MakeArray();
    static Value MakeBoolean(bool boolean);
    static Value MakeInteger(std::int64_t integer); // an unsigned integer by its bits
    static Value MakeString(const std::string& text);

    // Throws ValueError if `xml` is no XML property list, or has more than 64 containers: libplist
    // frees nested values by recursion.
    static Value ParseXml(std::string_view xml);

    // A deep copy.
    Value Copy() const;
    // Encode as a property list. Throw ValueError if the value cannot be encoded.
    std::string ToXml() const;
    std::string ToBinary() const;

    // Set or replace the value of a key. Return the dictionary itself.
    Value& Set(const char* key, Value value);
    Value& Set(const char* key, bool boolean);
    Value& Set(const char* key, std::integral auto integer) {
        return Set(key, MakeInteger(static_cast<std::int64_t>(integer)));
    }
    Value& Set(const char* key, const std::string& text);
    Value& Set(const char* key, const char* text);
    // Appends an element to an array. Returns the array itself.
    Value& Append(Value value);

    // True if the type is dictionary.
    bool IsDictionary() const;
    // The keys, in the order of the property list.
    std::vector<std::string> Keys() const;
    // True if the value of the key is the boolean true.
    bool IsTrue(const char* key) const;
    // The value of the key; none if the key is missing or has another type.
    std::optional<std::int64_t> FindInteger(const char* key) const;
    std::optional<std::string> FindString(const char* key) const;

    // The value of the key for output: a number, a text, "yes", "no", or the type as "<TYPE>".
    std::string Describe(const char* key) const;

    // A dictionary with the same keys, each with a value of another type.
    Value WithWrongTypes() const;

private:
    struct Free {
        void operator()(void* node) const;
    };
    explicit Value(void* node) : node_(node) {}
    void* FindNode(const char* key) const;

    std::unique_ptr<void, Free> node_; // a plist_t
};

} // namespace simulator

#endif
