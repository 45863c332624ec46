#include "markup/characters.h"

#include <string>

#include <gtest/gtest.h>

namespace {

/// All bytes of a class, in their order.
std::string MembersOf(const CharacterClass& isOf) {
    std::string members;
    for (int byte = 0; byte < 256; ++byte) {
        if (isOf.Has(static_cast<char>(byte))) members += static_cast<char>(byte);
    }
    return members;
}

std::string Bytes(int first, int last) {
    std::string bytes;
    for (int byte = first; byte <= last; ++byte) bytes += static_cast<char>(byte);
    return bytes;
}

}  // namespace

TEST(CharacterClass, HoldsTheBytesOfTheStructure) {
    EXPECT_EQ(MembersOf(whiteSpace), "\t\n\r ");
    EXPECT_EQ(MembersOf(nameStart), ":" + Bytes('A', 'Z') + "_" + Bytes('a', 255));
    EXPECT_EQ(MembersOf(tagNameEnd), "\t\n\r />");
    EXPECT_EQ(MembersOf(pathNameEnd), " /=[]");
    EXPECT_EQ(MembersOf(openNameEnd), "\t\n\r /=>[]");
    EXPECT_EQ(MembersOf(beforeEmptySlash), "\t\n\r \"'");
}

TEST(CharacterClass, HoldsTheBytesOfReferences) {
    const std::string letters = Bytes('A', 'Z') + "_" + Bytes('a', 'z') + Bytes(128, 255);
    EXPECT_EQ(MembersOf(referenceNameStart), "#:" + letters);
    EXPECT_EQ(MembersOf(referenceName), "-." + Bytes('0', '9') + ":" + letters);
}

TEST(CharacterClass, HoldsTheBytesThatEndAttributesAndWords) {
    EXPECT_EQ(MembersOf(attributeNameEnd), "\t\n\r /=>?");
    EXPECT_EQ(MembersOf(unquotedValueEnd), "\t\n\r >");
    EXPECT_EQ(MembersOf(wordEnd), "\t\n\r !\"'/;<=>?\\");
}

TEST(CharacterClass, IsMadeOfTheBytesThatItIsGiven) {
    EXPECT_EQ(MembersOf(CharacterClass{""}), "");
    EXPECT_EQ(MembersOf(CharacterClass{"ba"}), "ab");
    EXPECT_EQ(MembersOf(CharacterClass{"", true}), Bytes(128, 255));
    EXPECT_EQ(MembersOf(CharacterClass{"\xFF"}), "\xFF");
}

TEST(CharacterClass, FindsItsMembersInATextAndWhatIsInFrontOfThem) {
    constexpr CharacterClass kEnd{";,"};
    for (const std::string_view text : {"ab;c,", ";", "ab", ""}) {
        const size_t place = std::min(text.find_first_of(";,"), text.size());
        EXPECT_EQ(kEnd.FrontOf(text), text.substr(0, place)) << text;
        EXPECT_EQ(kEnd.IsIn(text), place < text.size()) << text;
    }
}

TEST(Lower, ChangesTheTwentySixCapitalsOnly) {
    for (int byte = 0; byte < 256; ++byte) {
        const auto character = static_cast<char>(byte);
        const bool isCapital = byte >= 'A' && byte <= 'Z';
        EXPECT_EQ(Lower(character), static_cast<char>(isCapital ? byte + 32 : byte)) << byte;
    }
}
