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

void Gather(const UInt8* bytes, CFIndex length, ChangerNotificationSubscription* subscription) {
    CFIndex used = 0;
    if (HandleNotificationSocketData(bytes, length, &used, subscription) != nullptr ||
        used != length) {
        throw std::runtime_error("a notification cannot be delivered");
    }
}

} // namespace

void KnowChangers(const ChangerInfoGenerator& shelf) {
    for (std::size_t i = 0; i < shelf.CountChangers(); ++i) {
        SInt32 isKnown = 0;
        if (IsChangerInList(ChangerInfoGenerator::GuidOf(i), &isKnown) != nullptr ||
            (!isKnown && AddChangerToList(ChangerInfoGenerator::GuidOf(i)) != nullptr)) {
            throw std::runtime_error("a changer cannot be known");
        }
    }
}

void RequireKept(const ChangerInfoGenerator& shelf) {
    const auto slots = shelf.CountDiscs() / shelf.CountChangers();
    SInt32 identified = 0;
    SInt32 hasFileSystem = 0;
    if (MediaHasMountablePartitions(ChangerInfoGenerator::GuidOf(shelf.CountChangers() - 1),
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

void Notification::Read() const {
    CFRelease(Create());
}

void Notification::Keep() const {
    Create();
}

double Notification::Deliver() const {
    ChangerNotificationSubscription subscription = {};
    subscription.changerInfoCallBack = ChangerInfoNotificationCallBack;
    const UInt8* bytes = CFDataGetBytePtr(frame_);
    const CFIndex most = CFDataGetLength(frame_) - 1;
    // In chunks, as a socket hands it out. Memory for a frame that came as one chunk would have no
    // byte to spare, and the last byte would have all of it copied.
    for (CFIndex begin = 0; begin < most; begin += kChunkSize)
        Gather(bytes + begin, std::min(kChunkSize, most - begin), &subscription);
    const auto start = std::chrono::steady_clock::now();
    Gather(bytes + most, 1, &subscription);
    const auto end = std::chrono::steady_clock::now();
    return std::chrono::duration<double>(end - start).count();
}

} // namespace bench
