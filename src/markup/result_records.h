#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// What operations on a document report: a sequence of empty elements, each with a name and attributes.
//
//     <unended_start_tag tagname="b" offset="3" offset2="17"/>
//
// A text of 1,000 bytes or more takes no further one, so that a document full of faults does not make
// it grow without end. All throw `std::bad_alloc`. Thread-safety: no state.

inline constexpr size_t kResultLimit = 1000;

/// An offset that is not known.
inline constexpr int64_t kNoOffset = -1;

/// Adds a fault: `name`, then "tagname" if it is given, then "offset" and "offset2" if known.
void AddErrorRecord(std::string& result, std::string_view name,
                    std::optional<std::string_view> tagName = std::nullopt,
                    int64_t offset = kNoOffset, int64_t offset2 = kNoOffset);

/// An attribute of an information record. No name: left out.
struct RecordText {
    std::string_view name;  ///< "type", "encoding", "msg" or "tagname"
    std::string_view value;
};
struct RecordNumber {
    std::string_view name;  ///< "count", "length", "offset" or "n"
    int64_t value = 0;
};

/// Adds an information: `name`, then the text, then the number, then "offset2" if known.
void AddInformationRecord(std::string& result, std::string_view name, RecordText text = {},
                          RecordNumber number = {}, int64_t offset2 = kNoOffset);
