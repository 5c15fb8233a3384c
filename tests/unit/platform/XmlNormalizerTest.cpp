/* The normal form of XML property lists: repeated markup, numbers of keys, the stack of open
   containers. XmlReaderTest.cpp and XmlReaderCasesTest.cpp test the lists that are read from it. */

#include "plist/XmlNormalizer.h"

#include "Lists.h"
#include "XmlBatches.h"
#include "objects/SharedValues.h"
#include "plist/ListBuilder.h"
#include "plist/Parsing.h"
#include "plist/XmlContainerStack.h"
#include "plist/XmlKeyTable.h"
#include "plist/XmlMarkupCache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using cf::XmlTag;

// ---- repeated markup ----

// Random lists of few different elements: much of their markup is repeated.
class RandomList {
public:
    explicit RandomList(unsigned seed) : random_(seed) {}

    // The pieces of a list, each of which is a scalar or contains none.
    std::vector<std::string> Make(std::size_t members) {
        pieces_.clear();
        const bool hasPlist = Below(2) == 0;
        Add(hasPlist ? "<plist>" : "");
        Add("<array>");
        for (std::size_t i = 0; i < members; ++i)
            AddValue(0);
        Add("</array>");
        Add(hasPlist ? "</plist>" : "");
        if (Below(4) == 0)
            pieces_.insert(pieces_.begin() + Below(pieces_.size()), Choose(kFaults));
        if (Below(4) == 0)
            Cut();
        return pieces_;
    }

private:
    static constexpr std::array kScalars = {"<integer>1</integer>", "<integer>22</integer>",
                                            "<string>a</string>",   "<string>&lt;b</string>",
                                            "<string></string>",    "<key>k</key>",
                                            "<real>1.5</real>",     "<integer\n>3</integer>"};
    static constexpr std::array kFaults = {"<integer>x</integer>",
                                           "<integer>1<true/>",
                                           "<string>&x;</string>",
                                           "</dict>",
                                           "</array>",
                                           "<key>a</key>",
                                           "<dict>",
                                           "<foo>",
                                           "<integer/>",
                                           "<string>b</integer>",
                                           "<string>c<b></string>"};
    static constexpr std::array kKeys = {"<key>a</key>", "<key>k</key>", "<key>c&amp;</key>",
                                         "<key/>"};
    static constexpr std::array kSeparators = {"", "", "\n", "\n\t", " ", "\n\t\t\t\t\t\t\t\t"};

    int Below(std::size_t limit) {
        return static_cast<int>(random_() % limit);
    }
    template<std::size_t Size>
    const char* Choose(const std::array<const char*, Size>& choices) {
        return choices[static_cast<std::size_t>(Below(Size))];
    }
    void Cut() {
        pieces_.resize(static_cast<std::size_t>(Below(pieces_.size())) + 1);
        std::string& last = pieces_.back();
        last.resize(static_cast<std::size_t>(Below(last.size() + 1)));
    }
    void Add(const std::string& piece) {
        pieces_.push_back(Choose(kSeparators));
        pieces_.push_back(piece);
    }
    void AddContainer(const std::string& tag, int depth, bool hasKeys, int most) {
        Add("<" + tag + ">");
        for (int i = Below(static_cast<std::size_t>(most) + 1); i > 0; --i) {
            if (hasKeys)
                Add(Choose(kKeys));
            AddValue(depth);
        }
        Add("</" + tag + ">");
    }
    void AddValue(int depth) {
        const int kind = Below(depth < 4 ? 10 : 7);
        if (kind < 5)
            Add(Choose(kScalars));
        else if (kind == 5)
            Add(Below(2) == 0 ? "<true/>" : "<false/>");
        else if (kind == 6)
            Add("<string/>");
        else if (kind == 7)
            AddContainer("array", depth + 1, false, 3);
        else if (Below(10) > 0)
            AddContainer("dict", depth + 1, true, 3);
        else
            AddDeepContainers(depth + 1);
    }
    // A <plist>, and around it more levels than a path has bits for, or none.
    void AddDeepContainers(int depth) {
        const int levels = Below(2) == 0 ? 40 : 0;
        for (int i = 0; i < levels; ++i)
            Add("<array>");
        Add("<plist>");
        AddValue(depth);
        Add("</plist>");
        for (int i = 0; i < levels; ++i)
            Add("</array>");
    }

    std::mt19937 random_;
    std::vector<std::string> pieces_;
};

