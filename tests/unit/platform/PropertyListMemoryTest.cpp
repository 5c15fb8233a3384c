/* Lists read and written with each allocation failing in turn. */

#include "AllocationFaults.h"
#include "Lists.h"
#include "Urls.h"
#include "XmlBatches.h"
#include "objects/SharedTable.h"
#include "support/TemporaryTree.h"

#include <gtest/gtest.h>
#include <plist/plist.h>
#include <pugixml.hpp>

#include <cstdint>
#include <cstdlib>
#include <new>
#include <string>

namespace {

// Values of every type, dictionaries with equal keys, a key twice, more pairs than are compared one
// by one, and an array stored in several pieces.
std::string XmlListOfEveryType() {
    std::string xml =
        "<dict><key>a&amp;b</key><array><string>x<![CDATA[y]]></string>"
        "<integer>9223372036854775000</integer><integer>18446744073709551615</integer>"
        "<real>1.5</real><date>2004-11-29T21:33:09Z</date><data>AQID</data><true/>"
        "<array/><dict/><dict><key>k</key><true/></dict><dict><key>k</key><false/></dict></array>";
    for (int i = 0; i < 40; ++i)
        xml += "<key>" + std::to_string(i % 39) + "</key><string>value</string>";
    xml += "<key>alike</key><array>";
    for (int i = 0; i < 20; ++i)
        xml += "<dict><key>k</key><string>" + std::to_string(i) + "</string></dict>";
    xml += "</array><key>long</key><array>";
    for (int i = 0; i < 70; ++i)
        xml += "<integer>" + std::to_string(i) + "</integer>";
    return xml + "</array></dict>";
}

std::string BinaryListOfEveryType() {
    const std::string xml = XmlOf(ReadList(XmlListOfEveryType()).list.Get());
    plist_t list = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &list);
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(list, &bytes, &length);
    std::string binary(bytes, length);
    std::free(bytes);
    plist_free(list);
    return binary;
}

class PropertyListMemory : public testing::Test {
protected:
    // The fault seam covers pugixml, a shared library, only if it allocates by functions of the
    // test program.
    PropertyListMemory() {
        pugi::set_memory_management_functions([](std::size_t size) { return std::malloc(size); },
                                              [](void* memory) { std::free(memory); });
    }
    ~PropertyListMemory() override {
        pugi::set_memory_management_functions(allocate_, free_);
    }

    // A list is complete, or there is none and no shared value stays. Returns the number of reads.
    template<typename Read>
    std::size_t Sweep(const std::string& bytes, Read read) {
        const std::string expected = XmlOf(ReadList(bytes).list.Get());
        const std::size_t sharedValues = cf::MeasureSharedTable().values;
        CFPropertyListRef list = nullptr;
        return SweepAllocationFaults([&](std::size_t) { list = read(); },
                                     [&](std::size_t nth, bool happened) {
                                         EXPECT_EQ(text_, nullptr) << nth;
                                         if (list != nullptr || !happened)
                                             EXPECT_EQ(XmlOf(list), expected) << nth;
                                         CFRelease(list);
                                         EXPECT_EQ(cf::MeasureSharedTable().values, sharedValues)
                                             << nth;
                                     });
    }

    void SweepReading(const std::string& bytes, CFOptionFlags mutability) {
        const CFOwned data = Bytes(bytes);
        const std::size_t runs = Sweep(bytes, [&] {
            return CFPropertyListCreateFromXMLData(nullptr, data.Get(), mutability, &text_);
        });
        EXPECT_GT(runs, 20U);
    }

private:
    CFStringRef text_ = nullptr; // the error of the last read
    const pugi::allocation_function allocate_ = pugi::get_memory_allocation_function();
    const pugi::deallocation_function free_ = pugi::get_memory_deallocation_function();
};

