// Texts are copied in runs, up to the next character that a class tells to look at. References are
// looked at within nine bytes of their "&", or up to the first byte that is not of a name, which a
// "&" never is: so no byte is read more often than that.

#include "markup/entities.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "markup/characters.h"
#include "markup/name_tables.h"
#include "markup/tokenizer.h"

namespace {

constexpr CharacterClass kEscaped{"<&>"};
constexpr CharacterClass kEscapedInValue{"<&>\"'"};
constexpr CharacterClass kReference{"&"};
constexpr CharacterClass kReferenceOrWhiteSpace{"&\t\n\r "};

constexpr size_t kMostNameCharacters = 9;
constexpr size_t kMostEncodingCharacters = 99;
constexpr int kUtf32CodePage = 65005;

/// Appends what stands in front of the first character of a class and takes it off the text.
void MoveUpTo(const CharacterClass& isEnd, std::string_view& text, std::string& result) {
    const std::string_view front = isEnd.FrontOf(text);
    result.append(front);
    text.remove_prefix(front.size());
}

constexpr std::string_view EscapeOf(char character) {
    switch (character) {
        case '<':
            return "&lt;";
        case '&':
            return "&amp;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        default:
            return "&apos;";
    }
}

/// The length of what looks like a reference at the front of the text; 0 if nothing does.
size_t ReferenceLength(std::string_view text) {
    if (text.size() < 2 || text[0] != '&' || !referenceNameStart.Has(text[1])) return 0;
    size_t end = 2;
    while (end < text.size() && referenceName.Has(text[end])) ++end;
    return end < text.size() && text[end] == ';' ? end + 1 : 0;
}

void AppendEscaped(std::string_view text, uint32_t flags, std::string& result) {
    const CharacterClass& isEscaped = flags & kEscapeQuotes ? kEscapedInValue : kEscaped;
    for (;;) {
        MoveUpTo(isEscaped, text, result);
        if (text.empty()) return;
        const size_t kept = flags & kEscapeKeepReferences ? ReferenceLength(text) : 0;
        result.append(kept != 0 ? text.substr(0, kept) : EscapeOf(text.front()));
        text.remove_prefix(std::max<size_t>(kept, 1));
    }
}

struct Reference {
    long character = 0;  ///< 0: there is none
    size_t length = 0;   ///< with "&" and ";"
};

/// The character that a name without "&" stands for, 0 if none. REQUIRES: a ";" follows `name`,
/// where `strtol` ends.
long CharacterOf(std::string_view name) {
    if (!name.starts_with('#')) return std::max(kEntityTable.Find(name), 0);
    const bool isHex = name.size() > 1 && Lower(name[1]) == 'x';
    return strtol(name.data() + (isHex ? 2 : 1), nullptr, isHex ? 16 : 10);
}

/// The reference at the front of the text, which begins with its "&".
Reference ReadReference(std::string_view text) {
    const std::string_view names = text.substr(1, kMostNameCharacters + 1);
    const size_t length = names.find(';');
    if (length == std::string_view::npos) return {};
    const std::string_view name = names.substr(0, length);
    if (std::ranges::any_of(name, [](char c) { return static_cast<unsigned char>(c) > 127; })) {
        return {};
    }
    return {CharacterOf(name), length + 2};
}

void AppendCharacter(long character, std::string& result) {
    if (character <= 127) {
        result.push_back(static_cast<char>(character));
        return;
    }
    std::array<char, 4> bytes{};
    int count = 0;
    EncodeUtf8(static_cast<uint32_t>(character), bytes.data(), count);
    result.append(bytes.data(), static_cast<size_t>(count));
}

/// Which white space of a value stays.
class WhiteSpace {
  public:
    explicit WhiteSpace(uint32_t flags) : m_Collapses((flags & kMarkupCollapse) != 0) {}

    /// Something else was appended.
    void End() { m_Mark = kInText; }

    void Append(char character, std::string& result) {
        const bool isFirst = m_Mark == kInText;
        if (m_Collapses ? !isFirst : m_Mark == kAtStart) return;
        if (isFirst) m_Mark = static_cast<ptrdiff_t>(result.size());
        result.push_back(m_Collapses ? ' ' : character);
    }