std::string Join(const std::vector<std::string>& pieces) {
    std::string text;
    for (const std::string& piece : pieces)
        text += piece;
    return text;
}

// The same list without repeated markup: a numbered comment is before each scalar.
std::string JoinWithComments(const std::vector<std::string>& pieces) {
    std::string text;
    int comments = 0;
    for (const std::string& piece : pieces) {
        if (piece.starts_with("<integer") || piece.starts_with("<string>") ||
            piece.starts_with("<real") || piece == "<key>k</key>")
            text += "<!--" + std::to_string(comments++) + "-->";
        text += piece;
    }
    return text;
}

TEST(XmlNormalizer, RepeatedMarkupIsReadLikeTheFirst) {
    int lists = 0;
    for (unsigned seed = 0; seed < 3000; ++seed) {
        const std::vector<std::string> pieces = RandomList(seed).Make(seed % 10 == 0 ? 200 : 20);
        const ReadResult repeated = ReadList(Join(pieces) + " ");
        const ReadResult unique = ReadList(JoinWithComments(pieces) + " ");
        ASSERT_EQ(repeated.error, unique.error) << seed << "\n" << Join(pieces);
        ASSERT_EQ(repeated.list.Get(), unique.list.Get()) << seed << "\n" << Join(pieces);
        lists += repeated.list ? 1 : 0;
    }
    EXPECT_GT(lists, 1000);
}

std::string Disc(const std::string& index) {
    return "\n<dict>\n<key>Index</key>\n<integer>" + index +
           "</integer>\n<key>Parts</key>\n<array>\n<dict>\n<key>Name</key>\n<string>p" + index +
           "</string>\n</dict>\n</array>\n</dict>";
}

TEST(XmlNormalizer, FaultBehindRepeatedMarkupIsReportedWithItsLine) {
    std::string discs = "<array>";
    for (int i = 0; i < 20; ++i)
        discs += Disc(std::to_string(i)); // 11 lines each
    const std::pair<std::string, std::string> endings[] = {
        {Disc("x") + "</array>", "Unknown character 'x' (0x78) in <integer> on line 224"},
        {Disc("x") + "<foo>", "Unknown character 'x' (0x78) in <integer> on line 224"},
        {"\n<dict>\n<key>Index</key>\n<integer>1",
         "Premature end of file after <integer> on line 224"},
        {"\n<dict>\n<key>Index</key>\n<integer>1</key>",
         "Close tag on line 224 does not match open tag integer"},
    };
    for (const auto& [ending, error] : endings)
        for (const std::size_t length : {std::size_t{1}, std::size_t{100}, std::size_t{16384}})
            EXPECT_EQ(ReadInBatches(discs + ending, length).error, error) << length;
}

TEST(XmlNormalizer, RepeatedMarkupReadInBatchesOfAnyLengthIsTheSame) {
    for (const char* pair : {"", "<key>b</key><integer>1</integer>"}) {
        std::string xml = "<array>";
        for (int i = 0; i < 8; ++i)
            xml += std::string("<dict><key>a</key><integer>12</integer>") + pair + "</dict>";
        xml += "</array>";
        const ReadResult expected = ReadList(xml);
        for (std::size_t length = 1; length < 100; ++length)
            ExpectSameInBatches(xml, length, expected);
    }
}

TEST(XmlNormalizer, RandomListReadInBatchesIsTheSame) {
    for (unsigned seed = 0; seed < 1000; ++seed) {
        const std::string xml = Join(RandomList(seed).Make(20)) + " ";
        const ReadResult expected = ReadList(xml);
        for (const std::size_t length : {1U, 30U, 200U})
            ExpectSameInBatches(xml, length, expected);
        ASSERT_FALSE(testing::Test::HasFailure()) << seed << "\n" << xml;
    }
}

// The text behind <key>d</key> equals the markup that is expected in its place.
TEST(XmlNormalizer, RepeatedMarkupBehindAKeyIsItsValue) {
    const std::string pair = "<key>c</key><integer>1</integer>";
    EXPECT_EQ(ReadList("<dict>" + pair + pair + pair + "<key>d</key>" + pair + "</dict>").error,
              "Found non-key inside <dict> at line 1");
}

