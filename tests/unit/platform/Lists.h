#ifndef TESTS_LISTS_H
#define TESTS_LISTS_H

/* Property lists read and written in one call. */

#include <CoreFoundation/CoreFoundation.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

/* An owned reference, or none. */
template<typename T>
class Held {
public:
    Held() = default;
    explicit Held(T reference) : reference_(reference) {}
    Held(Held&& other) noexcept : reference_(std::exchange(other.reference_, nullptr)) {}
    Held& operator=(Held&& other) noexcept {
        std::swap(reference_, other.reference_);
        return *this;
    }
    ~Held() {
        CFRelease(reference_);
    }

    T Get() const {
        return reference_;
    }
    T Detach() {
        return std::exchange(reference_, nullptr);
    }
    explicit operator bool() const {
        return reference_ != nullptr;
    }

private:
    T reference_ = nullptr;
};

inline Held<CFDataRef> MakeData(std::string_view bytes) {
    return Held(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                             static_cast<CFIndex>(bytes.size())));
}

inline Held<CFStringRef> MakeString(const char* text) {
    return Held(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
}

inline std::string TextOf(CFStringRef string) {
    const CFIndex size =
        1 + CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8);
    std::string text(static_cast<std::size_t>(size), '\0');
    if (!CFStringGetCString(string, text.data(), size, kCFStringEncodingUTF8))
        return "(no text)";
    return text.c_str();
}

/* A list, or why there is none ("(none)" without a text). */
struct ReadResult {
    Held<CFPropertyListRef> list;
    std::string error;
};

inline ReadResult ReadList(std::string_view bytes,
                           CFOptionFlags mutability = kCFPropertyListImmutable) {
    const Held data = MakeData(bytes);
    CFStringRef text = CFSTR("left as it was");
    ReadResult result;
    result.list =
        Held(CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data.Get(), mutability, &text));
    const Held error(text);
    if (!result.list)
        result.error = error ? TextOf(text) : "(none)";
    else if (error)
        result.error = "a text although there is a list";
    return result;
}

constexpr std::string_view kXmlHeader = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                        "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                        "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                        "<plist version=\"1.0\">\n";
constexpr std::string_view kXmlTrailer = "</plist>\n";

/* The whole document; nothing when the list cannot be written. */
inline std::string WriteList(CFPropertyListRef list) {
    const Held data(CFPropertyListCreateXMLData(kCFAllocatorDefault, list));
    if (!data)
        return {};
    return {reinterpret_cast<const char*>(CFDataGetBytePtr(data.Get())),
            static_cast<std::size_t>(CFDataGetLength(data.Get()))};
}

/* What the document has between header and trailer. */
inline std::string WriteBody(CFPropertyListRef list) {
    const std::string text = WriteList(list);
    if (!text.starts_with(kXmlHeader) || !text.ends_with(kXmlTrailer))
        return "(no document) " + text;
    return text.substr(kXmlHeader.size(), text.size() - kXmlHeader.size() - kXmlTrailer.size());
}

#endif
