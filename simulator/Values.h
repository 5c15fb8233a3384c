#ifndef SIMULATOR_VALUES_H
#define SIMULATOR_VALUES_H

/* Property lists, as libplist makes and reads them. */

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

/* One value and all that it holds. Dictionaries are filled and read with the calls that take a
   key; on any other type setting throws and reading finds nothing. */
class Value {
public:
    static Value MakeDictionary();
    static Value MakeArray();
    static Value MakeBoolean(bool boolean);
    static Value MakeInteger(std::int64_t integer); // also an unsigned one: the bits are sent
    static Value MakeString(const std::string& text);

    // Throws ValueError when this is no XML property list, or one that no request looks like.
    static Value ParseXml(std::string_view xml);

    Value Copy() const;
    std::string ToXml() const;
    std::string ToBinary() const;

    Value& Set(const char* key, Value value);
    Value& Set(const char* key, bool boolean);
    Value& Set(const char* key, std::integral auto integer) {
        return Set(key, MakeInteger(static_cast<std::int64_t>(integer)));
    }
    Value& Set(const char* key, const std::string& text);
    Value& Set(const char* key, const char* text);
    Value& Append(Value value);

    bool IsDictionary() const;
    std::vector<std::string> Keys() const;
    bool IsTrue(const char* key) const;
    std::optional<std::int64_t> FindInteger(const char* key) const;
    std::optional<std::string> FindString(const char* key) const;

    // The value under the key for a person's eyes: a number, a text, "yes", or the type's name.
    std::string Describe(const char* key) const;

    // The same dictionary with each value replaced by one of another type.
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