TEST(XmlNormalizer, PlistOfRepeatedMarkupHasOneObject) {
    const std::string plist = "<integer>1</integer><plist><integer>2</integer>";
    std::string xml = "<array>";
    for (int i = 0; i < 4; ++i)
        xml += plist + "</plist>";
    EXPECT_TRUE(ReadList(xml + "</array>").list);
    EXPECT_EQ(ReadList(xml + plist + "<true/></plist></array>").error,
              "Encountered unexpected element at line 1 (plist can only include one object)");
}

TEST(XmlNormalizer, NormalFormRefersToKeysByNumber) {
    const std::string xml =
        "<plist><dict><key>name</key><string>a&amp;b</string><key>&lt;</key>"
        "<array><integer>1</integer><true/></array><key>name</key><dict/></dict></plist>";
    cf::XmlNormalizer normalizer(xml);
    const auto batch = normalizer.NextBatch();
    ASSERT_TRUE(batch);
    EXPECT_EQ(std::string_view(batch->text, batch->length),
              "<p><d>\x80\x80\x80\x80sa&b\xFE<a>\x81\x80\x80\x80i1\xFEt</a>"
              "<d>\x80\x80\x80\x80</d></d></p>");
    EXPECT_EQ(TextOf(static_cast<CFStringRef>(normalizer.KeyAt(0))), "name");
    EXPECT_EQ(TextOf(static_cast<CFStringRef>(normalizer.KeyAt(1))), "<");
    EXPECT_FALSE(normalizer.NextBatch());
}

TEST(XmlNormalizer, BatchClosesContainersThatTheNextBatchOpensAgain) {
    const std::string xml = "<plist><array><dict><key>a</key><integer>12</integer></dict>"
                            "<string>b</string><array/></array></plist>";
    cf::XmlNormalizer normalizer(xml, 17);
    struct Expected {
        std::string_view text;
        std::size_t openAtBegin;
        std::size_t openAtEnd;
    };
    const Expected expected[] = {
        {"<p><a><d>\x80\x80\x80\x80i12\xFE</d></a></p>", 0, 3},
        {"<p><a><d></d>sb\xFE<a></a></a></p>", 3, 2},
        {"<p><a></a></p>", 2, 0},
    };
    for (const Expected& each : expected) {
        const auto batch = normalizer.NextBatch();
        ASSERT_TRUE(batch);
        EXPECT_EQ(std::string_view(batch->text), each.text);
        EXPECT_EQ(batch->length, each.text.size());
        EXPECT_EQ(batch->openAtBegin, each.openAtBegin);
        EXPECT_EQ(batch->openAtEnd, each.openAtEnd);
    }
    EXPECT_FALSE(normalizer.NextBatch());
}

TEST(XmlNormalizer, FaultIsThrownBehindTheBatchBeforeIt) {
    cf::XmlNormalizer normalizer("<array><integer>1</integer><foo/></array>");
    const auto batch = normalizer.NextBatch();
    ASSERT_TRUE(batch);
    EXPECT_EQ(std::string_view(batch->text), "<a>i1\xFE</a>");
    EXPECT_EQ(batch->openAtEnd, 1U);
    for (int i = 0; i < 2; ++i)
        EXPECT_THROW(normalizer.NextBatch(), cf::XmlFault);
}

// ---- keys ----

cf::Value SharedText(const std::string& text) {
    return cf::Created(cf::SharedString(text));
}

TEST(XmlKeyTable, EqualTextsHaveOneNumber) {
    constexpr std::size_t kCount = 20000;
    cf::XmlKeyTable table;
    for (int repetition = 0; repetition < 2; ++repetition)
        for (std::size_t i = 0; i < kCount; ++i)
            ASSERT_EQ(table.NumberOf(SharedText(std::to_string(i))), i);
    for (std::size_t i = 0; i < kCount; ++i)
        ASSERT_EQ(table.KeyAt(i), SharedText(std::to_string(i)).Get());
}

TEST(XmlKeyTable, ReferenceGivesTheNumberAndHasNoAscii) {
    for (const std::size_t number :
         {0U, 1U, 0x7FU, 0x80U, 0x3FFFU, 0x4000U, 0x1FFFFFU, 0x200000U, 0xABCDEF1U, 0xFFFFFFFU}) {
        char reference[cf::kKeyReferenceLength];
        EXPECT_EQ(cf::WriteKeyReference(reference, number), reference + sizeof reference);
        EXPECT_EQ(cf::ReadKeyReference(reference), number);
        EXPECT_TRUE(std::ranges::all_of(reference, [](char byte) { return (byte & 0x80) != 0; }));
    }
}

