#ifndef PLATFORM_XMLCONTAINERSTACK_H
#define PLATFORM_XMLCONTAINERSTACK_H

/* The stack of open containers while an XML property list is parsed. */

#include "plist/ListBuilder.h"
#include "plist/XmlTag.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace cf {

class XmlContainerStack {
public:
    // The element around the list is no level of it.
    static constexpr std::size_t kMaximumDepth = kMaximumNesting + 1;

    // The tags of all open containers packed in one word, that of the innermost one in the lowest
    // bits; 0 if the stack is too deep for a word.
    using Path = std::uint64_t;

    XmlContainerStack() {
        levels_[0] = {kEmptyPath, XmlTag::kUnknown, false};
    }

    std::size_t Depth() const {
        return depth_;
    }
    bool IsEmpty() const {
        return depth_ == 0;
    }
    bool IsFull() const {
        const bool isInPlist = depth_ != 0 && levels_[1].tag == XmlTag::kPlist;
        return depth_ == kMaximumNesting + (isInPlist ? 1U : 0U);
    }
    // Of the innermost container; kUnknown if the stack is empty.
    XmlTag Tag() const {
        return levels_[depth_].tag;
    }
    // Of the container at that depth, from 1 to Depth().
    XmlTag TagAt(std::size_t depth) const {
        return levels_[depth].tag;
    }
    Path CurrentPath() const {
        return levels_[depth_].path;
    }
    // True if the innermost container, a <plist>, already contains an object.
    bool HasObject() const {
        return levels_[depth_].hasObject;
    }
    void SetHasObject() {
        levels_[depth_].hasObject = true;
    }

    void Push(XmlTag tag) {
        const Path path = levels_[depth_].path;
        const bool fits = path != 0 && path >> (64 - kBitsOfTag) == 0;
        levels_[++depth_] = {fits ? path << kBitsOfTag | Pack(tag) : 0, tag, false};
    }
    void Pop() {
        --depth_;
    }
    // Replaces the containers that differ from those of the path, which is not 0. A <plist> that is
    // pushed contains an object.
    void SetPath(Path path) {
        const std::size_t before = depth_;
        depth_ = static_cast<std::size_t>(std::bit_width(path) - 1) / kBitsOfTag;
        for (std::size_t i = depth_; i > before || levels_[i].path != path; --i) {
            levels_[i] = {path, kTags[path % kTags.size()], true};
            path >>= kBitsOfTag;
        }
    }

private:
    static constexpr unsigned kBitsOfTag = 2;
    static constexpr std::array kTags = {XmlTag::kUnknown, XmlTag::kDict, XmlTag::kArray,
                                         XmlTag::kPlist};
    static constexpr Path kEmptyPath = 1; // marks the upper end of a path

    static Path Pack(XmlTag tag) {
        return tag == XmlTag::kDict ? 1 : tag == XmlTag::kArray ? 2 : 3;
    }

    struct Level {
        Path path; // of this level and all levels below
        XmlTag tag;
        bool hasObject;
    };
    std::array<Level, kMaximumDepth + 1> levels_; // level 0 is the document
    std::size_t depth_ = 0;
};

} // namespace cf

#endif
