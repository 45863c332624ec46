#include "markup/markup_path.h"

#include <charconv>

#include "markup/characters.h"

namespace {

/// Takes characters up to one that ends a name off the front.
std::string_view TakeName(std::string_view& rest) {
    const std::string_view name = pathNameEnd.FrontOf(rest);
    rest.remove_prefix(name.size());
    return name;
}

bool TakeCharacter(std::string_view& rest, char character) {
    if (!rest.starts_with(character)) return false;
    rest.remove_prefix(1);
    return true;
}

/// Takes what stands in front of the next `end`, and that too.
bool TakeUpTo(std::string_view& rest, char end, std::string_view& taken) {
    const size_t place = rest.find(end);
    if (place == rest.npos) return false;
    taken = rest.substr(0, place);
    rest.remove_prefix(place + 1);
    return true;
}

bool TakeValue(std::string_view& rest, std::string_view& value) {
    if (TakeCharacter(rest, '"')) return TakeUpTo(rest, '"', value) && TakeCharacter(rest, ']');
    if (TakeCharacter(rest, '\'')) return TakeUpTo(rest, '\'', value) && TakeCharacter(rest, ']');
    return TakeUpTo(rest, ']', value);
}

/// What stands between the brackets of a condition, and the last of these.
bool TakeCondition(std::string_view& rest, PathSegment& segment) {
    if (TakeCharacter(rest, '@')) {
        segment.attribute = TakeName(rest);
        if (segment.attribute.empty()) return false;
        segment.hasValue = TakeCharacter(rest, '=');
        return segment.hasValue ? TakeValue(rest, segment.value) : TakeCharacter(rest, ']');
    }
    std::string_view digits;
    if (!TakeUpTo(rest, ']', digits) || digits.starts_with('0')) return false;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), segment.index);
    if (error == std::errc::result_out_of_range) segment.index = UINT32_MAX;
    return error != std::errc::invalid_argument && end == digits.data() + digits.size();
}

bool TakeSegment(std::string_view& rest, PathSegment& segment) {
    segment = {};
    segment.name = TakeName(rest);
    return !segment.name.empty() && (!TakeCharacter(rest, '[') || TakeCondition(rest, segment)) &&
           (rest.empty() || rest.front() == '/');
}

}  // namespace

MarkupPath::MarkupPath(const char* text) {
    std::string_view rest = text != nullptr ? text : "";
    if (rest.empty()) return;
    m_Type = rest.starts_with("//")  ? Type::kAnywhere
             : rest.starts_with('/') ? Type::kAbsolute
                                     : Type::kRelative;
    rest.remove_prefix(m_Type == Type::kAnywhere ? 2 : m_Type == Type::kAbsolute ? 1 : 0);
    if (!Read(rest) || (m_Type == Type::kAnywhere && m_Size > 1)) m_Type = Type::kInvalid;
}

bool MarkupPath::Read(std::string_view text) {
    m_Segments = text;
    PathSegment segment;
    for (std::string_view rest = text;;) {
        if (!TakeSegment(rest, segment)) return false;
        ++m_Size;
        if (!TakeCharacter(rest, '/')) return true;
        if (!TakeCharacter(rest, '@')) continue;
        m_Attribute = TakeName(rest);
        return rest.empty() && !m_Attribute.empty();
    }
}

PathSegment MarkupPath::Segment(int place) const {
    PathSegment segment;
    std::string_view rest = m_Segments;
    for (int i = 0; i <= place; ++i) {
        (void)TakeSegment(rest, segment);
        (void)TakeCharacter(rest, '/');
    }
    return segment;
}
