#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "markup/markup_document.h"

// A second reader of documents, slow and plain: a machine of states that takes one byte at a time,
// and a tree of nodes that hold their children. It shares nothing with the reader of the product.

/// One piece of a text.
struct SlowToken {
    int type = 0;
    int start = 0;
    int length = 0;
    bool isEmpty = false;
    std::string name;
    std::string errors;
};

/// Takes a text apart.
class SlowTokenizer {
  public:
    explicit SlowTokenizer(std::string_view text) : m_Text(text) {}

    /// False at the end of the text.
    bool Next(SlowToken& token) {
        if (m_At == Size()) return false;
        *this = SlowTokenizer{m_Text, m_At};
        while (!m_IsDone) Take();
        token = m_Token;
        return true;
    }

  private:
    enum class State {
        kFirst,
        kWhiteSpace,
        kAfterOpen,
        kAfterBang,
        kAfterBangDash,
        kAfterBangBracket,
        kDocumentType,
        kScan,
    };

    std::string_view m_Text;
    int m_At = 0;
    SlowToken m_Token;
    State m_State = State::kFirst;
    int m_Type = 0;
    std::string m_Pattern;  ///< at the end of the token, or of a part of a document type
    bool m_IsInDocumentType = false;
    bool m_HasName = false;  ///< open
    bool m_ExpectsValue = false;
    bool m_IsUnquoted = false;
    char m_Quote = 0;
    bool m_IsDone = false;

    SlowTokenizer(std::string_view text, int start) : m_Text(text), m_At(start) {
        m_Token.start = start;
    }

    [[nodiscard]] int Size() const { return static_cast<int>(m_Text.size()); }
    [[nodiscard]] char At(int place) const { return m_Text[static_cast<size_t>(place)]; }

    static bool IsIn(std::string_view set, char c) { return set.find(c) != set.npos; }
    static bool IsWhite(char c) { return c == '\t' || c == '\n' || c == '\r' || c == ' '; }
    static bool IsNameStart(char c) {
        return c == ':' || c == '_' || (c >= 'A' && c <= 'Z') ||
               static_cast<unsigned char>(c) > '`';
    }

    void EndAt(int end, int type) {
        m_Token.type = type;
        m_Token.length = end - m_Token.start;
        m_At = end;
        m_IsDone = true;
    }

    void Take() {
        if (m_At == Size()) return EndOfText();
        const char c = At(m_At);
        switch (m_State) {
            case State::kFirst:
                if (c == '<') return Go(State::kAfterOpen);
                if (IsWhite(c)) return Go(State::kWhiteSpace);
                return Scan(2, "<");
            case State::kWhiteSpace:
                if (c == '<') return EndAt(m_At, 4);
                if (IsWhite(c)) return Go(State::kWhiteSpace);
                return Scan(2, "<");
            case State::kAfterOpen:
                return AfterOpen(c);
            case State::kAfterBang:
                return AfterBang(c);
            case State::kAfterBangDash:
                if (c != '-') return Fault("comment_tag_syntax");
                ++m_At;
                return Scan(32, "-->");
            case State::kAfterBangBracket:
                if (c != 'C') return Fault("cdata_section_syntax");
                ++m_At;
                return Scan(8, "]]>");
            case State::kDocumentType:
                return InDocumentType(c);
            case State::kScan:
                return InScan(c);
        }
    }

    void Go(State state) {
        m_State = state;
        ++m_At;
    }

    /// From the character at hand on, which is looked at again.
    void Scan(int type, const char* pattern) {
        m_State = State::kScan;
        m_Type = type;
        m_Pattern = pattern;
    }

    void Fault(const std::string& name) {
        m_Token.errors += "<" + name + " offset=\"" + std::to_string(m_At) + "\"/>";
        m_IsInDocumentType = false;
        Scan(-1, ">");
    }

