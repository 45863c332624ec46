#include "markup/markup_document.h"

#include <limits>
#include <tuple>
#include <utility>

#include "markup/attribute_scan.h"
#include "markup/characters.h"
#include "markup/entities.h"
#include "markup/find.h"
#include "markup/markup_path.h"
#include "markup/parse.h"
#include "markup/result_records.h"

/// Of documents that are read or written piece by piece.
struct MarkupFileState {};

namespace {

constexpr uint32_t kShownFlags = 0x0F300000;
constexpr uint32_t kOptions = kMarkupIgnoreCase | kMarkupTrim | kMarkupCollapse;
constexpr uint32_t kFileModes = kMarkupReadMode | kMarkupWriteMode;
constexpr size_t kLargestDocument = std::numeric_limits<int32_t>::max();

}  // namespace

MarkupDocument::MarkupDocument() = default;
MarkupDocument::~MarkupDocument() = default;

MarkupDocument::MarkupDocument(MarkupDocument&& other) noexcept : MarkupDocument() {
    *this = std::move(other);
}

MarkupDocument& MarkupDocument::operator=(MarkupDocument&& other) noexcept {
    const auto members = [](MarkupDocument& it) {
        return std::tie(it.document, it.result, it.mainParent, it.mainPosition, it.childPosition,
                        it.nextUnused, it.freeList, it.nodeType, it.nodeOffset, it.nodeLength,
                        it.flags, it.fileState, it.savedPositions, it.positions);
    };
    if (&other == this) return *this;
    members(*this) =
        std::apply([](auto&... of) { return std::tuple{std::move(of)...}; }, members(other));
    other.Clear();
    other.flags = 0;
    return *this;
}

MarkupDocument::MarkupDocument(std::string text) : MarkupDocument() {
    SetDocumentText(std::move(text));
}

// --- The document --------------------------------------------------------------------------------

bool MarkupDocument::SetDocumentText(const char* text) {
    if (text != nullptr) return SetDocumentText(std::string{text});
    Clear();
    return IsWellFormed();
}

bool MarkupDocument::SetDocumentText(std::string text) {
    Clear();
    if (text.size() > kLargestDocument) {
        AddInformationRecord(result, "document_too_large", {},
                             {"length", static_cast<int64_t>(text.size())});
        return false;
    }
    document = std::move(text);
    return ParseDocument();
}

void MarkupDocument::Clear() {
    document = {};
    result.clear();
    positions.reset();
    savedPositions.reset();
    ClearPositions();
}

void MarkupDocument::ClearPositions() {
    mainParent = mainPosition = childPosition = 0;
    nodeType = nodeOffset = nodeLength = 0;
    nextUnused = 1;
    freeList = 0;
    flags &= ~kMarkupChanged;
}

bool MarkupDocument::ParseDocument() {
    result.clear();
    savedPositions.reset();
    ClearPositions();
    try {
        if (positions == nullptr) positions = std::make_unique<SegmentedPositions>();
        positions->Grow(static_cast<int32_t>(document.size() / 64 + 8));
        ElementPosition& root = (*positions)[0];
        root = {};
        if (document.empty()) return true;
        TokenCursor cursor = CursorAt(0);
        const int32_t first = ParseElements(0, cursor);
        positions->Trim(nextUnused);
        (*positions)[0].length = static_cast<int32_t>(document.size());
        (*positions)[0].firstChild = first;
        if (first == 0) {
            AddErrorRecord(result, "no_root_element");
        } else if ((*positions)[first].nextSibling != 0) {
            AddErrorRecord(result, "root_has_sibling");
        }
    } catch (...) {
        Clear();
        throw;
    }
    return IsWellFormed();
}

int32_t MarkupDocument::ParseElements(int32_t parent, TokenCursor& cursor) {
    return MarkupParse{*this, parent, cursor}.Run();
}

bool MarkupDocument::IsWellFormed() const {
    return positions == nullptr || (PositionOf(0).levelFlags & kElementIllFormed) == 0;
}

int32_t MarkupDocument::GetElementCount() const {
    if ((flags & kFileModes) != 0) return 0;
    int32_t count = nextUnused - 1;
    for (int32_t free = freeList; free != 0; free = PositionOf(free).nextSibling) --count;
    return count;
}

int64_t MarkupDocument::GetFileSize() const {
    return 0;
}

int64_t MarkupDocument::GetFilePosition() const {
    return 0;
}

void MarkupDocument::SetDocumentFlags(uint32_t options) {
    flags = (flags & ~kOptions) | (options & kOptions);
}

