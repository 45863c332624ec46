// A record's text is a row of pieces, each with the attribute that follows it.

#include "markup/result_text.h"

#include <algorithm>
#include <array>

#include "markup/markup_document.h"

namespace {

/// Left out if the record has no such attribute, or an empty one that must not be.
struct Piece {
    std::string_view text;
    std::string_view attribute = {};  ///< empty: none
    bool mayBeEmpty = false;
    std::string_view behind = {};
};

struct RecordRow {
    std::string_view name;
    std::array<Piece, 3> pieces;
};

constexpr Piece kAtOffset{"tag syntax error at offset ", "offset"};
constexpr Piece kEncoding{"encoding ", "encoding", false, " "};
constexpr Piece kLength{"length ", "length"};

constexpr RecordRow kRows[] = {
    {"root_has_sibling", {{{"root element has sibling"}}}},
    {"no_root_element", {{{"no root element"}}}},
    {"lone_end_tag", {{{"lone end tag '", "tagname", true}, {"' at offset ", "offset"}}}},
    {"unended_start_tag",
     {{{"start tag '", "tagname", true},
       {"' at offset ", "offset"},
       {" expecting end tag at offset ", "offset2"}}}},
    {"first_tag_syntax", {{kAtOffset, {" expecting tag name / ! or ?"}}}},
    {"exclamation_tag_syntax", {{kAtOffset, {" expecting 'DOCTYPE' [ or -"}}}},
    {"doctype_tag_syntax", {{kAtOffset, {" expecting markup declaration"}}}},
    {"comment_tag_syntax", {{kAtOffset, {" expecting - to begin comment"}}}},
    {"cdata_section_syntax", {{kAtOffset, {" expecting 'CDATA'"}}}},
    {"unterminated_tag_syntax",
     {{{"unterminated tag at offset ", "offset"}, {" (", "type", false, ")"}}}},
    {"document_too_large", {{{"document too large: "}, kLength}}},
    {"read", {{{"read "}, kEncoding, kLength}}},
    {"write", {{{"write "}, kEncoding, kLength}}},
    {"bom", {{{"BOM +"}}}},
    {"nulls_removed", {{{"removed ", "count"}, {" nulls"}}}},
    {"endian_swap", {{{"endian swap"}}}},
    {"converted_to", {{{"converted to ", "encoding", false, " "}, kLength}}},
    {"converted_from", {{{"converted from ", "encoding", false, " "}, kLength}}},
    {"conversion_loss", {{{"(chars lost in conversion!)"}}}},
    {"utf8_detection", {{{"(used UTF-8 detection)"}}}},
    {"truncation_error", {{{"encoding ", "encoding"}, {" adjustment error"}}}},
    {"file_error", {{{"file error: ", "msg", true}, {" (errno ", "n", false, ")"}}}},
};

std::string TextOf(const MarkupDocument& records, const RecordRow& row) {
    const int32_t record = records.MainPosition();
    std::string text;
    for (const Piece& piece : row.pieces) {
        const std::string value = records.GetAttribute(record, piece.attribute);
        const bool isThere = piece.mayBeEmpty ? records.HasAttribute(record, piece.attribute)
                                              : piece.attribute.empty() || !value.empty();
        if (isThere) text.append(piece.text).append(value).append(piece.behind);
    }
    while (text.ends_with(' ')) text.pop_back();
    return text;
}

std::string TextOf(const MarkupDocument& records) {
    const auto* const row = std::ranges::find(kRows, records.GetNodeName(), &RecordRow::name);
    return row != std::end(kRows) ? TextOf(records, *row) : std::string{records.GetMarkup()};
}

/// Remarks follow what they are about, and what follows a byte order mark belongs to it.
std::string_view Between(std::string_view before, std::string_view next) {
    if (before.empty()) return {};
    return before.ends_with('+') || next.starts_with('(') ? " " : ", ";
}

}  // namespace

std::string ResultText(std::string_view result) {
    MarkupDocument records{std::string{result}};
    std::string all;
    while (records.FindSibling()) {
        const std::string text = TextOf(records);
        all.append(Between(all, text)).append(text);
    }
    return all;
}