    void CutEnd(std::string& result) const {
        if (m_Mark > 0) result.resize(static_cast<size_t>(m_Mark));
    }

  private:
    static constexpr ptrdiff_t kAtStart = -1;
    static constexpr ptrdiff_t kInText = 0;

    const bool m_Collapses;
    ptrdiff_t m_Mark = kAtStart;  ///< else where the run at the end of the result begins
};

/// Takes the "&" at the front of the text off it, or the reference that it begins.
void DecodeReference(std::string_view& text, std::string& result) {
    const Reference reference = ReadReference(text);
    const bool isKnown = reference.character != 0;
    AppendCharacter(isKnown ? reference.character : '&', result);
    text.remove_prefix(isKnown ? reference.length : 1);
}

bool IsPrintable(char character) {
    // Not isprint(), which asks the locale.
    return character >= 0x20 && character <= 0x7E;
}

void AppendHexReference(char character, std::string& result) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(character);
    result.append("&#x");
    result.push_back(kDigits[byte >> 4]);
    result.push_back(kDigits[byte & 0x0F]);
    result.push_back(';');
}

}  // namespace

std::string EscapeText(std::string_view text, uint32_t flags) {
    std::string result;
    result.reserve(text.size() + text.size() / 10 + 7);
    AppendEscaped(text, flags, result);
    return result;
}

std::string DecodeText(std::string_view text, uint32_t flags) {
    const bool cutsWhiteSpace = (flags & (kMarkupTrim | kMarkupCollapse)) != 0;
    if (!cutsWhiteSpace && text.find('&') == text.npos) return std::string{text};
    const CharacterClass& isStop = cutsWhiteSpace ? kReferenceOrWhiteSpace : kReference;
    WhiteSpace spaces{flags};
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        if (isStop.Has(text.front()) && text.front() != '&') {
            spaces.Append(text.front(), result);
            text.remove_prefix(1);
            continue;
        }
        spaces.End();
        MoveUpTo(isStop, text, result);
        if (text.starts_with('&')) DecodeReference(text, result);
    }
    if (cutsWhiteSpace) spaces.CutEnd(result);
    return result;
}

std::string EscapeNonPrintable(std::string_view text, uint32_t flags) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const auto count = std::ranges::find_if_not(text, IsPrintable) - text.begin();
        const std::string_view printable = text.substr(0, static_cast<size_t>(count));
        if (flags != 0) {
            AppendEscaped(printable, flags, result);
        } else {
            result.append(printable);
        }
        text.remove_prefix(printable.size());
        if (text.empty()) break;
        AppendHexReference(text.front(), result);
        text.remove_prefix(1);
    }
    return result;
}

std::string MakeCdata(std::string_view text) {
    constexpr std::string_view kOpen = "<![CDATA[";
    constexpr std::string_view kClose = "]]>";
    std::string result;
    result.reserve(kOpen.size() + text.size() + kClose.size());
    result.append(kOpen);
    for (;;) {
        const size_t close = text.find(kClose);
        if (close == std::string_view::npos) break;
        // The section ends between the brackets and the ">", which the next one begins with.
        result.append(text.substr(0, close + 2)).append(kClose).append(kOpen);
        text.remove_prefix(close + 2);
    }
    return result.append(text).append(kClose);
}

void EncodeUtf8(uint32_t codePoint, char* buffer, int& count) {
    const int length = codePoint <= 0x7FF ? 2 : codePoint <= 0xFFFF ? 3 : 4;
    if (buffer != nullptr) {
        constexpr std::array<unsigned, 5> kLeads{0, 0, 0xC0, 0xE0, 0xF0};
        char* const at = buffer + count;
        codePoint &= 0x1FFFFF;
        for (int i = length - 1; i > 0; --i, codePoint >>= 6) {
            at[i] = static_cast<char>(0x80 | (codePoint & 0x3F));
        }
        at[0] = static_cast<char>(kLeads[static_cast<size_t>(length)] | codePoint);
    }
    count += length;
}

int LookUpEncoding(std::string_view name) {
    if (name.starts_with("UTF-32")) return kUtf32CodePage;
    return name.size() > kMostEncodingCharacters ? -1 : kEncodingTable.Find(name);
}
