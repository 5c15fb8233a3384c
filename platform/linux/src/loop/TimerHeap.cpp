#include "loop/TimerHeap.h"

#include "loop/RunLoopTimer.h"

#include <utility>

namespace cf {
namespace {

bool ComesBefore(const Timer& first, const Timer& second) noexcept {
    return first.date != second.date ? first.date < second.date : first.order < second.order;
}

// One tree of two, either of which may be none: the later root becomes the first child of the
// earlier one.
Timer* Meld(Timer* first, Timer* second) noexcept {
    if (first == nullptr || second == nullptr)
        return first != nullptr ? first : second;
    if (ComesBefore(*second, *first))
        std::swap(first, second);
    HeapLinks& parent = first->links;
    HeapLinks& child = second->links;
    child.previous = first;
    child.sibling = std::exchange(parent.child, second);
    if (child.sibling != nullptr)
        child.sibling->links.previous = second;
    return first;
}

// One tree of a list of siblings: of each two next to each other first, which is what keeps
// removals cheap, then of all of these.
Timer* MeldSiblings(Timer* tree) noexcept {
    Timer* pairs = nullptr;
    while (tree != nullptr) {
        Timer* const second = tree->links.sibling;
        Timer* const rest = second != nullptr ? second->links.sibling : nullptr;
        Timer* const pair = Meld(tree, second);
        pair->links.sibling = std::exchange(pairs, pair);
        tree = rest;
    }
    Timer* melded = nullptr;
    while (pairs != nullptr) {
        Timer* const rest = pairs->links.sibling;
        melded = Meld(melded, pairs);
        pairs = rest;
    }
    return melded;
}

// Takes a tree that is not the root's out of its list of siblings.
void Unlink(Timer& tree) noexcept {
    const HeapLinks& links = tree.links;
    HeapLinks& previous = links.previous->links;
    (previous.child == &tree ? previous.child : previous.sibling) = links.sibling;
    if (links.sibling != nullptr)
        links.sibling->links.previous = links.previous;
}

} // namespace

void TimerHeap::Insert(Timer& timer) noexcept {
    timer.links = {this, nullptr, nullptr, nullptr};
    root_ = Meld(root_, &timer);
}

void TimerHeap::Remove(Timer& timer) noexcept {
    Timer* const below = MeldSiblings(timer.links.child);
    if (root_ == &timer) {
        root_ = below;
    } else {
        Unlink(timer);
        root_ = Meld(root_, below);
    }
    timer.links.heap = nullptr;
}

} // namespace cf
