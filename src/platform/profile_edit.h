#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>

/// What WritePrivateProfileString does to a file.
struct ProfileEdit {
    enum class Kind {
        kNothing,      ///< what is to go is not there
        kSplice,       ///< what stands from `from` up to `to` goes; the entry, if any, comes there
        kAppendEntry,  ///< the entry goes to the end of the file
        kAppendSection,  ///< so does a new section with it
    };
    Kind kind = Kind::kNothing;
    size_t from = 0;
    size_t to = 0;
    bool withEntry = false;  ///< the splice brings the entry
    /// The splice brings an empty line first: it takes away what was between a head and its first
    /// entry, where a new section has one.
    bool addEmptyLine = false;

    bool operator==(const ProfileEdit&) const = default;
};

/// Finds the place of an edit in the text of a profile (profile_text.h tells the format). A null
/// `key` deletes the section, a null `value` the key; the value itself does not matter.
///
/// Comments and empty lines belong to the significant line below them: they go with a deleted
/// section's head or a replaced entry, and a new entry at the end of a section comes before those of
/// the next head. A new entry of the last section goes to the end of the file.
/// REQUIRES: `section` is not null. Thread-safety: any thread; no state.
[[nodiscard]] ProfileEdit PlanProfileEdit(std::string_view text, const char* section,
                                          const char* key, const char* value);

/// Replaces what stands from offset `from` up to `to` in place: by an empty line if `addEmptyLine`,
/// then by the line `key=value` if both are given. What stands behind is written again, and the file
/// is cut to what it then holds. `stream` is open for reading and writing.
///
/// True if all of that got through. False, with the file as it was, if its size, memory, the place
/// or the rest cannot be had. False, with `from` and what follows partly written, if writing fails:
/// the file is then not cut, and what was not reached is as it was. False with some of the old end
/// doubled if cutting fails. A process that is killed meanwhile leaves the file in such a state.
/// Thread-safety: one thread a stream.
[[nodiscard]] bool SpliceFile(FILE* stream, long from, long to, const char* key, const char* value,
                              bool addEmptyLine);