// --- Moving --------------------------------------------------------------------------------------

bool MarkupDocument::FindSibling(const char* path) {
    if ((flags & kMarkupWriteMode) != 0 || positions == nullptr) return false;
    const MarkupPath wanted{path};
    const int32_t next = mainPosition != 0 ? PositionOf(mainPosition).nextSibling
                                           : PositionOf(mainParent).firstChild;
    const int32_t found = FindFrom(wanted, next, mainPosition != 0 ? mainPosition : mainParent);
    if (found == 0) return false;
    SetMain(found);
    return true;
}

bool MarkupDocument::FindChild(const char* path) {
    if ((flags & kMarkupWriteMode) != 0 || positions == nullptr) return false;
    const MarkupPath wanted{path};
    if (wanted.GetType() == MarkupPath::Type::kInvalid) return false;
    const bool isAnywhere = wanted.GetType() == MarkupPath::Type::kAnywhere;
    const bool isElsewhere = isAnywhere || wanted.GetType() == MarkupPath::Type::kAbsolute;
    const bool goesOn = isAnywhere && childPosition != 0;
    if (mainPosition == 0 && !goesOn && !FindSibling() && !isElsewhere) return false;
    const int32_t next = childPosition != 0 ? PositionOf(childPosition).nextSibling
                                            : PositionOf(mainPosition).firstChild;
    const int32_t current = childPosition != 0  ? childPosition
                            : mainPosition != 0 ? mainPosition
                                                : mainParent;
    const int32_t found = FindFrom(wanted, next, current);
    if (found == 0) return false;
    SetChild(found);
    return true;
}

/// What the path leads to: a relative one from `next` on, one that leads anywhere behind `current`.
int32_t MarkupDocument::FindFrom(const MarkupPath& path, int32_t next, int32_t current) const {
    const MarkupFind find{*this, path};
    switch (path.GetType()) {
        case MarkupPath::Type::kAny:
            return next;
        case MarkupPath::Type::kRelative:
            return find.Among(next);
        case MarkupPath::Type::kAbsolute:
            return find.Among(PositionOf(0).firstChild);
        case MarkupPath::Type::kAnywhere:
            return find.Behind(current);
        case MarkupPath::Type::kInvalid:
            break;
    }
    return 0;
}

int32_t MarkupDocument::FollowingByLinks(int32_t position) const {
    if (positions == nullptr) return 0;
    const int32_t child = PositionOf(position).firstChild;
    if (child != 0) return child;
    while (position != 0) {
        const ElementPosition& element = PositionOf(position);
        if (element.nextSibling != 0) return element.nextSibling;
        position = element.parent;
    }
    return 0;
}

void MarkupDocument::SetPositions(int32_t parent, int32_t main, int32_t child) {
    mainParent = parent;
    mainPosition = main;
    childPosition = child;
    nodeOffset = 0;
    nodeLength = 0;
    nodeType = main != 0 ? kNodeElement : 0;
}

void MarkupDocument::SetMain(int32_t position) {
    SetPositions(PositionOf(position).parent, position, 0);
}

void MarkupDocument::SetChild(int32_t position) {
    const int32_t parent = PositionOf(position).parent;
    SetPositions(parent != 0 ? PositionOf(parent).parent : 0, parent, position);
}

bool MarkupDocument::EnterChild() {
    if (childPosition == 0) return false;
    SetMain(childPosition);
    return true;
}

bool MarkupDocument::LeaveToParent() {
    if (mainParent == 0) return false;
    const int32_t child = mainPosition;
    SetPositions(PositionOf(mainParent).parent, mainParent, child);
    return true;
}

void MarkupDocument::ResetPosition() {
    SetPositions(0, 0, 0);
}

bool MarkupDocument::SavePosition(std::string_view name, int map) {
    const int32_t position = childPosition != 0  ? childPosition
                             : mainPosition != 0 ? mainPosition
                                                 : mainParent;
    if (position == 0 || map < 0) return false;
    const PositionKind kind = childPosition != 0  ? PositionKind::kChild
                              : mainPosition != 0 ? PositionKind::kMain
                                                  : PositionKind::kParent;
    if (savedPositions == nullptr) savedPositions = std::make_unique<SavedPositions>();
    savedPositions->Make(map).Put(name, position, kind);
    return true;
}

bool MarkupDocument::RestorePosition(std::string_view name, int map) {
    SavedPositionMap* const names = savedPositions != nullptr ? savedPositions->Find(map) : nullptr;
    const SavedPosition* const saved = names != nullptr ? names->Find(name) : nullptr;
    if (saved == nullptr) return false;
    if (saved->Kind() == PositionKind::kChild) {
        SetChild(saved->position);
    } else if (saved->Kind() == PositionKind::kMain) {
        SetMain(saved->position);
    } else {
        SetPositions(saved->position, 0, 0);
    }
    return true;
}

