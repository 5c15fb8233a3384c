#include "Notification.h"

#include "ChangerServerConnectionLib/ChangerServerNotifications.h"
#include "ChangerServerConnectionLib/FrameAssembly.h"
#include "trayprobed/MediaIdManager.h"
#include "trayprobed/MediaIdState.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <stdexcept>

namespace bench {
namespace {

constexpr CFIndex kChunkSize = 65536;

void Assemble(const UInt8* bytes, CFIndex length, ChangerNotificationSubscription* subscription) {
    CFIndex used = 0;
    if (HandleNotificationSocketData(bytes, length, &used, subscription) != nullptr ||
        used != length) {
        throw std::runtime_error("a notification cannot be delivered");
    }
}

} // namespace

void AddChangers(const ChangerInfoGenerator& generator) {
    for (std::size_t i = 0; i < generator.CountChangers(); ++i) {
        SInt32 isKnown = 0;
        if (IsChangerInList(ChangerInfoGenerator::GuidOf(i), &isKnown) != nullptr ||
            (!isKnown && AddChangerToList(ChangerInfoGenerator::GuidOf(i)) != nullptr)) {
            throw std::runtime_error("a changer cannot be added");
        }
    }
}

void RequireDelivered(const ChangerInfoGenerator& generator) {
    const auto slots = generator.CountDiscs() / generator.CountChangers();
    SInt32 identified = 0;
    SInt32 hasFileSystem = 0;
    if (MediaHasMountablePartitions(ChangerInfoGenerator::GuidOf(generator.CountChangers() - 1),
                                    static_cast<UInt16>(slots - 1), &identified,
                                    &hasFileSystem) != nullptr ||
        !identified || !hasFileSystem) {
        throw std::runtime_error("a notification was not kept");
    }
}

Notification::Notification(const std::string& text)
    : text_(CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                         static_cast<CFIndex>(text.size()))),
      frame_(CreateFrame(text_)) {}

Notification::~Notification() {
    CFRelease(text_);
    CFRelease(frame_);
}

CFPropertyListRef Notification::Create() const {
    CFPropertyListRef list = CFPropertyListCreateFromXMLData(kCFAllocatorDefault, text_,
                                                             kCFPropertyListImmutable, nullptr);
    if (list == nullptr)
        throw std::runtime_error("a notification cannot be read");
    return list;
}

void Notification::Parse() const {
    CFRelease(Create());
}

void Notification::Leak() const {
    Create();
}

double Notification::Deliver() const {
    ChangerNotificationSubscription subscription = {};
    subscription.changerInfoCallBack = ChangerInfoNotificationCallBack;
    const UInt8* bytes = CFDataGetBytePtr(frame_);
    const CFIndex last = CFDataGetLength(frame_) - 1;
    // In chunks, as from a socket. If the frame came as one chunk, its buffer would have no spare
    // byte, and the last byte would cause a copy of the whole frame.
    for (CFIndex begin = 0; begin < last; begin += kChunkSize)
        Assemble(bytes + begin, std::min(kChunkSize, last - begin), &subscription);
    const auto start = std::chrono::steady_clock::now();
    Assemble(bytes + last, 1, &subscription);
    const auto end = std::chrono::steady_clock::now();
    return std::chrono::duration<double>(end - start).count();
}

} // namespace bench
