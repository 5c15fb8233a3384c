/*
 * Mutations for inputs with XML property lists. Half of the mutations are libFuzzer's own, of
 * bytes. The others erase, double or repeat an element, copy it over another one or replace it by a
 * scalar: lists remain valid, so the fuzzer reaches the code behind the reader. A key and its value
 * are one element.
 */

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

extern "C" {
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maximum);
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximum,
                                    unsigned seed);
}

namespace {

constexpr std::array<std::string_view, 12> kScalars = {
    "<true/>",
    "<false/>",
    "<integer>0</integer>",
    "<integer>1</integer>",
    "<integer>7</integer>",
    "<integer>-1</integer>",
    "<integer>65536</integer>",
    "<integer>9223372036854775808</integer>",
    "<real>1.5</real>",
    "<string>x</string>",
    "<dict/>",
    "<array/>",
};

struct Span {
    std::size_t begin = 0;
    std::size_t length = 0; // 0: no element
};

// The end of the tag that starts at `begin`; npos if it has none.
std::size_t TagEnd(std::string_view text, std::size_t begin) {
    const std::size_t end = text.find('>', begin);
    return end == text.npos ? end : end + 1;
}

// The end of the closing tag of the element `name` whose content starts at `content`; npos if none.
std::size_t ElementEnd(std::string_view text, std::size_t content, std::string_view name) {
    int open = 1;
    for (std::size_t tag = text.find('<', content); tag != text.npos; tag = text.find('<', tag)) {
        const std::size_t end = TagEnd(text, tag);
        if (end == text.npos)
            break;
        const bool closes = text.substr(tag + 1).starts_with('/');
        const bool isEmpty = text[end - 2] == '/';
        if (text.substr(tag + (closes ? 2 : 1)).starts_with(name) && !isEmpty)
            open += closes ? -1 : 1;
        tag = end;
        if (open == 0)
            return end;
    }
    return text.npos;
}

Span ElementAt(std::string_view text, std::size_t begin) {
    const std::size_t tagEnd = TagEnd(text, begin);
    if (tagEnd == text.npos)
        return {};
    const std::string_view tag = text.substr(begin, tagEnd - begin);
    const std::string_view name = tag.substr(1, tag.find_first_of(" />", 1) - 1);
    if (name.empty())
        return {};
    const std::size_t end = tag.ends_with("/>") ? tagEnd : ElementEnd(text, tagEnd, name);
    if (end == text.npos)
        return {};
    if (name != "key")
        return {begin, end - begin};
    const std::size_t next = text.find('<', end);
    const Span value = next == text.npos ? Span() : ElementAt(text, next);
    return value.length == 0 ? Span() : Span{begin, next + value.length - begin};
}

class Mutation {
public:
    Mutation(std::string_view text, unsigned seed) : text_(text), random_(seed) {}

    bool IsForBytes() {
        return Below(2) == 0;
    }
    std::string Result() {
        const Span place = SomeElement();
        std::string result(text_);
        switch (Below(5)) {
        case 0:
            return result.erase(place.begin, place.length);
        case 1:
            return result.insert(place.begin, Copied(place));
        case 2:
            return result.replace(place.begin, place.length, Copied(SomeElement()));
        case 3:
            return result.insert(place.begin, Repeated(Copied(place)));
        default:
            return result.replace(place.begin, place.length, kScalars[Below(kScalars.size())]);
        }
    }

private:
    std::size_t Below(std::size_t bound) {
        return random_() % bound;
    }
    std::string_view Copied(const Span& span) const {
        return text_.substr(span.begin, span.length);
    }
    // Often enough for an array of several chunks.
    std::string Repeated(std::string_view element) {
        std::string elements;
        for (std::size_t rest = 32 + Below(40); rest > 0; --rest)
            elements += element;
        return elements;
    }
    // The first element behind a random position.
    Span SomeElement() {
        const std::size_t begin = text_.find('<', Below(text_.size() + 1));
        return begin == text_.npos ? Span{text_.size(), 0} : ElementAt(text_, begin);
    }

    std::string_view text_;
    std::minstd_rand random_;
};

} // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maximum,
                                    unsigned seed) {
    Mutation mutation({reinterpret_cast<const char*>(data), size}, seed);
    if (mutation.IsForBytes())
        return LLVMFuzzerMutate(data, size, maximum);
    const std::string result = mutation.Result();
    if (result.empty() || result.size() > maximum)
        return LLVMFuzzerMutate(data, size, maximum);
    std::copy(result.begin(), result.end(), data);
    return result.size();
}
