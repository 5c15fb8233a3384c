#ifndef PLATFORM_XMLCONTAINERSTACK_H
#define PLATFORM_XMLCONTAINERSTACK_H

/* The stack of open containers of an XML property list: <plist>, <array>, <dict>. */

#include "plist/ListBuilder.h"
#include "plist/XmlTag.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace cf {

class XmlContainerStack {
public:
    // <plist> does not count as a level of the list.
    static constexpr std::size_t kMaximumDepth = kMaximumNesting + 1;

    // The tags of all open containers packed in one word, that of the innermost one in the lowest
    // bits; 0 if the stack is too deep for a word.
    using Path = std::uint64_t;

    XmlContainerStack() {
        levels_[0] = {kEmptyPath, XmlTag::kUnknown, false};
    }

    // The number of open containers.
    std::size_t Depth() const {
        return depth_;
    }
    // True outside of all containers.
    bool IsEmpty() const {
        return depth_ == 0;
    }
    // True if no further container may be opened.
    bool IsFull() const {
        const bool isInPlist = depth_ != 0 && levels_[1].tag == XmlTag::kPlist;
        return depth_ == kMaximumNesting + (isInPlist ? 1U : 0U);
    }
    // The tag of the innermost container; kUnknown if the stack is empty.
    XmlTag Tag() const {
        return levels_[depth_].tag;
    }
    // The tag of the container at that depth, from 1 to Depth().
    XmlTag TagAt(std::size_t depth) const {
        return levels_[depth].tag;
    }
    // The path of all open containers.
    Path CurrentPath() const {
        return levels_[depth_].path;
    }
    // True if the innermost container, a <plist>, already contains an object.
    bool HasObject() const {
        return levels_[depth_].hasObject;
    }
    // Marks the innermost container: HasObject() becomes true.
    void SetHasObject() {
        levels_[depth_].hasObject = true;
    }

    // Opens a container. Precondition: !IsFull().
    void Push(XmlTag tag) {
        const Path path = levels_[depth_].path;
        const bool fits = path != 0 && path >> (64 - kBitsOfTag) == 0;
        levels_[++depth_] = {fits ? path << kBitsOfTag | Pack(tag) : 0, tag, false};
    }
    // Closes the innermost container. Precondition: !IsEmpty().
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
