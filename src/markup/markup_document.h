#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "markup/saved_positions.h"
#include "markup/segmented_positions.h"
#include "markup/tokenizer.h"
#include "trace/api.h"

struct MarkupFileState;
class MarkupPath;

/// An XML or HTML document as one text, with an array of the places of its elements beside it: 32 bytes
/// an element, whatever it holds. Names and values are cut out of the text when they are asked for.
///
///     MarkupDocument order;
///     order.SetDocumentText("<order id='7'><item>ink</item><item>paper</item></order>");
///     if (!order.IsWellFormed()) Complain(ResultText(order.Result()));
///     if (order.FindSibling("order")) {                       // the root element
///         Show(order.GetAttribute("id"));                     // "7"
///         while (order.FindChild("item")) Show(order.GetChildData());  // "ink", "paper"
///     }
///     order.ResetPosition();
///     if (order.FindChild("/order/item[2]")) Show(order.GetChildData());  // "paper"
///
/// A document need not be well-formed: what is wrong with it is told by `Result`, and the elements that
/// are recognised can be visited. Nothing is checked that does not concern the structure: text, names,
/// attributes and declarations may hold anything.
///
/// **Positions.** A document has a main position, the current element, and a child position, one of its
/// children; either may be none. A find goes on behind the current one:
///
///     FindSibling("a")       the next sibling of the main position that is called a; at the start the
///                            first element
///     FindChild("a")         the next child of the main position that is called a
///     EnterChild()           the child position becomes the main one
///     LeaveToParent()        the parent becomes the main position, and the element the child position
///     ResetPosition()        back to the start
///
/// **Paths.** What both finds take:
///
///     ""  or null            any element
///     name                   an element of that name; name/name...: and what is in it
///     /name/name             from the start of the document, wherever the positions are
///     //name                 the next one anywhere behind the position, in the order of the text
///
/// where a name may be `*`, any, and may have one condition: `[2]`, the second of those that match;
/// `[@id]`, has that attribute; `[@id=7]`, `[@id='7']`, `[@id="7"]`, with that value. A path may end in
/// `/@id`: the element has that attribute. A path that is none of these finds nothing and moves
/// nothing.
///
/// **Limits.** A text of 2 GiB or more is refused: the document is empty then and `Result` tells
/// "document_too_large". A depth of more than 65,535, start tags of 4 MiB and end tags of 1 KiB or
/// more are cut to the low bits of their fields: elements are found, but what lies between their tags is
/// not told right.
///
/// Operations that take memory throw `std::bad_alloc`; a document that was to be parsed is empty then.
///
/// Thread-safety: one thread at a time.
class ZORN_API MarkupDocument {
  public:
    MarkupDocument();
    explicit MarkupDocument(std::string text);
    ~MarkupDocument();
    MarkupDocument(const MarkupDocument&) = delete;
    MarkupDocument& operator=(const MarkupDocument&) = delete;
    /// The other one is as newly made then. Views of its text may no longer hold.
    MarkupDocument(MarkupDocument&& other) noexcept;
    MarkupDocument& operator=(MarkupDocument&& other) noexcept;

    // --- The document ----------------------------------------------------------------------------

    /// Replaces the document and parses it. Null empties it and gives back the memory of its elements.
    /// True if it is well-formed, false also if it was refused.
    bool SetDocumentText(const char* text);
    /// The same without a copy, and with any bytes.
    bool SetDocumentText(std::string text);

    /// Parses the document once more: all positions, also the saved ones, are gone. True if it is
    /// well-formed.
    bool ParseDocument();

    /// The whole text.
    [[nodiscard]] const std::string& GetDocumentText() const { return document; }

    /// What the last operation found: records, as told in result_records.h; `ResultText` makes them
    /// readable.
    [[nodiscard]] const std::string& Result() const { return result; }

    /// Whether every start tag has its end tag and all tags are such. A second root element does not
    /// matter, nor that there is none (`Result` tells): so an empty document is.
    [[nodiscard]] bool IsWellFormed() const;