    void AfterOpen(char c) {
        if (c == '!') return Go(State::kAfterBang);
        if (c == '?') {
            ++m_At;
            m_HasName = true;
            return Scan(16, "?>");
        }
        if (m_IsInDocumentType) return Fault("doctype_tag_syntax");
        if (IsNameStart(c)) {
            m_HasName = true;
            return Scan(1, ">");
        }
        if (c != '/') return Fault("first_tag_syntax");
        ++m_At;
        m_HasName = true;
        Scan(0, ">");
    }

    void AfterBang(char c) {
        if (c == '-') return Go(State::kAfterBangDash);
        if (m_IsInDocumentType) {
            if (!IsIn("AEN", c)) return Fault("doctype_tag_syntax");
            return Scan(64, ">");
        }
        if (c == '[') return Go(State::kAfterBangBracket);
        if (c != 'D') return Fault("exclamation_tag_syntax");
        Go(State::kDocumentType);
    }

    void InDocumentType(char c) {
        m_IsInDocumentType = true;
        if (ToggleQuote(c)) {
            ++m_At;
        } else if (c == '<') {
            Go(State::kAfterOpen);
        } else if (c == '>') {
            EndAt(m_At + 1, 64);
        } else {
            ++m_At;
        }
    }

    /// Whether the character is a quote or stands in quotes, of either kind.
    bool ToggleQuote(char c) {
        if (m_Quote != 0) {
            if (c == m_Quote) m_Quote = 0;
            return true;
        }
        if (c == '"' || c == '\'') m_Quote = c;
        return m_Quote != 0;
    }

    void InScan(char c) {
        if (m_HasName && IsIn("\t\n\r />", c)) m_HasName = false;
        if (m_HasName && !m_IsInDocumentType) m_Token.name += c;
        if (c == '<' && (m_Type == 2 || m_Type == -1)) return EndAt(m_At, m_Type);
        const bool isQuoted = IsQuoted(c);
        if (c != '>' || isQuoted || !EndsPattern()) {
            ++m_At;
        } else if (m_IsInDocumentType) {
            Go(State::kDocumentType);
        } else {
            m_Token.isEmpty = m_Type == 1 && IsEmptyTag();
            EndAt(m_At + 1, m_Type);
        }
    }

    /// Takes the character for the quotes, and tells whether it stands in some.
    bool IsQuoted(char c) {
        if (m_Type == 64) return ToggleQuote(c);
        if (m_Type != 1 && m_Type != -1) return false;
        if (m_Quote != 0) {
            if (c == m_Quote) m_Quote = 0;
            return true;
        }
        if (m_IsUnquoted) {
            if (IsWhite(c)) m_IsUnquoted = false;
        } else if (m_ExpectsValue) {
            if (IsWhite(c)) return false;
            m_ExpectsValue = false;
            if (c == '"' || c == '\'') {
                m_Quote = c;
            } else {
                m_IsUnquoted = true;
            }
        } else if (c == '=') {
            m_ExpectsValue = true;
        }
        return false;
    }

    [[nodiscard]] bool EndsPattern() const {
        if (m_Pattern.size() == 1) return true;
        const auto end = static_cast<size_t>(m_At) + 1;
        return m_Text.substr(end - m_Pattern.size(), m_Pattern.size()) == m_Pattern;
    }

    [[nodiscard]] bool IsEmptyTag() const {
        if (At(m_At - 1) != '/') return false;
        return !m_IsUnquoted || IsIn("\t\n\r \"'", At(m_At - 2));
    }

    void EndOfText() {
        if (m_State == State::kWhiteSpace) return EndAt(m_At, 4);
        if (m_State == State::kScan && m_Type == 2) return EndAt(m_At, 2);
        m_Token.errors += std::string{"<unterminated_tag_syntax type=\""} + WhatIsOpen() +
                          "\" offset=\"" + std::to_string(m_Token.start) + "\"/>";
        EndAt(m_At, -1);
    }

    [[nodiscard]] const char* WhatIsOpen() const {
        if (m_IsInDocumentType || m_State == State::kDocumentType) return "document_type";
        if (m_State != State::kScan) return "tag";
        switch (m_Type) {
            case 0:
                return "end_tag";
            case 1:
                return "start_tag";
            case 8:
                return "cdata_section";
            case 16:
                return "processing_instruction";
            case 32:
                return "comment";
            default:
                return "tag";
        }
    }
};