// --- Nodes ---------------------------------------------------------------------------------------

TokenCursor MarkupDocument::CursorAt(int32_t offset) const {
    TokenCursor cursor;
    cursor.next = offset;
    cursor.text = document;
    cursor.flags = flags;
    return cursor;
}

/// Where the content of an element ends.
int32_t MarkupDocument::ContentEnd(int32_t position) const {
    const ElementPosition& element = PositionOf(position);
    return element.End() - element.EndTagLength();
}

/// Where it begins; behind the element if it has none.
int32_t MarkupDocument::ContentBegin(int32_t position) const {
    const ElementPosition& element = PositionOf(position);
    return position == 0 ? 0 : element.start + element.StartTagLength();
}

int32_t MarkupDocument::FindNextNode(int32_t mask) {
    if ((flags & kMarkupWriteMode) != 0 || positions == nullptr) return 0;
    int32_t passed = mainPosition;
    TokenCursor cursor = CursorAt(nodeLength != 0     ? nodeOffset + nodeLength
                                  : mainPosition != 0 ? PositionOf(mainPosition).End()
                                                      : ContentBegin(mainParent));
    cursor.text = cursor.text.substr(0, static_cast<size_t>(ContentEnd(mainParent)));
    for (NodeToken token; NextToken(cursor, token) != kTokenEndOfText;) {
        int32_t type = token.type;
        if (type == kTokenEndTag) type = kNodeEndTag;
        if (type == kNodeElement) {
            passed =
                passed != 0 ? PositionOf(passed).nextSibling : PositionOf(mainParent).firstChild;
            if (passed == 0) return 0;  // a tag within one whose length is cut
            cursor.next = PositionOf(passed).End();
        }
        if (type < 0 || (type & mask) == 0) continue;
        SetPositions(mainParent, passed, 0);
        nodeType = type;
        if (type == kNodeElement) return type;
        nodeOffset = token.start;
        nodeLength = token.length;
        return type;
    }
    return 0;
}

std::string MarkupDocument::GetNodeName() const {
    switch (nodeType) {
        case kNodeElement:
            return std::string{GetNameOf(mainPosition)};
        case kNodeText:
        case kNodeWhiteSpace:
            return "#text";
        case kNodeCdata:
            return "#cdata-section";
        case kNodeComment:
            return "#comment";
        case kNodeInstruction:
        case kNodeDocumentType:
            return std::string{wordEnd.FrontOf(TextOf(nodeOffset + 2, nodeLength - 2))};
        case kNodeEndTag:
            return std::string{NameAt(nodeOffset + 2)};
        default:
            return {};
    }
}

std::string_view MarkupDocument::GetNameOf(int32_t position) const {
    return position != 0 ? NameAt(PositionOf(position).start + 1) : std::string_view{};
}

std::string_view MarkupDocument::NameAt(int32_t offset) const {
    return tagNameEnd.FrontOf(std::string_view{document}.substr(static_cast<size_t>(offset)));
}

std::string_view MarkupDocument::TextOf(int32_t offset, int32_t length) const {
    return std::string_view{document}.substr(static_cast<size_t>(offset),
                                             static_cast<size_t>(length));
}

std::string_view MarkupDocument::GetMarkup() const {
    if (nodeLength != 0) return TextOf(nodeOffset, nodeLength);
    if (mainPosition == 0) return {};
    const ElementPosition& element = PositionOf(mainPosition);
    return TextOf(element.start, element.length);
}

namespace {

/// What is between the marks of a node that is no element: so many bytes at its ends are no content.
std::string_view Inside(std::string_view node, size_t begin, size_t end) {
    if (node.size() < begin + end) return {};
    return node.substr(begin, node.size() - begin - end);
}

}  // namespace

std::string MarkupDocument::GetData() const {
    const std::string_view node = GetMarkup();
    switch (nodeType) {
        case kNodeElement:
            return GetDataOf(mainPosition);
        case kNodeText:
        case kNodeWhiteSpace:
            return DecodeText(node, flags);
        case kNodeCdata:
            return std::string{Inside(node, std::string_view{"<![CDATA["}.size(), 3)};
        case kNodeComment:
            return std::string{Inside(node, 4, 3)};
        case kNodeInstruction:
            return std::string{Inside(node, 2, 2)};
        default:
            return std::string{node};
    }
}

