// The scan of a text for tags, compiled once for each instruction set: MARKUP_ISA is its attribute, and
// Bytes64, which looks at 64 bytes at a time, is defined in front of the include.

/// The structural characters of a text, a bit each, for the 64 bytes at hand: what has been passed has none
/// any more.
class Structure {
  public:
    MARKUP_ISA Structure(std::string_view text, size_t place) : m_Text(text) {
        Load(place & ~size_t{63});
        SkipTo(place);
    }

    /// The next "<", or the size of the text: what is in front of it is passed.
    MARKUP_ISA size_t NextTag() {
        if (m_Tags == 0 && !LoadTag()) return m_Text.size();
        m_Stops &= ~UpToFirst(m_Tags);
        return m_Begin + CountZeros(m_Tags);
    }

    /// Whether the next ">" or "=" is among the 64 bytes at hand.
    [[nodiscard]] MARKUP_ISA bool HasStop() const { return m_Stops != 0; }
    /// That one.
    [[nodiscard]] MARKUP_ISA size_t Stop() const { return m_Begin + CountZeros(m_Stops); }

    /// The next ">" or "=", or the size of the text.
    MARKUP_ISA size_t NextStop() {
        while (m_Stops == 0) {
            if (m_Begin + 64 >= m_Text.size()) return m_Text.size();
            Load(m_Begin + 64);
        }
        return Stop();
    }

    /// Passes that one, and what is in front of it.
    MARKUP_ISA void PassStop() {
        m_Tags &= ~UpToFirst(m_Stops);
        m_Stops &= m_Stops - 1;
    }

    /// Passes the stops in front of `place`.
    MARKUP_ISA void SkipStopsTo(size_t place) {
        if (place - m_Begin >= 64) Load(place & ~size_t{63});
        m_Stops &= ~uint64_t{0} << (place - m_Begin);
    }

    /// Passes all in front of `place`.
    MARKUP_ISA void SkipTo(size_t place) {
        SkipStopsTo(place);
        m_Tags &= ~uint64_t{0} << (place - m_Begin);
    }

  private:
    std::string_view m_Text;
    size_t m_Begin = 0;  ///< of the 64 bytes at hand
    uint64_t m_Tags = 0;
    uint64_t m_Stops = 0;

    MARKUP_ISA static size_t CountZeros(uint64_t bits) {
        return static_cast<size_t>(__builtin_ctzll(bits));
    }
    MARKUP_ISA static uint64_t UpToFirst(uint64_t bits) { return bits ^ (bits - 1); }

    /// Takes the next 64 bytes with a "<". False if there are none.
    MARKUP_ISA bool LoadTag() {
        size_t begin = m_Begin + 64;
        while (begin + 64 <= m_Text.size() && Bytes64{m_Text.data() + begin}.Equal('<') == 0) {
            begin += 64;
        }
        if (begin >= m_Text.size()) return false;
        Load(begin);
        return m_Tags != 0;
    }

    MARKUP_ISA void Load(size_t begin) {
        m_Begin = begin;
        if (begin + 64 <= m_Text.size()) {
            Take(Bytes64{m_Text.data() + begin});
            return;
        }
        char rest[64] = {};
        if (begin < m_Text.size()) memcpy(rest, m_Text.data() + begin, m_Text.size() - begin);
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

/// The ">" of the start tag at hand, which is the next stop then, or the size of the text. Tells whether it
/// ends a value without quotes.
MARKUP_ISA size_t FindTagEnd(Structure& structure, std::string_view text, bool& isUnquoted) {
    for (;;) {
        size_t place = structure.NextStop();
        if (place == text.size() || text[place] == '>') return place;
        do {
            if (++place == text.size()) return place;
        } while (whiteSpace.Has(text[place]));
        const char first = text[place];
        if (first == '"' || first == '\'') {
            place = FindQuote(text, place + 1, first) + 1;
            if (place > text.size()) return text.size();
        } else {
            while (place < text.size() && text[place] != '>' && !whiteSpace.Has(text[place]))
                ++place;
            isUnquoted = place < text.size() && text[place] == '>';
        }
        structure.SkipStopsTo(place);
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

/// Opens the element whose start tag is at `start`. False, and nothing has changed, if it has no end.
MARKUP_ISA bool TakeStartTag(MarkupParse& parse, MarkupParse::Edge& edge, Structure& structure,
                             std::string_view text, size_t start) {
    bool isUnquoted = false;
    const bool isShort = structure.HasStop() && text[structure.Stop()] == '>';
    const size_t end = isShort ? structure.Stop() : FindTagEnd(structure, text, isUnquoted);
    if (end >= text.size()) return false;
    structure.PassStop();
    if (text[end - 1] != '/') {
        parse.Open(edge, start, end + 1 - start, false);
    } else {
        parse.Open(edge, start, end + 1 - start,
                   !isUnquoted || beforeEmptySlash.Has(text[end - 2]));
    }
    return true;
}

/// Closes the innermost open element by the end tag at `start`. False, and nothing has changed, if that is not
/// its own.
MARKUP_ISA bool TakeEndTag(MarkupParse& parse, MarkupParse::Edge& edge, Structure& structure,
                           std::string_view text, size_t start) {
    const size_t end = structure.HasStop() ? structure.Stop() : structure.NextStop();
    if (end >= text.size() || text[end] != '>' || !parse.IsOpen(edge)) return false;
    if (!IsEndOf(*edge.open, text, start + 2, end)) return false;
    structure.PassStop();
    parse.Close(edge, start, end + 1);
    return true;
}

/// Hands all tags from `place` on to the parse.
MARKUP_SCAN void ScanTags(MarkupParse& parse, size_t place) {
    const std::string_view text = parse.Text();
    Structure structure{text, place};
    MarkupParse::Edge edge = parse.GetEdge();
    for (;;) {
        const size_t start = structure.NextTag();
        if (start + 1 >= text.size()) {
            parse.SetEdge(edge);
            if (start < text.size()) parse.TakeToken(start);
            return;
        }
        const char first = text[start + 1];
        if (nameStart.Has(first)) {
            if (TakeStartTag(parse, edge, structure, text, start)) continue;
        } else if (first == '/') {
            if (TakeEndTag(parse, edge, structure, text, start)) continue;
        }
        parse.SetEdge(edge);
        structure.SkipTo(parse.TakeToken(start));
        edge = parse.GetEdge();
    }
}
