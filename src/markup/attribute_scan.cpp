// The text is taken as words: in quotes, up to the end of a name or of a value without quotes, or
// single characters. A word of "=" makes the next one a value; other words are names.

#include "markup/attribute_scan.h"

#include <algorithm>
#include <cstring>

#include "markup/characters.h"
#include "markup/name_compare.h"

namespace {

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
    while (begin < text.size() && kIsWhiteSpace(text[begin])) ++begin;
    cursor.flags &= ~kCursorQuoted;
    if (begin >= text.size()) {
        SetWord(cursor, text.size(), text.size(), text.size());
        return false;
    }
    if (text[begin] == '"' || text[begin] == '\'') {
        TakeQuotedWord(cursor, begin);
        return true;
    }
    size_t end = begin;
    while (end < text.size() && !isEnd(text[end])) ++end;
    end = std::max(end, begin + 1);
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

bool IsCalled(const TokenCursor& cursor, const char* name) {
    const std::string_view word = cursor.Word();
    if (strnlen(name, word.size()) < word.size()) return false;
    const char behind = name[word.size()];
    return (behind == '\0' || kIsPathNameEnd(behind)) &&
           IsSameName(word, {name, word.size()}, (cursor.flags & kMarkupIgnoreCase) != 0);
}

/// Makes the value of the name at hand the word of the cursor: what follows an "=", or else
/// nothing.
void TakeValue(TokenCursor& cursor) {
    const auto behindName = static_cast<size_t>(cursor.next);
    if (TakeWord(cursor, kIsAttributeNameEnd) && IsEquals(cursor)) {
        (void)TakeWord(cursor, kIsUnquotedValueEnd);
        return;
    }
    cursor.flags &= ~kCursorQuoted;
    SetWord(cursor, behindName, behindName, behindName);
}

}  // namespace

bool FindAttribute(TokenCursor& cursor, const char* name, int index, AttributeText* valueOut) {
    int count = 0;
    while (TakeWord(cursor, kIsAttributeNameEnd)) {
        if (IsEquals(cursor)) {
            (void)TakeWord(cursor, kIsUnquotedValueEnd);
            continue;
        }
        if (IsTagEnd(cursor)) continue;
        if (name != nullptr ? !IsCalled(cursor, name) : count++ != index) continue;
        const std::string_view found = cursor.Word();
        TakeValue(cursor);
        if (valueOut != nullptr) *valueOut = {found, cursor.Word()};
        return true;
    }
    return false;
}
