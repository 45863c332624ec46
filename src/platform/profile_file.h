#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "trace/api.h"

/// A private profile (private_profile.h) by name, with buffers that grow with what is read. The
/// file is opened for each call and not in between; "open" means that it is to be used.
///
///     CProfileFile profile;
///     if (!profile.SetFileName("/etc/thing.ini", true)) return false;
///     const int limit = profile.GetInt("Limits", "Lines", 100);
///     for (const char* key = profile.GetKeyList("Limits"); *key != '\0'; key = profile.NextKey()) ...
///
/// What is read may be as long as 64509 bytes (`GetString`: 65533): a longer text or list counts as
/// not to be had. A list ends at an empty name (`[]`, or an entry `=1`): what stands behind it is not
/// seen by those operations that go over a list. Thread-safety: one thread.
class ZORN_API CProfileFile {
  public:
    /// No name, not open.
    CProfileFile();
    ~CProfileFile();
    CProfileFile(const CProfileFile&) = delete;
    CProfileFile& operator=(const CProfileFile&) = delete;

    /// Takes another name (a copy) and opens. With `mustExist` that needs a file that can be read.
    /// False, and not open, if that fails or `name` is null; a null `name` leaves none.
    bool SetFileName(const char* name, bool mustExist);

    /// Opens the file of the name that was set; as `SetFileName`.
    bool Open(bool mustExist);

    [[nodiscard]] bool IsOpen() const;
    void Close();

    /// The name; empty if there is none. Valid until the next `SetFileName`.
    [[nodiscard]] const char* GetFileName() const;

    /// The first 31 bytes of the value as `strtoul` reads them in base 0 (10, 0x10, 010), cut to 32
    /// bits: a text that is no number gives 0, and -1 gives -1. `defaultValue` if not open, without
    /// a section or key, or if the value is missing or empty.
    [[nodiscard]] int32_t GetInt(const char* section, const char* key, int32_t defaultValue);

    /// Puts into `out` what GetPrivateProfileString gives, lists with their NULs. False, with
    /// `defaultText` in `out` (nothing if it is null), if not open or if the text is too long.
    bool GetString(std::string& out, const char* section, const char* key, const char* defaultText);

    /// What GetPrivateProfileString gives. `defaultText` itself if not open or if the text is too
    /// long. Valid until the next call; `defaultText` must not come from the last one.
    [[nodiscard]] const char* GetValue(const char* section, const char* key,
                                       const char* defaultText);

    /// The list of the names in `section`, or of the sections if it is null, and the start of a walk
    /// over it with `NextKey`. Valid until the next call, which may be one of `GetSections`,
    /// `GetKeys` or `CopySection`. Empty if not open or if the list is too long.
    [[nodiscard]] const char* GetKeyList(const char* section);

    /// The next text of the list that `GetKeyList` gave last; empty if there is none.
    [[nodiscard]] const char* NextKey();

    /// Appends the names of the sections to `out`. True if there was one.
    bool GetSections(std::vector<std::string>& out);

    /// Appends the names of the entries in `section` to `out`. True if there was one; false for a
    /// null `section`.
    bool GetKeys(std::vector<std::string>& out, const char* section);

    /// Writes each entry of `from` into `to`. False if not open; whether each could be written is
    /// not told.
    bool CopySection(const char* from, const char* to);

    // Edits of the file, open or not, with WritePrivateProfileString: true for its 1.

    bool DeleteSection(const char* section);
    bool DeleteKey(const char* section, const char* key);
    bool WriteString(const char* section, const char* key, const char* value);
    /// False, and nothing is written, without a section or key.
    bool WriteUInt(const char* section, const char* key, uint32_t value);
    /// False, and nothing is written, without a section or key.
    bool WriteInt(const char* section, const char* key, int32_t value);

  private:
    char* m_FileName;            ///< from malloc, like the buffers; or null
    char* m_ValueBuffer;         ///< of `GetValue`
    char* m_ListBuffer;          ///< of `GetKeyList`
    char* m_ListCursor;          ///< current text of a walk, in `m_ListBuffer`
    uint32_t m_ValueBufferSize;  ///< [bytes]
    uint32_t m_ListBufferSize;   ///< [bytes]
    bool m_IsOpen;

    bool AppendList(std::vector<std::string>& out, const char* section);
};
