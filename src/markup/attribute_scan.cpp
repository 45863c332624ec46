// The text is taken as words: in quotes, up to the end of a name or of a value without quotes, or
// single characters. A word of "=" makes the next one a value; other words are names.

// A search by name looks for its bytes first, and reads all words only where it cannot tell from the
// characters around whether they are a name.

#include "markup/attribute_scan.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "markup/characters.h"
#include "markup/name_compare.h"

namespace {

constexpr size_t kNone = std::string_view::npos;

/// What may stand around a word.
constexpr CharacterClass kWordBorder{"\t\n\r \"'/=>?"};

/// What no name has whose place its bytes tell.
constexpr CharacterClass kNotInPlainName{"\t\n\r \"'/=>?[]"};

void SetWord(TokenCursor& cursor, size_t begin, size_t end, size_t next) {
    cursor.tokenStart = static_cast<int32_t>(begin);
    cursor.tokenEnd = static_cast<int32_t>(end) - 1;
    cursor.next = static_cast<int32_t>(next);
}

void TakeQuotedWord(TokenCursor& cursor, size_t quote) {
    const size_t size = cursor.text.size();
    const size_t close = std::min(cursor.text.find(cursor.text[quote], quote + 1), size);
    cursor.flags |= kCursorQuoted;
    SetWord(cursor, quote + 1, close, std::min(close + 1, size));
}

/// Makes the next word that of the cursor; an empty one if the text is at its end, which gives
/// false.
bool TakeWord(TokenCursor& cursor, const CharacterClass& isEnd) {
    const std::string_view text = cursor.text;
    auto begin = static_cast<size_t>(cursor.next);
    while (begin < text.size() && whiteSpace.Has(text[begin])) ++begin;
    cursor.flags &= ~kCursorQuoted;
    if (begin >= text.size()) {
        SetWord(cursor, text.size(), text.size(), text.size());
        return false;
    }
    if (text[begin] == '"' || text[begin] == '\'') {
        TakeQuotedWord(cursor, begin);
        return true;
    }
    const size_t end = begin + std::max<size_t>(isEnd.FrontOf(text.substr(begin)).size(), 1);
    SetWord(cursor, begin, end, end);
    return true;
}

bool IsEquals(const TokenCursor& cursor) {
    return (cursor.flags & kCursorQuoted) == 0 && cursor.Word() == "=";
}

/// Whether the word is one of the characters that end a tag.
bool IsTagEnd(const TokenCursor& cursor) {
    if ((cursor.flags & kCursorQuoted) != 0) return false;
    return cursor.Word() == "/" || cursor.Word() == ">" || cursor.Word() == "?";
}

bool IsCalled(const TokenCursor& cursor, std::string_view name) {
    const std::string_view word = cursor.Word();
    if (name.size() < word.size()) return false;
    return (name.size() == word.size() || pathNameEnd.Has(name[word.size()])) &&
           IsSameName(word, name.substr(0, word.size()), (cursor.flags & kMarkupIgnoreCase) != 0);
}

/// Makes the value of the name at hand the word of the cursor: what follows an "=", or else
/// nothing.
void TakeValue(TokenCursor& cursor) {
    const auto behindName = static_cast<size_t>(cursor.next);
    const std::string_view behind = cursor.text.substr(behindName);
    if (behind.starts_with("=\"") || behind.starts_with("='")) {
        return TakeQuotedWord(cursor, behindName + 1);
    }
    if (TakeWord(cursor, attributeNameEnd) && IsEquals(cursor)) {
        (void)TakeWord(cursor, unquotedValueEnd);
        return;
    }
    cursor.flags &= ~kCursorQuoted;
    SetWord(cursor, behindName, behindName, behindName);
}

bool FindByWords(TokenCursor& cursor, std::optional<std::string_view> name, int index) {
    int count = 0;
    while (TakeWord(cursor, attributeNameEnd)) {
        if (IsEquals(cursor)) {
            (void)TakeWord(cursor, unquotedValueEnd);
            continue;
        }
        if (IsTagEnd(cursor)) continue;
        if (name ? IsCalled(cursor, *name) : count++ == index) return true;
    }
    return false;
}

bool IsPlain(std::string_view name) {
    constexpr size_t kLongest = 255;  // names without end would be compared at each place
    return !name.empty() && name.size() <= kLongest && !kNotInPlainName.IsIn(name);
}

/// Where two characters stand behind each other, a bit for each of 16 places.
uint32_t FindPair(const char* bytes, __m128i first, __m128i second) {
    const auto isAt = [](const char* at, __m128i character) {
        return _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(at)), character);
    };
    return static_cast<uint32_t>(
        _mm_movemask_epi8(_mm_and_si128(isAt(bytes, first), isAt(bytes + 1, second))));
}

