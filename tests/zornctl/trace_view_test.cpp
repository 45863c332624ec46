#include "zornctl/command/trace_view.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "zornctl/trace_samples.h"

using namespace zornctl;

namespace {

/// A look at a file whose pieces have these texts, in the file in the order given and in time too.
std::unique_ptr<TraceLook> Look(const std::string& identity, const std::string& head,
                                const std::string& newest) {
    auto look = std::make_unique<TraceLook>();
    look->identity = identity;
    look->file = head + newest;
    const std::string_view file = look->file;
    look->entries = SplitEntries({{TracePart::kHead, file.substr(0, head.size())},
                                  {TracePart::kNewest, file.substr(head.size())}});
    return look;
}

TEST(FormatEntry, EscapesEachLineOfItsText) {
    const auto look = Look("a", "", "\x1b[2J\n\xff\n" + Line(1, "b"));
    EXPECT_EQ(FormatEntry(look->entries.at(0), {}), "\\x1b[2J\n\\xff\n");
    EXPECT_EQ(FormatEntry(look->entries.at(1), {}), Line(1, "b"));
}

TEST(FormatEntry, MarksAnEntryThatIsCut) {
    const auto entries = SplitEntries({{TracePart::kOlder, "rest ERROR\n", true}});
    EXPECT_EQ(FormatEntry(entries.at(0), {}), "[...] rest ERROR\n");
    EXPECT_EQ(FormatEntry(entries.at(0), {.width = 0, .hasColour = true}),
              "\x1b[31m[...] rest ERROR\x1b[0m\n");
}

TEST(EntryObject, HoldsTheTextAsItIsOrReversiblyEscaped) {
    const auto look = Look("a", Line(1, "a\\\tb"), Line(2, "a\\\tb\xff"));
    const auto plain = EntryObject(look->entries.at(0));
    EXPECT_EQ(plain["text"], "a\\\tb");
    EXPECT_EQ(plain["escaped"], false);
    const auto escaped = EntryObject(look->entries.at(1));
    EXPECT_EQ(escaped["text"], "a\\\\\\tb\\xff");
    EXPECT_EQ(escaped["escaped"], true);
}

TEST(FindUnseen, TakesAllForNewWhereNothingWasSeen) {
    const auto unseen = FindUnseen(*Look("a", Line(1, "head"), Line(2, "b")), std::nullopt);
    EXPECT_EQ(unseen.kind, Unseen::Kind::kAnew);
    EXPECT_EQ(unseen.first, 0u);
}

TEST(FindUnseen, IsWhatStandsBehindTheLastOneSeen) {
    const auto seen = MarkOf(*Look("a", Line(1, "head"), Line(2, "b")));
    const auto same = FindUnseen(*Look("a", Line(1, "head"), Line(2, "b")), seen);
    EXPECT_EQ(same.kind, Unseen::Kind::kMore);
    EXPECT_EQ(same.first, 2u);
    const auto more = FindUnseen(*Look("a", Line(1, "head"), Line(2, "b") + Line(2, "b")), seen);
    EXPECT_EQ(more.kind, Unseen::Kind::kMore);
    EXPECT_EQ(more.first, 2u);
}

TEST(FindUnseen, TellsALossAndShowsThePassesWhereTheLastOneWasOverwritten) {
    const auto seen = MarkOf(*Look("a", Line(1, "head"), Line(2, "b")));
    const auto lost = FindUnseen(*Look("a", Line(1, "head"), Line(9, "c") + Line(10, "d")), seen);
    EXPECT_EQ(lost.kind, Unseen::Kind::kLost);
    EXPECT_EQ(lost.first, 1u) << "the head was seen";
}

TEST(FindUnseen, TakesAllForNewWhereAnotherServiceWrites) {
    const auto seen = MarkOf(*Look("a", Line(1, "head"), Line(2, "b")));
    const auto anew = FindUnseen(*Look("b", Line(1, "head"), Line(2, "b")), seen);
    EXPECT_EQ(anew.kind, Unseen::Kind::kAnew);
    EXPECT_EQ(anew.first, 0u);
    EXPECT_EQ(FindUnseen(*Look("", "", ""), seen).kind, Unseen::Kind::kAnew) << "emptied";
}

TEST(FindUnseen, KeepsItsPlaceWhereTheIdentityIsUnknown) {
    const auto seen = MarkOf(*Look("a", Line(1, "head"), Line(2, "b")));
    const auto more = FindUnseen(*Look("", Line(1, "head"), Line(2, "b") + Line(3, "c")), seen);
    EXPECT_EQ(more.kind, Unseen::Kind::kMore);
    EXPECT_EQ(more.first, 2u);
}

TEST(MarkOf, IsEmptyForAnEmptyFile) {
    EXPECT_FALSE(MarkOf(*Look("", "", "")));
}

}  // namespace