// ---- the stack of containers ----

cf::XmlContainerStack StackOf(const std::vector<XmlTag>& tags) {
    cf::XmlContainerStack stack;
    for (const XmlTag tag : tags)
        stack.Push(tag);
    return stack;
}

TEST(XmlContainerStack, DifferentStacksHaveDifferentPaths) {
    std::vector<std::vector<XmlTag>> stacks = {{}};
    for (std::size_t i = 0; stacks[i].size() < 4; ++i) {
        for (const XmlTag tag : {XmlTag::kDict, XmlTag::kArray, XmlTag::kPlist}) {
            stacks.push_back(stacks[i]);
            stacks.back().push_back(tag);
        }
    }
    std::set<cf::XmlContainerStack::Path> paths;
    for (const auto& tags : stacks)
        paths.insert(StackOf(tags).CurrentPath());
    EXPECT_EQ(stacks.size(), 1U + 3 + 9 + 27 + 81);
    EXPECT_EQ(paths.size(), stacks.size());
}

TEST(XmlContainerStack, DeepStackHasNoPathUntilItIsShallowAgain) {
    cf::XmlContainerStack stack = StackOf(std::vector<XmlTag>(31, XmlTag::kArray));
    const cf::XmlContainerStack::Path path = stack.CurrentPath();
    EXPECT_NE(path, 0U);
    stack.Push(XmlTag::kDict);
    EXPECT_EQ(stack.CurrentPath(), 0U);
    stack.Push(XmlTag::kDict);
    EXPECT_EQ(stack.CurrentPath(), 0U);
    stack.Pop();
    stack.Pop();
    EXPECT_EQ(stack.CurrentPath(), path);
}

TEST(XmlContainerStack, SetPathGivesTheStackWithThatPath) {
    const std::vector<XmlTag> tags[] = {
        {},
        {XmlTag::kDict},
        {XmlTag::kPlist, XmlTag::kDict, XmlTag::kArray, XmlTag::kDict},
        {XmlTag::kPlist, XmlTag::kArray, XmlTag::kArray, XmlTag::kDict},
        {XmlTag::kPlist, XmlTag::kDict},
        {XmlTag::kArray, XmlTag::kPlist},
    };
    for (const auto& before : tags) {
        for (const auto& after : tags) {
            cf::XmlContainerStack stack = StackOf(before);
            stack.SetPath(StackOf(after).CurrentPath());
            ASSERT_EQ(stack.Depth(), after.size());
            for (std::size_t i = after.size(); i > 0; --i) {
                EXPECT_EQ(stack.Tag(), after[i - 1]);
                stack.Pop();
            }
            EXPECT_TRUE(stack.IsEmpty());
        }
    }
}

TEST(XmlContainerStack, SetPathReplacesContainersBelowOneThatWasPopped) {
    cf::XmlContainerStack stack = StackOf({XmlTag::kArray, XmlTag::kArray});
    const cf::XmlContainerStack::Path path = stack.CurrentPath();
    stack.Pop();
    stack.Pop();
    stack.Push(XmlTag::kDict);
    stack.SetPath(path);
    EXPECT_EQ(stack.Tag(), XmlTag::kArray);
    stack.Pop();
    EXPECT_EQ(stack.Tag(), XmlTag::kArray);
}

// ---- the cache ----

const cf::XmlContainerStack::Path kPath = StackOf({XmlTag::kArray}).CurrentPath();
const cf::XmlContainerStack::Path kOtherPath = StackOf({XmlTag::kDict}).CurrentPath();

cf::XmlMarkup Markup(std::string_view source, cf::XmlContainerStack::Path before = kPath) {
    return {source, 0, source, 0, XmlTag::kInteger, before, kPath};
}

TEST(XmlMarkupCache, SuccessorOfTheLastEntryMatchesItsTextAndPath) {
    cf::XmlMarkupCache cache;
    EXPECT_EQ(cache.MatchSuccessor("<a>", kPath), nullptr);
    for (const std::string_view source : {"<a>", "<b>", "<a>"})
        cache.Add(Markup(source));
    EXPECT_EQ(cache.MatchSuccessor("<a>", kPath), nullptr);
    EXPECT_EQ(cache.MatchSuccessor("<b", kPath), nullptr);
    EXPECT_EQ(cache.MatchSuccessor("<b>", kOtherPath), nullptr);
    const cf::XmlMarkup* markup = cache.MatchSuccessor("<b>1", kPath);
    ASSERT_NE(markup, nullptr);
    EXPECT_EQ(markup->source, "<b>");
    EXPECT_EQ(cache.MatchSuccessor("<b>", kPath), nullptr);
    EXPECT_NE(cache.MatchSuccessor("<a>", kPath), nullptr);
}