/// An element, with what is in it.
struct SlowElement {
    std::string name;
    int start = 0;
    int length = 0;
    int startTag = 0;
    int endTag = 0;
    uint32_t levelFlags = 0;
    int parent = 0;
    std::vector<int> children;
};

/// A document, read at construction.
class SlowDocument {
  public:
    std::vector<SlowElement> elements{1};  ///< the first one is the root
    std::string faults;                    ///< records of the tags
    std::string result;                    ///< those, and what was found at the end

    SlowDocument(std::string_view text, bool ignoresCase)
        : m_Text(text), m_IgnoresCase(ignoresCase) {
        if (text.empty()) return;
        elements[0].length = static_cast<int>(text.size());
        SlowTokenizer tokenizer{text};
        for (SlowToken token; tokenizer.Next(token);) Take(token);
        EndUnended(1, static_cast<int>(text.size()));
        faults = result;
        if (elements.size() == 1) {
            Record("no_root_element", {});
        } else if (elements[0].children.size() > 1) {
            Record("root_has_sibling", {});
        }
        for (SlowElement& element : elements) {
            for (const int child : element.children) elements[Place(child)].levelFlags &= ~kFirst;
            if (!element.children.empty()) {
                elements[Place(element.children.front())].levelFlags |= kFirst;
            }
        }
    }

    /// What a document differs in from this: empty if in nothing. Its elements begin behind
    /// `offset` others, and its result behind what it had before.
    [[nodiscard]] std::string DifferenceTo(const MarkupDocument& document, int offset = 0) const {
        const std::vector<ElementPosition> wanted = Records(offset);
        for (size_t place = 0; place < wanted.size(); ++place) {
            const int position = place == 0 ? 0 : static_cast<int>(place) + offset;
            const ElementPosition& other = document.PositionOf(position);
            if (memcmp(&wanted[place], &other, sizeof other) == 0) continue;
            return "element " + std::to_string(place) + " is to be " + Shown(wanted[place]) +
                   " and is " + Shown(other);
        }
        return {};
    }

  private:
    static constexpr uint32_t kFirst = 0x00080000;
    static constexpr uint32_t kNonEnded = 0x00100000;
    static constexpr uint32_t kMissesEnd = 0x00200000;
    static constexpr uint32_t kIllFormed = 0x00800000;

    std::string_view m_Text;
    bool m_IgnoresCase;
    std::vector<int> m_Stack{0};

    static size_t Place(int position) { return static_cast<size_t>(position); }
    SlowElement& Element(int position) { return elements[Place(position)]; }

    void Take(const SlowToken& token) {
        if (token.type == 1) {
            TakeElement(token);
        } else if (token.type == 0) {
            TakeEndTag(token);
        } else if (token.type == -1) {
            elements[0].levelFlags |= kIllFormed;
            Element(m_Stack.back()).levelFlags |= kMissesEnd;
            if (result.size() < 1000) result += token.errors;
        }
    }

    void TakeElement(const SlowToken& token) {
        SlowElement element;
        element.name = token.name;
        element.start = token.start;
        element.length = element.startTag = token.length;
        element.parent = m_Stack.back();
        element.levelFlags = (m_Stack.size() & 0xFFFF) | (token.isEmpty ? 0x10000U : 0);
        const int position = static_cast<int>(elements.size());
        elements.push_back(element);
        Element(m_Stack.back()).children.push_back(position);
        if (!token.isEmpty) m_Stack.push_back(position);
    }

    void TakeEndTag(const SlowToken& token) {
        for (size_t place = m_Stack.size() - 1; place > 0; --place) {
            if (!Matches(Element(m_Stack[place]).name, token.name)) continue;
            EndUnended(place + 1, token.start + 1);
            SlowElement& element = Element(m_Stack[place]);
            element.length = token.start + token.length - element.start;
            element.endTag = token.length;
            m_Stack.pop_back();
            return;
        }
        elements[0].levelFlags |= kIllFormed;
        Element(m_Stack.back()).levelFlags |= kMissesEnd;
        Record("lone_end_tag", {{"tagname", token.name}, {"offset", std::to_string(token.start)}});
    }