/// `text.find(name, from)`, by the last two characters, which names in one tag share least.
size_t FindBytes(std::string_view text, size_t from, std::string_view name) {
    if (name.size() < 2 || text.size() < 31 + name.size()) return text.find(name, from);
    const size_t pair = name.size() - 2;
    const __m128i first = _mm_set1_epi8(name[pair]);
    const __m128i second = _mm_set1_epi8(name[pair + 1]);
    const size_t last = text.size() - name.size();
    for (size_t place = from; place <= last; place += 32) {
        const size_t at = std::min(place, last - 31);
        const char* const bytes = text.data() + at + pair;
        uint32_t found = FindPair(bytes, first, second) | FindPair(bytes + 16, first, second) << 16;
        for (; found != 0; found &= found - 1) {
            const size_t here = at + static_cast<size_t>(__builtin_ctz(found));
            if (here >= from && text.substr(here, name.size()) == name) return here;
        }
    }
    return kNone;
}

/// Whether what stands at `place` cannot be in quotes: a quote closes in front of the white space there, for
/// none that opens stands behind a letter, and no other kind of quotes is around it.
bool IsBehindValue(std::string_view text, size_t begin, size_t place) {
    size_t quote = place - 1;
    while (quote > begin && whiteSpace.Has(text[quote])) --quote;
    if (quote == place - 1 || quote <= begin || kWordBorder.Has(text[quote - 1])) return false;
    const char kind = text[quote];
    if (kind != '"' && kind != '\'') return false;
    return text.substr(begin, quote - begin).find(kind == '"' ? '\'' : '"') == kNone;
}

/// The offset of the word `name`, the size of the text if there is none, or `kNone` if the bytes do not
/// tell.
size_t FindPlain(std::string_view text, size_t begin, std::string_view name) {
    if (!IsPlain(name)) return kNone;
    for (size_t place = begin;; ++place) {
        place = FindBytes(text, place, name);
        if (place == kNone) return text.size();
        const size_t end = place + name.size();
        if (place != begin && !kWordBorder.Has(text[place - 1])) continue;
        if (end != text.size() && !kWordBorder.Has(text[end])) continue;
        const bool isWhole = end == text.size() || attributeNameEnd.Has(text[end]);
        const bool isFirst = place == begin || (place == begin + 1 && whiteSpace.Has(text[begin]));
        return isWhole && (isFirst || IsBehindValue(text, begin, place)) ? place : kNone;
    }
}

/// Makes the name the word of the cursor. False, with the cursor at the end of its text, if it is not there.
bool FindName(TokenCursor& cursor, std::string_view name) {
    const bool ignoresCase = (cursor.flags & kMarkupIgnoreCase) != 0;
    const auto begin = static_cast<size_t>(cursor.next);
    const size_t place = ignoresCase ? kNone : FindPlain(cursor.text, begin, name);
    if (place == kNone) return FindByWords(cursor, name, 0);
    const size_t end = std::min(place + name.size(), cursor.text.size());
    cursor.flags &= ~kCursorQuoted;
    SetWord(cursor, place, end, end);
    return place != end;
}

bool TakeAttribute(TokenCursor& cursor, AttributeText* valueOut) {
    const std::string_view found = cursor.Word();
    TakeValue(cursor);
    if (valueOut != nullptr) *valueOut = {found, cursor.Word()};
    return true;
}

}  // namespace

bool FindAttribute(TokenCursor& cursor, const char* name, int index, AttributeText* valueOut) {
    if (name != nullptr) return FindAttribute(cursor, name, valueOut);
    return FindByWords(cursor, std::nullopt, index) && TakeAttribute(cursor, valueOut);
}

bool FindAttribute(TokenCursor& cursor, std::string_view name, AttributeText* valueOut) {
    return FindName(cursor, name) && TakeAttribute(cursor, valueOut);
}
