#pragma once

#include <cstdint>

#include "trace/api.h"

// Private profiles: files of sections `[name]` with entries `name=value`, as docs/formats.md shows
// them. Read and edited by scanning the file at each call; nothing is cached, nothing is kept open.
//
// There is no lock: two writers of one file at a time can spoil it, and a reader may see an edit
// half done. Thread-safety: any thread, but for that.

/// Reads the value of `key` in `section` into `buffer` of `size` bytes, and gives its length. A null
/// `key` asks for the list of the names in `section`, a null `section` for the list of the
/// sections: texts each ended by a NUL, and an empty one at the end.
///
/// A value that is too long is cut to `size` - 1 bytes. A list that may have been cut has the
/// result `size` - 1 or `size` - 2 and is properly ended all the same.
///
/// If the file cannot be opened (a line at level 4), or nothing is found, or the value is empty:
/// `defaultText`, cut to `size` - 1 bytes, and its length, where `section`, `key` and `defaultText`
/// are all given; otherwise an empty text and 0. The same for a `size` of 1 or 2, whatever the file
/// holds. 0, and nothing is written, if `buffer` or `fileName` is null or `size` is 0.
ZORN_API int GetPrivateProfileString(const char* section, const char* key, const char* defaultText,
                                     char* buffer, uint32_t size, const char* fileName);

/// Sets `key` in `section` to `value`, in place: the entry takes the place of the one of that name
/// (and of the comments right above that one), or comes to the end of its section, or to the end of
/// the file in a new section. A null `value` deletes the key, a null `key` the section with the
/// comments above its head. Call and result are traced at level 4.
///
/// 1 if that is done; also if there is no file to delete something in, and none is made then. A new
/// file has mode 0644. A file that can be appended to but not opened for an edit is taken for a new
/// one: it gets that mode and a further section. 0 if `section` (a line at level 4) or `fileName`
/// (likewise) is null, if there is nothing to delete in the file, if it cannot be read to its end
/// (it is untouched then) or opened to append (a line at level 1), or if an edit in the middle
/// fails. Whether appended text reached a full disk is not looked at: 1 too.
///
/// The file is not safe against a failure half way: it is rewritten in place from the changed line
/// on. If the disk is full, the lines at its end are missing or cut. If the process is killed, or
/// cutting the file to its new size fails, lines of the old end can stand there a second time, the
/// first of them cut. A reader sees the entries that are left; where a line was cut it can see a
/// part of it as an entry. What stands in front of the changed line is never touched.
///
/// `section`, `key` and `value` go into the file as they are: what the format does not hold (`;`,
/// line feeds, white space around them, a `=` in a key, lines of more than 1023 bytes) is not read
/// back as written. An entry for the last section goes behind the last byte of the file, also if
/// that is not a line feed: it is then part of the last line. Not cancelled in the middle.
ZORN_API int WritePrivateProfileString(const char* section, const char* key, const char* value,
                                       const char* fileName);
