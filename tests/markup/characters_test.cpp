#include "markup/characters.h"

#include <string>

#include <gtest/gtest.h>

namespace {

/// All bytes of a class, in their order.
std::string MembersOf(const CharacterClass& isOf) {
    std::string members;
    for (int byte = 0; byte < 256; ++byte) {
        if (isOf(static_cast<char>(byte))) members += static_cast<char>(byte);
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
    EXPECT_EQ(MembersOf(kIsWhiteSpace), "\t\n\r ");
    EXPECT_EQ(MembersOf(kIsNameStart), ":" + Bytes('A', 'Z') + "_" + Bytes('a', 255));
    EXPECT_EQ(MembersOf(kIsTagNameEnd), "\t\n\r />");
    EXPECT_EQ(MembersOf(kIsPathNameEnd), " /=[]");
    EXPECT_EQ(MembersOf(kIsBeforeEmptySlash), "\t\n\r \"'");
}

TEST(CharacterClass, IsMadeOfTheBytesThatItIsGiven) {
    EXPECT_EQ(MembersOf(CharacterClass{""}), "");
    EXPECT_EQ(MembersOf(CharacterClass{"ba"}), "ab");
    EXPECT_EQ(MembersOf(CharacterClass{"", true}), Bytes(128, 255));
    EXPECT_EQ(MembersOf(CharacterClass{"\xFF"}), "\xFF");
}

TEST(Lower, ChangesTheTwentySixCapitalsOnly) {
    for (int byte = 0; byte < 256; ++byte) {
        const auto character = static_cast<char>(byte);
        const bool isCapital = byte >= 'A' && byte <= 'Z';
        EXPECT_EQ(Lower(character), static_cast<char>(isCapital ? byte + 32 : byte)) << byte;
    }
}
