#include "plist/XmlReader.h"

#include "plist/Parsing.h"
#include "plist/XmlBatchParser.h"
#include "plist/XmlCharacterData.h"
#include "plist/XmlEncoding.h"
#include "plist/XmlKeyTable.h"
#include "plist/XmlScalars.h"
#include "plist/XmlTag.h"

#include <CoreFoundation/CFNumber.h>

#include <array>
#include <cstring>
#include <string_view>
#include <utility>

namespace cf {

namespace {

class XmlReader {
public:
    XmlReader(std::string_view source, ListBuilder& builder, std::size_t batchLength)
        : normalizer_(source, batchLength), builder_(builder) {
        containers_[0] = {XmlTag::kPlist, 0, nullptr};
    }

    // Throws XmlFault, with a place in the source, and std::bad_alloc.
    Value Read();

private:
    // A container that is being read, perhaps over several batches.
    struct Container {
        XmlTag tag;
        std::size_t begin; // of an array: see ListBuilder::BeginArray
        const Object* key; // in the dictionary around the container, or null
    };

    void ReadBatch(const XmlBatch& batch);
    void ReadNodes(pugi::xml_node node, std::size_t depth);
    void ReadContainer(pugi::xml_node container, std::size_t depth);
    void ReadScalars(const char* text);
    void Open(XmlTag tag, const Object* key);
    void CloseDownTo(std::size_t depth);
    void CloseInnermost();
    void Add(const Object* key, Value value);

    XmlTag Tag() const {
        return containers_[depth_].tag;
    }
    // These functions move `text` behind what they read.
    const Object* TakeKey(const char*& text) const;
    Value ReadScalar(const char*& text);
    Value TakeInteger(const char*& text);
    XmlSlice TakeContent(const char*& text) const;

    XmlNormalizer normalizer_;
    ListBuilder& builder_;
    const char* batch_ = nullptr;                                            // its text
    std::array<Container, XmlContainerStack::kMaximumDepth + 1> containers_; // 0 is the document
    std::size_t depth_ = 0;
    Value root_;
};

// The normalizer throws a fault of its own only after the batch before it was read, so the first
// fault of the document is reported.
Value XmlReader::Read() {
    while (const auto batch = normalizer_.NextBatch()) {
        try {
            ReadBatch(*batch);
        } catch (XmlFault& fault) {
            if (fault.place)
                fault.place = normalizer_.FindInSource(*fault.place);
            throw;
        }
    }
    return std::move(root_);
}

// Containers that an earlier batch opened are read from the innermost one outwards.
void XmlReader::ReadBatch(const XmlBatch& batch) {
    pugi::xml_document document;
    ParseBatch(document, batch);
    batch_ = batch.text;
    std::size_t depth = batch.openAtBegin;
    pugi::xml_node container = document;
    for (std::size_t i = 0; i < depth; ++i)
        container = container.first_child();
    ReadScalars(container.value());
    ReadNodes(container.first_child(), depth);
    for (; depth > 0; --depth, container = container.parent())
        ReadNodes(container.next_sibling(), depth - 1);
    CloseDownTo(batch.openAtEnd);
}

// Reads the node and its next siblings. A container is closed only when something follows it,
// because the next batch may continue it.
void XmlReader::ReadNodes(pugi::xml_node node, std::size_t depth) {
    for (; node; node = node.next_sibling()) {
        CloseDownTo(depth);
        if (node.type() == pugi::node_pcdata)
            ReadScalars(node.value());
        else
            ReadContainer(node, depth);
    }
}

void XmlReader::ReadContainer(pugi::xml_node container, std::size_t depth) {
    const char* text = container.value();
    const Object* const key = Tag() == XmlTag::kDict ? TakeKey(text) : nullptr;
    Open(static_cast<XmlTag>(*container.name()), key);
    ReadScalars(text);
    ReadNodes(container.first_child(), depth + 1);
}

// Reads the scalars of a text, which is in a container before, between or behind others.
void XmlReader::ReadScalars(const char* text) {
    if (Tag() != XmlTag::kDict) {
        while (*text != '\0')
            Add(nullptr, ReadScalar(text));
        return;
    }
    while (*text != '\0') {
        const Object* const key = TakeKey(text);
        builder_.AddPair(key, ReadScalar(text));
    }
}

void XmlReader::Open(XmlTag tag, const Object* key) {
    containers_[++depth_] = {tag, builder_.BeginArray(), key};
    if (tag == XmlTag::kDict)
        builder_.BeginDictionary();
}

void XmlReader::CloseDownTo(std::size_t depth) {
    while (depth_ > depth)
        CloseInnermost();
}

void XmlReader::CloseInnermost() {
    const Container& container = containers_[depth_--];
    if (container.tag == XmlTag::kDict && Tag() == XmlTag::kArray)
        builder_.AddDictionary();
    else if (container.tag == XmlTag::kDict)
        Add(container.key, builder_.EndDictionary());
    else if (container.tag == XmlTag::kArray)
        Add(container.key, builder_.EndArray(container.begin));
    else
        Add(container.key, std::move(root_));
}

// Adds a value to the innermost container.
void XmlReader::Add(const Object* key, Value value) {
    switch (Tag()) {
    case XmlTag::kDict:
        return builder_.AddPair(key, std::move(value));
    case XmlTag::kArray:
        return builder_.AddMember(std::move(value));
    default:
        root_ = std::move(value);
    }
}

const Object* XmlReader::TakeKey(const char*& text) const {
    return normalizer_.KeyAt(ReadKeyReference(std::exchange(text, text + kKeyReferenceLength)));
}

Value XmlReader::ReadScalar(const char*& text) {
    const auto tag = static_cast<XmlTag>(*text++);
    switch (tag) {
    case XmlTag::kInteger:
        return TakeInteger(text);
    case XmlTag::kTrue:
        return Value::Share(AsObject(kCFBooleanTrue));
    case XmlTag::kFalse:
        return Value::Share(AsObject(kCFBooleanFalse));
    case XmlTag::kString:
        return CreateText(TakeContent(text).View());
    default:
        return ReadNumber(tag, TakeContent(text));
    }
}

Value XmlReader::TakeInteger(const char*& text) {
    std::int64_t plain = 0;
    const char* const end = ParsePlainInteger(text, plain);
    if (end == nullptr || *end != kScalarEnd)
        return ReadInteger(TakeContent(text));
    text = end + 1;
    return Created(SharedInteger(plain));
}

XmlSlice XmlReader::TakeContent(const char*& text) const {
    const char* const begin = std::exchange(text, std::strchr(text, kScalarEnd) + 1);
    const auto end = static_cast<std::size_t>(text - 1 - batch_);
    return {{batch_, end}, static_cast<std::size_t>(begin - batch_), end};
}

} // namespace

Value ReadXmlList(std::span<const std::uint8_t> bytes, ListBuilder& builder,
                  std::size_t batchLength) {
    const XmlDocumentText document(bytes);
    try {
        return XmlReader(document.View(), builder, batchLength).Read();
    } catch (const XmlFault& fault) {
        throw fault.ErrorIn(document.View());
    }
}

} // namespace cf
