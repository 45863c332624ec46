// Each kind of token has a function that finds its end, by the C library's search where the end is one
// character. The cursor moves last.

#include "markup/tokenizer.h"

#include <algorithm>

#include "markup/characters.h"
#include "markup/result_records.h"

namespace {

constexpr size_t kNone = std::string_view::npos;

constexpr CharacterClass kTextEnd{"<>"};
constexpr CharacterClass kTagStop{"=>"};
constexpr CharacterClass kFaultStop{"<=>"};
constexpr CharacterClass kUnquotedFaultEnd{"\t\n\r ><"};
constexpr CharacterClass kDocumentTypeStop{"<>\"'"};

/// The scan of one token.
class Scan {
  public:
    Scan(TokenCursor& cursor, NodeToken& token)
        : m_Cursor(cursor),
          m_Token(token),
          m_Text(cursor.text),
          m_Start(static_cast<size_t>(cursor.next)) {}

    void Run() {
        if (m_Text[m_Start] != '<') {
            TakeText();
        } else if (m_Start + 1 == m_Text.size()) {
            EndUnterminated("tag");
        } else {
            TakeTag(m_Text[m_Start + 1]);
        }
    }

  private:
    TokenCursor& m_Cursor;
    NodeToken& m_Token;
    const std::string_view m_Text;
    const size_t m_Start;

    /// The character there, or NUL behind the end.
    [[nodiscard]] char At(size_t place) const {
        return place < m_Text.size() ? m_Text[place] : '\0';
    }

    /// The first character of the class from `place` on.
    [[nodiscard]] size_t FindOf(const CharacterClass& isOf, size_t place) const {
        place += isOf.FrontOf(m_Text.substr(place)).size();
        return place < m_Text.size() ? place : kNone;
    }

    void EndAt(size_t end, int32_t type) {
        m_Token.type = type;
        m_Token.length = static_cast<int32_t>(end - m_Start);
        m_Cursor.next = static_cast<int32_t>(end);
    }

    /// Ends a token of `type` with what `last` is the last character of; if there is none the text has
    /// ended within an open `what`.
    void EndBehind(size_t last, int32_t type, std::string_view what) {
        if (last == kNone) {
            EndUnterminated(what);
        } else {
            EndAt(last + 1, type);
        }
    }

    void EndUnterminated(std::string_view what) {
        AddInformationRecord(m_Token.errorText, "unterminated_tag_syntax", {"type", what},
                             {"offset", static_cast<int64_t>(m_Start)});
        EndAt(m_Text.size(), kTokenError);
    }

    /// What follows a fault goes up to the next ">", or to the next tag.
    void EndWithFault(std::string_view name, size_t place) {
        if (place >= m_Text.size()) return EndUnterminated("tag");
        AddErrorRecord(m_Token.errorText, name, std::nullopt, static_cast<int64_t>(place));
        bool isUnquoted = false;
        const size_t end = FindTagEnd(place, true, isUnquoted);
        if (end != kNone && m_Text[end] == '<') {
            EndAt(end, kTokenError);
        } else {
            EndBehind(end, kTokenError, "tag");
        }
    }

    void TakeText() {
        const size_t solid = m_Text.find_first_not_of("\t\n\r ", m_Start);
        if (solid == kNone || m_Text[solid] == '<') {
            EndAt(std::min(solid, m_Text.size()), kNodeWhiteSpace);
            return;
        }
        const size_t end = std::min(FindOf(kTextEnd, solid), m_Text.size());
        EndAt(At(end) == '>' ? end + 1 : end, kNodeText);
    }

    void TakeTag(char first) {
        if (nameStart.Has(first)) {
            TakeStartTag();
        } else if (first == '/') {
            TakeName(m_Start + 2);
            EndBehind(m_Text.find('>', m_Start + 2), kTokenEndTag, "end_tag");
        } else if (first == '!') {
            TakeDeclaration();
        } else if (first == '?') {
            TakeName(m_Start + 2);
            EndBehind(Find("?>", m_Start + 2), kNodeInstruction, "processing_instruction");
        } else {
            EndWithFault("first_tag_syntax", m_Start + 1);
        }
    }

    void TakeName(size_t begin) {
        const size_t length = tagNameEnd.FrontOf(m_Text.substr(begin)).size();
        m_Cursor.tokenStart = static_cast<int32_t>(begin);
        m_Cursor.tokenEnd = static_cast<int32_t>(begin + length) - 1;
    }