    /// How many elements there are.
    [[nodiscard]] int32_t GetElementCount() const;

    /// Bytes of the file and offset of what is next in it; 0 without a file.
    [[nodiscard]] int64_t GetFileSize() const;
    [[nodiscard]] int64_t GetFilePosition() const;

    /// `kMarkupIgnoreCase`, `kMarkupTrim` and `kMarkupCollapse`. The first is to be set before the
    /// document is.
    [[nodiscard]] uint32_t GetDocumentFlags() const { return flags; }
    void SetDocumentFlags(uint32_t options);

    // --- Moving ----------------------------------------------------------------------------------

    /// Makes the next sibling of the main position that `path` leads to the main position; there is no
    /// child position then. False, and nothing has moved, if there is none.
    bool FindSibling(const char* path = nullptr);

    /// Makes the next child of the main position that `path` leads to the child position; its parent is
    /// the main position then, none if it is at the top. False if there is none.
    ///
    /// Without a main position the first child of its parent becomes that before: so after
    /// `FindChild("/order")`, which is at the top, `FindChild("item")` looks in the first element of the
    /// document. "//name" goes on behind a child position at the top instead.
    bool FindChild(const char* path = nullptr);

    /// Makes the child position the main one. False if there is none.
    bool EnterChild();

    /// Makes the parent of the main position the main one, and that the child position. False at the
    /// top.
    bool LeaveToParent();

    /// No position: the next find begins at the start of the document.
    void ResetPosition();

    /// No child position: the next `FindChild` begins with the first child.
    void ResetChildPosition() { childPosition = 0; }

    /// Sets the positions. REQUIRES: positions of elements, or 0.
    void SetPositions(int32_t parent, int32_t main, int32_t child);

    /// The next node behind the current one, within the same parent, of a type of `mask` (`kNode...`);
    /// gives its type. Elements are passed over unless `mask` has their bit; the one passed last is the
    /// main position. 0, and nothing has moved, if there is none.
    ///
    /// At the start, and behind `ResetPosition`, the nodes in front of the first element come first.
    int32_t FindNextNode(int32_t mask);

    /// Keeps the child position, or without one the main position, or else its parent, under a name in
    /// one of any number of maps (0, 1, ...); of a node that is no element, the element it stands behind.
    /// False if there is none.
    bool SavePosition(std::string_view name, int map = 0);

    /// Goes back there: to a child position with its parent as the main one, to a main position without
    /// a child position. False, and nothing has moved, if there is none of that name.
    bool RestorePosition(std::string_view name, int map = 0);

    // --- The element or node ---------------------------------------------------------------------

    [[nodiscard]] int32_t MainPosition() const { return mainPosition; }
    [[nodiscard]] int32_t ChildPosition() const { return childPosition; }
    [[nodiscard]] int32_t MainParent() const { return mainParent; }

    /// Type of the current node, 0 if there is none.
    [[nodiscard]] int32_t GetNodeType() const { return nodeType; }

    /// The name of the current element or instruction, the first word of a document type, or "#text",
    /// "#cdata-section", "#comment". Empty if there is none.
    [[nodiscard]] std::string GetNodeName() const;
    /// The name of an element; empty at 0.
    [[nodiscard]] std::string_view GetNameOf(int32_t position) const;

    /// Text and CDATA sections directly in the current element, joined, references decoded; of another
    /// node what is between its marks. Options of the document apply to text, but not where there are
    /// sections too: their white space is meant.
    [[nodiscard]] std::string GetData() const;
    /// The same of the child position, and of the element at `position`; empty at 0.
    [[nodiscard]] std::string GetChildData() const { return GetDataOf(childPosition); }
    [[nodiscard]] std::string GetDataOf(int32_t position) const;

    /// The value of an attribute of the current element or instruction, decoded; empty if it is not
    /// there.
    [[nodiscard]] std::string GetAttribute(std::string_view name) const;
    [[nodiscard]] std::string GetChildAttribute(std::string_view name) const;
    /// The same of the element at `position`.
    [[nodiscard]] std::string GetAttribute(int32_t position, std::string_view name) const;
    /// Whether it is there.
    [[nodiscard]] bool HasAttribute(std::string_view name) const;
    [[nodiscard]] bool HasAttribute(int32_t position, std::string_view name) const;

