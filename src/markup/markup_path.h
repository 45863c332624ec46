#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// One name of a path, with its condition.
struct PathSegment {
    std::string_view name;       ///< "*": any
    uint32_t index = 0;          ///< [n]; 0: none
    std::string_view attribute;  ///< [@name]; empty: none
    bool hasValue = false;       ///< [@name=value]
    std::string_view value;      ///< as it stands in the path

    [[nodiscard]] bool IsAny() const { return name == "*"; }
};

/// What finds are told to look for. Views into its text, which must outlive it; no memory is taken.
///
/// Thread-safety: constant.
class MarkupPath {
  public:
    enum class Type : int { kInvalid = -1, kAny = 0, kRelative = 1, kAbsolute = 2, kAnywhere = 3 };

    /// Null is the empty path.
    explicit MarkupPath(const char* text);

    [[nodiscard]] Type GetType() const { return m_Type; }
    /// How many names there are.
    [[nodiscard]] int Size() const { return m_Size; }
    /// REQUIRES: 0 <= place < Size().
    [[nodiscard]] PathSegment Segment(int place) const;
    /// What follows "/@" at its end; empty: nothing.
    [[nodiscard]] std::string_view Attribute() const { return m_Attribute; }

  private:
    Type m_Type = Type::kAny;
    std::string_view m_Segments;
    int m_Size = 0;
    std::string_view m_Attribute;

    [[nodiscard]] bool Read(std::string_view text);
};
