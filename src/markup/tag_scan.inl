// The scan of a text for tags, compiled once for each instruction set: MARKUP_ISA is its attribute, and
// Bytes64, which looks at 64 bytes at a time, is defined in front of the include.

/// The structural characters of a text, a bit each, for the 64 bytes at hand.
class Structure {
  public:
    MARKUP_ISA explicit Structure(std::string_view text) : m_Text(text) { Load(0); }

    /// The first "<" from `from` on; the size of the text if there is none.
    MARKUP_ISA size_t NextTag(size_t from) {
        if (from - m_Begin < 64) {
            const uint64_t tags = m_Tags >> (from - m_Begin);
            if (tags != 0) return from + CountZeros(tags);
            from = m_Begin + 64;
        }
        size_t begin = from & ~size_t{63};
        uint64_t tags = 0;
        for (; begin + 64 <= m_Text.size(); begin += 64) {
            tags = Bytes64{m_Text.data() + begin}.Equal('<');
            if (begin < from) tags &= ~uint64_t{0} << (from - begin);
            if (tags != 0) break;
        }
        if (begin >= m_Text.size()) return m_Text.size();
        Load(begin);
        if (tags == 0) {
            tags = m_Tags;
            if (begin < from) tags &= ~uint64_t{0} << (from - begin);
            if (tags == 0) return m_Text.size();
        }
        return begin + CountZeros(tags);
    }

    /// The first ">" or "=".
    MARKUP_ISA size_t NextStop(size_t from) {
        if (from >= m_Text.size()) return m_Text.size();
        if (from - m_Begin >= 64) Load(from & ~size_t{63});
        const uint64_t here = m_Stops >> (from - m_Begin);
        if (here != 0) return from + CountZeros(here);
        while (m_Begin + 64 < m_Text.size()) {
            Load(m_Begin + 64);
            if (m_Stops != 0) return m_Begin + CountZeros(m_Stops);
        }
        return m_Text.size();
    }

  private:
    std::string_view m_Text;
    size_t m_Begin = 0;  ///< of the 64 bytes at hand
    uint64_t m_Tags = 0;
    uint64_t m_Stops = 0;

    MARKUP_ISA static size_t CountZeros(uint64_t bits) {
        return static_cast<size_t>(__builtin_ctzll(bits));
    }

    MARKUP_ISA void Load(size_t begin) {
        m_Begin = begin;
        if (begin + 64 <= m_Text.size()) {
            Take(Bytes64{m_Text.data() + begin});
            return;
        }
        char rest[64] = {};
        memcpy(rest, m_Text.data() + begin, m_Text.size() - begin);
        Take(Bytes64{rest});
    }

    MARKUP_ISA void Take(const Bytes64& bytes) {
        m_Tags = bytes.Equal('<');
        m_Stops = bytes.Equal('>') | bytes.Equal('=');
    }
};

/// The first quote of that kind from `from` on, or the size of the text.
MARKUP_ISA size_t FindQuote(std::string_view text, size_t from, char quote) {
    for (; from + 32 <= text.size(); from += 32) {
        const uint32_t quotes = Equal32(text.data() + from, quote);
        if (quotes != 0) return from + static_cast<size_t>(__builtin_ctz(quotes));
    }
    while (from < text.size() && text[from] != quote) ++from;
    return from;
}

/// The ">" of the start tag whose name begins at `place`, or the size of the text. Tells whether it ends
/// a value without quotes.
MARKUP_ISA size_t FindTagEnd(Structure& structure, std::string_view text, size_t place,
                             bool& isUnquoted) {
    for (;;) {
        place = structure.NextStop(place);
        if (place == text.size() || text[place] == '>') return place;
        do {
            if (++place == text.size()) return place;
        } while (whiteSpace.Has(text[place]));
        const char first = text[place];
        if (first == '"' || first == '\'') {
            place = FindQuote(text, place + 1, first) + 1;
            if (place > text.size()) return text.size();
            continue;
        }
        while (place < text.size() && text[place] != '>' && !whiteSpace.Has(text[place])) ++place;
        isUnquoted = place < text.size() && text[place] == '>';
        if (place == text.size() || isUnquoted) return place;
    }
}

/// Whether an end tag with the name from `begin` to `end` ends the element. This is not waited for: what
/// comes next is known without it.
MARKUP_ISA bool IsEndOf(const ElementPosition& element, std::string_view text, size_t begin,
                        size_t end) {
    const size_t length = end - begin;
    const char* const name = text.data() + begin;
    const char* const open = text.data() + element.start + 1;
    if (length == 0 || !openNameEnd.Has(open[length])) return false;
    if (length > 16 || begin + 16 > text.size()) return memcmp(open, name, length) == 0;
    const __m128i one = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(open));
    const __m128i other = _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(name));
    const auto same = static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(one, other)));
    return (~same & ((1U << length) - 1)) == 0;
}

/// Hands all tags from `place` on to the parse.
MARKUP_SCAN void ScanTags(MarkupParse& parse, size_t place) {
    const std::string_view text = parse.Text();
    Structure structure{text};
    MarkupParse::Edge edge = parse.GetEdge();
    for (;;) {
        const size_t start = structure.NextTag(place);
        if (start + 1 >= text.size()) {
            parse.SetEdge(edge);
            if (start < text.size()) parse.TakeToken(start);
            return;
        }
        const char first = text[start + 1];
        if (nameStart.Has(first)) {
            bool isUnquoted = false;
            const size_t end = FindTagEnd(structure, text, start + 2, isUnquoted);
            if (end < text.size()) {
                const bool isEmpty =
                    text[end - 1] == '/' && (!isUnquoted || beforeEmptySlash.Has(text[end - 2]));
                parse.Open(edge, start, end + 1 - start, isEmpty);
                place = end + 1;
                continue;
            }
        } else if (first == '/') {
            size_t end = structure.NextStop(start + 2);
            while (end < text.size() && text[end] == '=') end = structure.NextStop(end + 1);
            if (end < text.size() && parse.IsOpen(edge) &&
                IsEndOf(*edge.open, text, start + 2, end)) {
                parse.Close(edge, start, end + 1);
                place = end + 1;
                continue;
            }
        }
        parse.SetEdge(edge);
        place = parse.TakeToken(start);
        edge = parse.GetEdge();
    }
}
