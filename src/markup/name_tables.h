#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// A constant table of names with a number each, in which the case of ASCII letters does not
/// matter.
///
/// It is made by the compiler: one text of all buckets and the offset at which each begins, so that
/// nothing is set up when the process starts. A name lies in the bucket of the sum of its bytes. A
/// bucket is a run of entries, each of the name's length and its number, both with a fixed count of
/// decimal digits, and the name in lower case: "60216oslash60217ugrave" has oslash as 216.
///
/// Thread-safety: constant.
class NameTable {
  public:
    /// `starts` has one offset more than there are buckets: the end of `text`.
    constexpr NameTable(std::string_view text, std::span<const uint16_t> starts,
                        size_t lengthDigits, size_t numberDigits)
        : m_Text(text),
          m_Starts(starts),
          m_LengthDigits(lengthDigits),
          m_NumberDigits(numberDigits) {}

    /// The number of the first entry with that name; -1 if there is none.
    [[nodiscard]] int Find(std::string_view name) const;

    [[nodiscard]] size_t BucketCount() const { return m_Starts.size() - 1; }
    /// The entries of a bucket, as they stand. REQUIRES: below `BucketCount`.
    [[nodiscard]] std::string_view Bucket(size_t place) const {
        return m_Text.substr(m_Starts[place], m_Starts[place + 1] - m_Starts[place]);
    }

  private:
    std::string_view m_Text;
    std::span<const uint16_t> m_Starts;
    size_t m_LengthDigits;
    size_t m_NumberDigits;
};

/// The character entities of HTML 4 (section 24) and "apos", with their code points: 253 entries in
/// 130 buckets, the length with one digit, the code point with four.
///
/// Of names that differ only in case the first in the order of bytes is found: "oslash" is the
/// letter of "Oslash".
extern const NameTable kEntityTable;

/// The names of encodings, with their code pages: 365 entries in 155 buckets, the length with two
/// digits, the code page with five.
extern const NameTable kEncodingTable;
