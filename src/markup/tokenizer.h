#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "trace/api.h"

// The types of nodes, one bit each.
inline constexpr int32_t kNodeElement = 1;
inline constexpr int32_t kNodeText = 2;
inline constexpr int32_t kNodeWhiteSpace = 4;  ///< text of nothing else
inline constexpr int32_t kNodeCdata = 8;
inline constexpr int32_t kNodeInstruction = 16;
inline constexpr int32_t kNodeComment = 32;
inline constexpr int32_t kNodeDocumentType = 64;
inline constexpr int32_t kNodeEndTag = 128;  ///< of `MarkupDocument`; the tokenizer gives 0

// What a token can be besides.
inline constexpr int32_t kTokenEndTag = 0;
inline constexpr int32_t kTokenError = -1;      ///< a fault, up to the place where the scan goes on
inline constexpr int32_t kTokenEndOfText = -2;  ///< nothing was left

// Flags of a document that the engine looks at.
inline constexpr uint32_t kMarkupChanged = 0x0002;     ///< changed since it was parsed
inline constexpr uint32_t kMarkupIgnoreCase = 0x0008;  ///< letter case of names does not matter
inline constexpr uint32_t kMarkupReadMode = 0x0010;
inline constexpr uint32_t kMarkupWriteMode = 0x0020;
inline constexpr uint32_t kMarkupTrim = 0x0100;      ///< white space around values goes
inline constexpr uint32_t kMarkupCollapse = 0x0200;  ///< each run of white space is a blank

/// `nodeFlags` of an element written with "/>".
inline constexpr uint32_t kTokenEmpty = 0x10000;
/// `flags` of a cursor whose last word stood in quotes.
inline constexpr uint32_t kCursorQuoted = 0x8000;

/// Where a scan of a text stands.
struct TokenCursor {
    int32_t tokenStart = 0;  ///< offset of the first character of the name or word found
    int32_t tokenEnd = -1;   ///< offset of its last character; in front of that if it is empty
    int32_t next = 0;        ///< offset at which to go on
    std::string_view text;
    uint32_t flags = 0;  ///< of the document

    /// The name or word found.
    [[nodiscard]] std::string_view Word() const {
        return text.substr(static_cast<size_t>(tokenStart),
                           static_cast<size_t>(tokenEnd + 1 - tokenStart));
    }
};

/// One piece of a text.
struct NodeToken {
    int32_t type = 0;  ///< of a node, or `kToken...`
    int32_t start = 0;
    int32_t length = 0;
    uint32_t nodeFlags = 0;  ///< `kTokenEmpty`
    std::string errorText;   ///< records of the faults found, else empty

    [[nodiscard]] int32_t End() const { return start + length; }
};

/// Takes the next piece off the front of a text: a tag, a comment, a run of text ... The pieces follow
/// each other without a gap, and there is one for each byte, whatever the text: a fault is a piece of
/// type `kTokenError` with a record (see `MarkupDocument::Result`), and the scan goes on behind it.
///
/// The cursor has the name of an element, end tag or instruction then. Gives `token.type`.
///
/// A ">" in text ends that piece behind it. Letters behind "<!D" and "<![C" are not looked at.
/// Quotes count in a start tag behind "=", in a document type everywhere.
///
/// Throws `std::bad_alloc` where a record has no memory. Thread-safety: no state of its own.
ZORN_API int32_t NextToken(TokenCursor& cursor, NodeToken& token);