TEST_F(PropertyListMemory, XmlIsReadWholeOrNotAtAll) {
    SweepReading(XmlListOfEveryType(), kCFPropertyListImmutable);
    SweepReading(XmlListOfEveryType(), kCFPropertyListMutableContainersAndLeaves);
}

TEST_F(PropertyListMemory, XmlInBatchesIsReadWholeOrNotAtAll) {
    const std::string xml = XmlListOfEveryType();
    const std::size_t runs = Sweep(xml, [&]() -> CFPropertyListRef {
        try {
            return ReadInBatches(xml, 100).list.Detach();
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    });
    EXPECT_GT(runs, 50U);
}

TEST_F(PropertyListMemory, XmlOfOtherEncodingsIsReadWholeOrNotAtAll) {
    SweepReading("<?xml version='1.0' encoding='ISO-8859-1'?>" + XmlListOfEveryType(),
                 kCFPropertyListImmutable);
    std::string utf16 = "\xFF\xFE";
    for (const char character : XmlListOfEveryType())
        (utf16 += character) += '\0';
    SweepReading(utf16, kCFPropertyListImmutable);
}

TEST_F(PropertyListMemory, BinaryIsReadWholeOrNotAtAll) {
    SweepReading(BinaryListOfEveryType(), kCFPropertyListImmutable);
    SweepReading(BinaryListOfEveryType(), kCFPropertyListMutableContainersAndLeaves);
}

TEST_F(PropertyListMemory, RefusalOfXmlGivesItsTextOrNone) {
    // Two of the dictionaries are pending when the list is refused.
    const CFOwned data =
        Bytes("<dict><key>a</key><array><dict><key>k</key><string>1</string></dict>"
              "<dict><key>k</key><string>2</string></dict>"
              "<dict><key>k</key><string>3</string></dict><integer>c</integer>");
    const std::size_t sharedValues = cf::MeasureSharedTable().values;
    CFStringRef text = nullptr;
    CFPropertyListRef list = nullptr;
    SweepAllocationFaults(
        [&](std::size_t) { list = CFPropertyListCreateFromXMLData(nullptr, data.Get(), 0, &text); },
        [&](std::size_t nth, bool happened) {
            EXPECT_EQ(list, nullptr) << nth;
            if (text != nullptr || !happened)
                EXPECT_EQ(TextOf(text), "Hex digit in non-hex <integer> on line 1") << nth;
            CFRelease(text);
            EXPECT_EQ(cf::MeasureSharedTable().values, sharedValues) << nth;
        });
}

TEST_F(PropertyListMemory, XmlIsWrittenWholeOrNotAtAll) {
    const ReadResult source = ReadList(XmlListOfEveryType());
    const std::string expected = XmlOf(source.list.Get());
    CFDataRef written = nullptr;
    const std::size_t runs = SweepAllocationFaults(
        [&](std::size_t) { written = CFPropertyListCreateXMLData(nullptr, source.list.Get()); },
        [&](std::size_t nth, bool happened) {
            EXPECT_NE(written == nullptr, !happened) << nth;
            if (written != nullptr)
                EXPECT_EQ(static_cast<std::size_t>(CFDataGetLength(written)), expected.size());
            CFRelease(written);
        });
    EXPECT_GT(runs, 5U);
}

TEST_F(PropertyListMemory, FileIsReadWholeOrNotAtAll) {
    const TemporaryTree tree;
    tree.Write("list.plist", XmlListOfEveryType());
    const CFOwned url(CreateUrl(tree.Path("list.plist")));
    const std::size_t runs = Sweep(XmlListOfEveryType(), [&] {
        CFPropertyListRef list = nullptr;
        CFReadStreamRef stream = CFReadStreamCreateWithFile(nullptr, url.Get());
        if (stream != nullptr && CFReadStreamOpen(stream))
            list = CFPropertyListCreateFromStream(nullptr, stream, 0, 0, nullptr, nullptr);
        CFRelease(stream);
        return list;
    });
    EXPECT_GT(runs, 20U);
}

} // namespace
