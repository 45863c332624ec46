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
    [[nodiscard]] constexpr bool Has(char character) const {
        return m_Holds[static_cast<unsigned char>(character)];
    }

    /// What stands in front of the first of them, or the whole text.
    [[nodiscard]] constexpr std::string_view FrontOf(std::string_view text) const {
        size_t end = 0;
        while (end < text.size() && !Has(text[end])) ++end;
        return text.substr(0, end);
    }

    /// Whether one of them is in the text. Looks at all of it: for short ones.
    [[nodiscard]] constexpr bool IsIn(std::string_view text) const {
        bool isIn = false;
        for (const char character : text) isIn |= Has(character);
        return isIn;
    }

  private:
    std::array<bool, 256> m_Holds{};
};

inline constexpr CharacterClass whiteSpace{"\t\n\r "};
inline constexpr CharacterClass nameStart{
    ":_ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz{|}~\x7f", true};
inline constexpr CharacterClass tagNameEnd{"\t\n\r />"};
inline constexpr CharacterClass pathNameEnd{" /=[]"};
/// What ends the name of an open element when an end tag asks for it.
inline constexpr CharacterClass openNameEnd{"\t\n\r />=[]"};
inline constexpr CharacterClass beforeEmptySlash{"\t\n\r \"'"};
inline constexpr CharacterClass referenceNameStart{
    "#:_ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", true};
inline constexpr CharacterClass referenceName{
    "-.:_0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", true};
inline constexpr CharacterClass attributeNameEnd{"\t\n\r /=>?"};
inline constexpr CharacterClass unquotedValueEnd{"\t\n\r >"};
inline constexpr CharacterClass wordEnd{"\t\n\r !\"'/;<=>?\\"};

/// The letter in lower case, if it is one of A to Z.
constexpr char Lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
}