    /// Name and decoded value of attribute number `index`, from 0, of the element at `position`. False
    /// if there are fewer.
    bool GetAttributeAt(int32_t position, int index, std::string& name, std::string& value) const;

    /// The text of the current element or node, with its tags.
    [[nodiscard]] std::string_view GetMarkup() const;

    /// Whether the current element has elements in it.
    [[nodiscard]] bool HasChildren() const;

    /// Depth of the main position: 1 at the top, 0 for none. It is that of the start tag when it was
    /// met: an element whose surroundings turned out to have no end keeps it.
    [[nodiscard]] int32_t GetElementDepth() const;

    /// The flags of the main position (`kElement...`), those of the caller among them.
    [[nodiscard]] uint32_t GetElementFlags() const;
    /// Sets the four bits of the caller (`kElementCallersBits`) and no others.
    void SetElementFlags(uint32_t value);

    /// 0 at the top, and of 0.
    [[nodiscard]] int32_t GetParentOf(int32_t position) const {
        return position != 0 ? PositionOf(position).parent : 0;
    }

    /// The element that follows in the order of the text, children before siblings; behind 0 the first
    /// one. 0 at the end. So all elements are visited:
    ///
    ///     for (int32_t at = 0; (at = document.GetFollowing(at)) != 0;) Show(document.GetNameOf(at));
    ///
    /// REQUIRES: a position of this document, or 0.
    [[nodiscard]] int32_t GetFollowing(int32_t position) const {
        // The parse of a document numbers its elements in the order of the text.
        if ((flags & kMarkupChanged) != 0) return FollowingByLinks(position);
        return position + 1 < nextUnused ? position + 1 : 0;
    }

    /// The record of an element, until the document changes. REQUIRES: a position of this document, not 0.
    [[nodiscard]] const ElementPosition& PositionOf(int32_t position) const {
        return (*positions)[position];
    }

  private:
    friend class MarkupParse;
    friend class MarkupFind;
    friend class FreeRecords;

    std::string document;
    std::string result;
    int32_t mainParent = 0;
    int32_t mainPosition = 0;
    int32_t childPosition = 0;
    int32_t nextUnused = 1;  ///< next never-used index of `positions`
    int32_t freeList = 0;    ///< freed records, linked through `nextSibling`
    int32_t nodeType = 0;
    int32_t nodeOffset = 0;  ///< of the current node that is no element
    int32_t nodeLength = 0;
    uint32_t flags = 0;
    std::unique_ptr<MarkupFileState> fileState;  ///< in read and write mode only
    std::unique_ptr<SavedPositions> savedPositions;
    std::unique_ptr<SegmentedPositions> positions;

    void Clear();
    void ClearPositions();
    int32_t ParseElements(int32_t parent, TokenCursor& cursor);
    void SetMain(int32_t position);
    void SetChild(int32_t position);
    [[nodiscard]] int32_t FollowingByLinks(int32_t position) const;
    [[nodiscard]] int32_t FindFrom(const MarkupPath& path, int32_t next, int32_t current) const;
    [[nodiscard]] int32_t ContentBegin(int32_t position) const;
    [[nodiscard]] int32_t ContentEnd(int32_t position) const;
    [[nodiscard]] std::string_view TextOf(int32_t offset, int32_t length) const;
    [[nodiscard]] std::string_view NameAt(int32_t offset) const;
    [[nodiscard]] TokenCursor CursorAt(int32_t offset) const;
    [[nodiscard]] TokenCursor CurrentAttributes() const;
    [[nodiscard]] TokenCursor AttributesOf(int32_t position) const;
    [[nodiscard]] TokenCursor AttributesIn(int32_t start, int32_t length, int32_t front,
                                           int32_t back) const;
    [[nodiscard]] std::string ValueIn(TokenCursor&& cursor, std::string_view name) const;
};