/// Texts on both sides of a comment or an element are one text; a CDATA section stands for itself.
std::string MarkupDocument::GetDataOf(int32_t position) const {
    if (position == 0 || PositionOf(position).IsHollow()) return {};
    TokenCursor cursor = CursorAt(ContentBegin(position));
    cursor.text = cursor.text.substr(0, static_cast<size_t>(ContentEnd(position)));
    int32_t child = PositionOf(position).firstChild;
    std::string data;
    std::string text;
    bool hasSections = false;
    for (NodeToken token; NextToken(cursor, token) != kTokenEndOfText;) {
        if (token.type == kNodeElement) {
            cursor.next = PositionOf(child).End();
            child = PositionOf(child).nextSibling;
        } else if (token.type == kNodeText || token.type == kNodeWhiteSpace) {
            text.append(TextOf(token.start, token.length));
        } else if (token.type == kNodeCdata) {
            hasSections = true;
            data.append(DecodeText(std::exchange(text, {}), 0));
            data.append(
                Inside(TextOf(token.start, token.length), std::string_view{"<![CDATA["}.size(), 3));
        }
    }
    if (!hasSections) return DecodeText(text, flags);
    return data.append(DecodeText(text, 0));
}

bool MarkupDocument::HasChildren() const {
    return mainPosition != 0 && PositionOf(mainPosition).firstChild != 0;
}

int32_t MarkupDocument::GetElementDepth() const {
    if (mainPosition == 0) return 0;
    return static_cast<int32_t>(PositionOf(mainPosition).levelFlags & kElementDepth);
}

uint32_t MarkupDocument::GetElementFlags() const {
    return mainPosition != 0 ? PositionOf(mainPosition).levelFlags & kShownFlags : 0;
}

void MarkupDocument::SetElementFlags(uint32_t value) {
    if (mainPosition == 0) return;
    uint32_t& levelFlags = (*positions)[mainPosition].levelFlags;
    levelFlags = (levelFlags & ~kElementCallersBits) | (value & kElementCallersBits);
}

// --- Attributes ----------------------------------------------------------------------------------

/// Stands behind the name of an element's start tag, in a text that ends in front of the tag's end; in an
/// empty text for no element.
TokenCursor MarkupDocument::AttributesOf(int32_t position) const {
    if (position == 0) return {};
    const ElementPosition& element = PositionOf(position);
    return AttributesIn(element.start, element.StartTagLength(), 1,
                        (element.levelFlags & kElementEmpty) != 0 ? 2 : 1);
}

TokenCursor MarkupDocument::AttributesIn(int32_t start, int32_t length, int32_t front,
                                         int32_t back) const {
    TokenCursor cursor;
    cursor.next = start + front + static_cast<int32_t>(NameAt(start + front).size());
    const int32_t end = std::max(start + length - back, cursor.next);
    cursor.text = std::string_view{document}.substr(0, static_cast<size_t>(end));
    cursor.flags = flags;
    return cursor;
}

TokenCursor MarkupDocument::CurrentAttributes() const {
    if (nodeType == kNodeInstruction) return AttributesIn(nodeOffset, nodeLength, 2, 2);
    return AttributesOf(mainPosition);
}

std::string MarkupDocument::ValueIn(TokenCursor&& cursor, std::string_view name) const {
    AttributeText found;
    if (!FindAttribute(cursor, name, &found)) return {};
    return DecodeText(found.value, flags);
}

std::string MarkupDocument::GetAttribute(std::string_view name) const {
    return ValueIn(CurrentAttributes(), name);
}

std::string MarkupDocument::GetChildAttribute(std::string_view name) const {
    return ValueIn(AttributesOf(childPosition), name);
}

std::string MarkupDocument::GetAttribute(int32_t position, std::string_view name) const {
    return ValueIn(AttributesOf(position), name);
}

bool MarkupDocument::HasAttribute(std::string_view name) const {
    TokenCursor cursor = CurrentAttributes();
    return FindAttribute(cursor, name, nullptr);
}

bool MarkupDocument::HasAttribute(int32_t position, std::string_view name) const {
    TokenCursor cursor = AttributesOf(position);
    return FindAttribute(cursor, name, nullptr);
}

bool MarkupDocument::GetAttributeAt(int32_t position, int index, std::string& name,
                                    std::string& value) const {
    if (index < 0) return false;
    TokenCursor cursor = AttributesOf(position);
    AttributeText found;
    if (!FindAttribute(cursor, nullptr, index, &found)) return false;
    name = found.name;
    value = DecodeText(found.value, flags);
    return true;
}