    void TakeStartTag() {
        TakeName(m_Start + 1);
        bool isUnquoted = false;
        const size_t end = FindTagEnd(m_Start + 1, false, isUnquoted);
        if (end != kNone && m_Text[end - 1] == '/' &&
            (!isUnquoted || beforeEmptySlash.Has(m_Text[end - 2]))) {
            m_Token.nodeFlags = kTokenEmpty;
        }
        EndBehind(end, kNodeElement, "start_tag");
    }

    /// The first ">" from `place` on that is in no quoted value; of a fault also the first "<". Tells
    /// whether it ends a value without quotes.
    size_t FindTagEnd(size_t place, bool isFault, bool& isUnquoted) const {
        for (;;) {
            place = FindOf(isFault ? kFaultStop : kTagStop, place);
            if (place == kNone || m_Text[place] != '=') return place;
            place = m_Text.find_first_not_of("\t\n\r ", place + 1);
            if (place == kNone) return kNone;
            const char first = m_Text[place];
            if (first != '"' && first != '\'') {
                place = FindOf(isFault ? kUnquotedFaultEnd : unquotedValueEnd, place);
                isUnquoted = At(place) == '>';
                if (place == kNone || !whiteSpace.Has(m_Text[place])) return place;
                continue;
            }
            const size_t close = m_Text.find(first, place + 1);
            const size_t tag = isFault ? m_Text.substr(0, close).find('<', place) : kNone;
            if (tag != kNone || close == kNone) return tag;
            place = close + 1;
        }
    }

    /// The last character of the first `pattern`, which may begin up to its length in front of `place`.
    [[nodiscard]] size_t Find(std::string_view pattern, size_t place) const {
        const size_t found = m_Text.find(pattern, place - (pattern.size() - 1));
        return found == kNone ? kNone : found + pattern.size() - 1;
    }

    void TakeDeclaration() {
        const size_t place = m_Start + 2;
        if (At(place) == 'D') {
            TakeDocumentType();
        } else if (At(place) == '-' && At(place + 1) == '-') {
            EndBehind(Find("-->", place + 2), kNodeComment, "comment");
        } else if (At(place) == '-') {
            EndWithFault("comment_tag_syntax", place + 1);
        } else if (At(place) == '[' && At(place + 1) == 'C') {
            EndBehind(Find("]]>", place + 2), kNodeCdata, "cdata_section");
        } else if (At(place) == '[') {
            EndWithFault("cdata_section_syntax", place + 1);
        } else {
            EndWithFault("exclamation_tag_syntax", place);
        }
    }

    void TakeDocumentType() {
        for (size_t place = m_Start + 3;; ++place) {
            place = FindUnquoted(place);
            if (At(place) != '<') return EndBehind(place, kNodeDocumentType, "document_type");
            const size_t bad = SkipInDocumentType(place);
            if (bad == m_Text.size()) return EndUnterminated("document_type");
            if (bad != kNone) {
                const bool isComment = At(bad - 1) == '-';
                return EndWithFault(isComment ? "comment_tag_syntax" : "doctype_tag_syntax", bad);
            }
            if (place == kNone) return EndUnterminated("document_type");
        }
    }

    /// The first "<" or ">" of a document type from `place` on that is not in quotes.
    [[nodiscard]] size_t FindUnquoted(size_t place) const {
        for (;; ++place) {
            place = FindOf(kDocumentTypeStop, place);
            if (place == kNone || m_Text[place] == '<' || m_Text[place] == '>') return place;
            place = m_Text.find(m_Text[place], place + 1);
            if (place == kNone) return kNone;
        }
    }

    /// Moves `place` from a "<" within a document type to the last character of what begins there. If
    /// that is nothing that may be there, gives the place of the character that it shows at.
    size_t SkipInDocumentType(size_t& place) const {
        const char kind = At(place + 2);
        if (At(place + 1) == '?') {
            place = Find("?>", place + 2);
        } else if (At(place + 1) != '!') {
            return place + 1;
        } else if (kind == 'A' || kind == 'E' || kind == 'N') {
            do {
                place = FindUnquoted(place + 1);
            } while (At(place) == '<');
        } else if (kind != '-') {
            return place + 2;
        } else if (At(place + 3) != '-') {
            return place + 3;
        } else {
            place = Find("-->", place + 4);
        }
        return kNone;
    }
};

}  // namespace

int32_t NextToken(TokenCursor& cursor, NodeToken& token) {
    token.type = 0;
    token.start = cursor.next;
    token.length = 0;
    token.nodeFlags = 0;
    token.errorText.clear();
    if (static_cast<size_t>(cursor.next) >= cursor.text.size()) return kTokenEndOfText;
    Scan{cursor, token}.Run();
    return token.type;
}
