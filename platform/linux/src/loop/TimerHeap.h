#ifndef PLATFORM_TIMERHEAP_H
#define PLATFORM_TIMERHEAP_H

namespace cf {

struct Timer;
class TimerHeap;

// Where a timer is in a heap. It lies in the timer itself, so that no heap allocates.
struct HeapLinks {
    TimerHeap* heap = nullptr; // nullptr: in none, and the other members mean nothing
    Timer* child = nullptr;    // the first one
    Timer* sibling = nullptr;  // the next one, but for the root, which has none
    Timer* previous = nullptr; // the sibling before; of a first child, the parent
};

// Timers by date, those of equal date in the order in which they joined their loop. A pairing heap:
// inserting takes constant time, removing on average the logarithm of the count. A timer is in one
// heap at most, and its date does not change meanwhile.
class TimerHeap {
public:
    Timer* First() const noexcept {
        return root_;
    }
    void Insert(Timer& timer) noexcept;
    void Remove(Timer& timer) noexcept;

private:
    Timer* root_ = nullptr;
};

} // namespace cf

#endif