TEST(XmlMarkupCache, EqualTextWithAnotherPathIsAnotherEntry) {
    cf::XmlMarkupCache cache;
    for (const auto path : {kPath, kOtherPath, kOtherPath})
        cache.Add(Markup("<a>", path));
    EXPECT_EQ(cache.MatchSuccessor("<a>", kPath), nullptr);
    EXPECT_NE(cache.MatchSuccessor("<a>", kOtherPath), nullptr);
}

std::vector<std::string> DifferentSources(std::size_t count) {
    std::vector<std::string> sources;
    for (std::size_t i = 0; i < count; ++i)
        sources.push_back("<" + std::to_string(i) + ">");
    return sources;
}

// Looks up that many different entries and adds the missing ones. Returns the number of matches in
// the last iteration.
std::size_t CountMatches(std::size_t entries, int iterations) {
    const std::vector<std::string> sources = DifferentSources(entries);
    cf::XmlMarkupCache cache;
    std::size_t matches = 0;
    for (int i = 0; i < iterations; ++i) {
        matches = 0;
        for (const std::string& source : sources)
            if (cache.MatchSuccessor(source, kPath) != nullptr)
                ++matches;
            else
                cache.Add(Markup(source));
    }
    return matches;
}

TEST(XmlMarkupCache, EntriesUpToTheCapacityAllMatch) {
    constexpr std::size_t kCapacity = cf::XmlMarkupCache::kCapacity;
    EXPECT_EQ(CountMatches(kCapacity, 1), 0U);
    EXPECT_EQ(CountMatches(kCapacity, 2), kCapacity - 1); // the first does not yet succeed the last
    EXPECT_EQ(CountMatches(kCapacity, 3), kCapacity);
    EXPECT_LT(CountMatches(kCapacity + 1, 3), kCapacity);
}

TEST(XmlMarkupCache, FullCacheTakesNewEntries) {
    cf::XmlMarkupCache cache;
    const auto sources = DifferentSources(3 * cf::XmlMarkupCache::kCapacity);
    for (const std::string& source : sources)
        cache.Add(Markup(source));
    for (const char* source : {"<a>", "<b>", "<a>", "<b>"})
        cache.Add(Markup(source));
    EXPECT_NE(cache.MatchSuccessor("<a>", kPath), nullptr);
    EXPECT_NE(cache.MatchSuccessor("<b>", kPath), nullptr);
}

TEST(XmlMarkupCache, NormalFormIsCopied) {
    std::string normalForm = "abc";
    cf::XmlMarkup markup = Markup("<a>");
    markup.normalForm = normalForm;
    cf::XmlMarkupCache cache;
    cache.Add(markup);
    cache.Add(markup);
    normalForm = "xyz";
    const cf::XmlMarkup* cached = cache.MatchSuccessor("<a>", kPath);
    ASSERT_NE(cached, nullptr);
    EXPECT_EQ(cached->normalForm, "abc");
}

TEST(XmlMarkupCache, NormalFormOfTheMaximumLengthIsCachedAndNoLongerOne) {
    for (const std::size_t excess : {0U, 1U}) {
        const std::string normalForm(cf::XmlMarkupCache::kMaximumLength + excess, 'a');
        cf::XmlMarkup markup = Markup("<a>");
        markup.normalForm = normalForm;
        cf::XmlMarkupCache cache;
        cache.Add(markup);
        cache.Add(markup);
        EXPECT_EQ(cache.MatchSuccessor("<a>", kPath) != nullptr, excess == 0);
    }
}

TEST(XmlMarkupCache, MarkupWithoutAPathIsIgnored) {
    cf::XmlMarkupCache cache;
    cf::XmlMarkup endsDeep = Markup("<a>");
    endsDeep.after = 0;
    for (int i = 0; i < 3; ++i) {
        cache.Add(endsDeep);
        cache.Add(Markup("<a>", 0));
    }
    EXPECT_EQ(cache.MatchSuccessor("<a>", kPath), nullptr);
    EXPECT_EQ(cache.MatchSuccessor("<a>", 0), nullptr);
}

} // namespace