    static char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

    [[nodiscard]] bool Matches(std::string_view open, std::string_view ended) const {
        if (ended.size() > open.size()) return false;
        for (size_t i = 0; i < ended.size(); ++i) {
            if (m_IgnoresCase ? Lower(open[i]) != Lower(ended[i]) : open[i] != ended[i]) {
                return false;
            }
        }
        return open.size() == ended.size() ||
               std::string_view{" /=[]"}.find(open[ended.size()]) != std::string_view::npos;
    }

    void EndUnended(size_t outermost, int offset) {
        for (; m_Stack.size() > outermost; m_Stack.pop_back()) {
            elements[0].levelFlags |= kIllFormed;
            const int position = m_Stack.back();
            SlowElement& element = Element(position);
            SlowElement& parent = Element(element.parent);
            element.levelFlags |= kNonEnded;
            if ((element.levelFlags & kMissesEnd) != 0) parent.levelFlags |= kMissesEnd;
            element.levelFlags &= ~kMissesEnd;
            for (const int child : element.children) {
                Element(child).parent = element.parent;
                parent.children.push_back(child);
            }
            element.children.clear();
            Record("unended_start_tag", {{"tagname", element.name},
                                         {"offset", std::to_string(element.start)},
                                         {"offset2", std::to_string(offset)}});
        }
    }

    void Record(const std::string& name,
                const std::vector<std::pair<std::string, std::string>>& attributes) {
        if (result.size() >= 1000) return;
        result += "<" + name;
        for (const auto& [attribute, value] : attributes) {
            result += " " + attribute + "=\"" + Escaped(value) + "\"";
        }
        result += "/>";
    }

    static std::string Escaped(std::string_view text) {
        std::string escaped;
        for (const char c : text) {
            if (c == '<') {
                escaped += "&lt;";
            } else if (c == '>') {
                escaped += "&gt;";
            } else if (c == '&') {
                escaped += "&amp;";
            } else if (c == '"') {
                escaped += "&quot;";
            } else if (c == '\'') {
                escaped += "&apos;";
            } else {
                escaped += c;
            }
        }
        return escaped;
    }

    /// The records that there are to be, behind `offset` others.
    [[nodiscard]] std::vector<ElementPosition> Records(int offset) const {
        const auto moved = [offset](int position) { return position == 0 ? 0 : position + offset; };
        std::vector<ElementPosition> records(elements.size());
        for (size_t place = 0; place < elements.size(); ++place) {
            const SlowElement& element = elements[place];
            const std::vector<int>& children = element.children;
            ElementPosition& record = records[place];
            record.start = element.start;
            record.length = element.length;
            record.tagLengths = (static_cast<uint32_t>(element.startTag) & 0x3FFFFF) |
                                static_cast<uint32_t>(element.endTag) << 22;
            record.levelFlags = element.levelFlags;
            record.parent = moved(element.parent);
            record.firstChild = moved(children.empty() ? 0 : children.front());
            for (size_t i = 0; i < children.size(); ++i) {
                ElementPosition& child = records[Place(children[i])];
                child.nextSibling = moved(i + 1 < children.size() ? children[i + 1] : 0);
                child.previousSibling = moved(i > 0 ? children[i - 1] : children.back());
            }
        }
        return records;
    }

    static std::string Shown(const ElementPosition& position) {
        char text[160];
        (void)snprintf(
            text, sizeof text,
            "start %d length %d tags %u+%u flags %08x parent %d child %d next %d before %d",
            position.start, position.length, position.tagLengths & 0x3FFFFF,
            position.tagLengths >> 22, position.levelFlags, position.parent, position.firstChild,
            position.nextSibling, position.previousSibling);
        return text;
    }
};
