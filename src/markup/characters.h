#pragma once

#include <array>
#include <cstdint>
#include <string_view>

// Classes of characters of the markup engine: of bytes, whatever the encoding; those of 128 and above
// count as letters.

/// A set of bytes.
class CharacterClass {
  public:
    /// All bytes of `members` and, if `withHigh`, all of 128 and above.
    constexpr explicit CharacterClass(std::string_view members, bool withHigh = false) {
        for (const char member : members) m_Holds[static_cast<unsigned char>(member)] = true;
        for (unsigned byte = 128; withHigh && byte < 256; ++byte) m_Holds[byte] = true;
    }
    [[nodiscard]] constexpr bool operator()(char character) const {
        return m_Holds[static_cast<unsigned char>(character)];
    }

  private:
    std::array<bool, 256> m_Holds{};
};

inline constexpr CharacterClass kIsWhiteSpace{"\t\n\r "};
inline constexpr CharacterClass kIsNameStart{
    ":_ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz{|}~\x7f", true};
inline constexpr CharacterClass kIsTagNameEnd{"\t\n\r />"};
inline constexpr CharacterClass kIsPathNameEnd{" /=[]"};
inline constexpr CharacterClass kIsBeforeEmptySlash{"\t\n\r \"'"};
inline constexpr CharacterClass kIsReferenceNameStart{
    "#:_ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", true};
inline constexpr CharacterClass kIsReferenceName{
    "-.:_0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", true};
inline constexpr CharacterClass kIsAttributeNameEnd{"\t\n\r /=>?"};
inline constexpr CharacterClass kIsUnquotedValueEnd{"\t\n\r >"};
inline constexpr CharacterClass kIsWordEnd{"\t\n\r !\"'/;<=>?\\"};

/// The letter in lower case, if it is one of A to Z.
constexpr char Lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
}
