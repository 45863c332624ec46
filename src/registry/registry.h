#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "registry/registry_node.h"
#include "trace/api.h"
#include "trace/recursive_lock.h"

struct RegistryFiles;

/// The hives, by their place in `CRegistry::MHives`.
inline constexpr int kRegistryHives = 5;
inline constexpr int kHiveLocalMachine = 0;   ///< HKEY_LOCAL_MACHINE: machine settings
inline constexpr int kHiveCurrentUser = 1;    ///< HKEY_CURRENT_USER: user settings
inline constexpr int kHiveUsers = 2;          ///< HKEY_USERS: user profiles
inline constexpr int kHiveClassesRoot = 3;    ///< HKEY_CLASSES_ROOT: classes
inline constexpr int kHiveCurrentConfig = 4;  ///< HKEY_CURRENT_CONFIG: current configuration

/// Handle on the registry: a tree of keys with named, typed values, in the memory of the process and
/// mirrored to a text file (docs/formats.md). A handle is cheap and short-lived: the first one reads
/// the file, and each one saves the tree when it goes, if the tree has changed.
///
///     CRegistry settings{"SOFTWARE\\Tolbrin", CRegistry::MHives[kHiveLocalMachine], 0};
///     std::string path;
///     if (settings.GetValue(path, "Path", nullptr) == 0) Use(path);
///     settings.SetValue("Count", 42);       // on disk when `settings` goes
///
/// Results of the operations that give an int:
///
///     0              done
///     22 (EINVAL)    no current key, or an argument is null that must not be
///     34 (ERANGE)    the caller's buffer is too small
///     61 (ENODATA)   no such value, or not of that type, or the enumeration is at its end
///     -1             `Open`, `OpenPointer` or `CreateKey` failed
///
/// A key path is a list of names with backslashes between them or, if it holds no backslash, with
/// slashes. One separator at its end is ignored. Where a `node` may be given, null means the current
/// key of the handle. Letter case matters in all names.
///
/// What the file cannot hold comes back changed or not at all: names with '=' or a newline, names of
/// keys with ']', names of values that begin with '[' (if a ']' follows), texts with a newline, and
/// lines (name, tag and text) of more than 1,022 characters.
///
/// No operation throws. Without memory an operation fails with its own result.
///
/// Thread-safety: a handle belongs to one thread; any number of handles may work on the tree at a
/// time. Each access to a key is one step, a walk along a path is not. A key that another handle
/// deletes is an empty key to those who stand on it, and what they set there is lost; its memory is
/// freed at the first moment without any handle, so let no handle live as long as the process. Hold
/// the lock of no key while a handle is made or goes: a save takes the locks of the keys, one at a
/// time, behind its own.
class ZORN_API CRegistry {
  public:
    /// No current key.
    CRegistry();

    /// `key` is the current one. It is read behind the first set-up of the tree, so that a reference
    /// to an element of `MHives` works for the first handle too.
    explicit CRegistry(const HKEY& key);

    /// `Open(path, key, access)`; the result is that of `LastError`.
    CRegistry(const char* path, const HKEY& key, unsigned access);

    /// Another handle on the current key of `other`, with its key path and nothing else.
    CRegistry(const CRegistry& other);

    /// The same; nothing if `other` is this handle. What `GetValue` gave before stays until the next
    /// read.
    CRegistry& operator=(const CRegistry& other);

    /// `SaveTree()`.
    ~CRegistry();

    /// Puts the handle into the state after construction, brings the tree into memory if it is not
    /// yet there, and sees to it that the hives have their names in it. All constructors have done
    /// so.
    void InitClass();

    /// Takes the current key off the handle. The result is that key, or null.
    [[nodiscard]] HKEY Detach();

    /// The same; tells whether there was one.
    bool DetachChecked();

    /// The current key, or null.
    [[nodiscard]] HKEY Key() const { return m_Node; }

    /// What was last given to `Open`, with slashes for the separators that were passed; null if that
    /// failed. Valid until the next `Open`, `OpenPointer`, `InitClass` or assignment.
    [[nodiscard]] const char* KeyPath() const { return m_KeyPath.get(); }

    /// 0, or -1 if the last `Open` or `OpenPointer` failed. Nothing else sets it.
    [[nodiscard]] int LastError() const { return m_LastError; }

    /// Bytes of the value last read, 0 if there was none. Texts count with their NUL, expanded ones
    /// without.
    [[nodiscard]] unsigned ValueLength() const { return m_ValueLength; }

    /// Type of the value last read.
    [[nodiscard]] unsigned ValueType() const { return static_cast<unsigned>(m_ValueType); }

    /// Whether texts of type 2 are expanded on reading: true at first.
    void ExpandStrings(bool expand) { m_ExpandStrings = expand; }

    // --- Keys ------------------------------------------------------------------------------------

    /// Makes the key at `path` below `key` (null: below the root, where the hives are) the current
    /// one. `access` is ignored. 0, or -1 if a key is missing or `path` is null: there is no current
    /// key then.
    int Open(const char* path, HKEY key, unsigned access);

    /// Makes the key at `path` below `parent` (null: the current key) the current one, after making
    /// the keys that are missing. 0, also if all were there; -1 if `path` or both keys are null, or
    /// a value other than the number 0 has one of the names: the keys above it stay made, the
    /// current key stays.
    int CreateKey(HKEY parent, const char* path);

    /// Opens the key to which a value leads: `Open(path, key, access)`, then its value `valueName`
    /// is a key path that begins with the name of a hive, in any case of letters. -1, and no current
    /// key, if one of the two cannot be opened or the value holds no separator. Only the separator
    /// behind the hive may be a backslash.
    int OpenPointer(const char* path, const char* valueName, HKEY key, unsigned access);

    /// `OpenPointer` with the fixed path of the UUID key.
    int OpenPointerUuid(const char* valueName, HKEY key, unsigned access);

    /// Deletes the subkey `name` of the current key with all below it. 0, also if it was deleted
    /// before; 22 if no such key was ever there.
    int DeleteKey(const char* name);

    /// The name of subkey number `index` (from 0, in the order of names) of the current key, cut to
    /// `*nameLength` - 1 characters and terminated; with a `*nameLength` of 0 nothing is written.
    /// `*nameLength` becomes the number of characters, `*classLength` (if given) 0. 0, 22 or 61.
    int EnumKey(char* name, unsigned* nameLength, unsigned index, unsigned* reserved,
                unsigned* classLength);

    /// The same with the size of `name` by value: the length is not told.
    int EnumKeyByValue(char* name, unsigned nameLength, unsigned index, unsigned* reserved,
                       unsigned classLength);

    /// The number of subkeys of the current key. 0 or 22.
    int QuerySubkeyCount(unsigned* count);

    // --- Values ----------------------------------------------------------------------------------

    /// Bytes of a value: for a text its length and 1, not expanded; for a binary value its length;
    /// for a number 4. 0 if there is none.
    unsigned GetValueSize(const char* name, HKEY node);

    /// A value, `ValueLength()` bytes of type `ValueType()` and a NUL behind them, valid until the
    /// next read on this handle. Null if there is none, or it is a binary value without bytes.
    ///
    /// In a text of type 2, %NAME% is replaced by that variable of the environment, or by nothing
    /// if it is not set, and %% by one %; a % without a partner is dropped.
    char* GetValue(const char* name, HKEY node);

    /// The first four bytes of a value that has four bytes: of a number, but also of a text of three
    /// characters, which is not expanded. 0, 22 or 61; `*out` is set by 0 only.
    int GetValue(unsigned* out, const char* name, HKEY node);

    /// A text. 0, 22 or 61; `out` is set by 0 only.
    int GetValue(std::string& out, const char* name, HKEY node);

    /// A text with its NUL into the `size` bytes at `dst`. 34 if they are too few: `dst` then holds
    /// the first `size` characters, without a NUL. 0, 22 or 61 else; 0 too if the text is there and
    /// `dst` is null.
    int GetValue(char* dst, const char* name, unsigned size, HKEY node);

    /// A text with its NUL into the `*count` bytes at `dst`; `*count` becomes its length. If `dst` is
    /// null `*count` becomes its length and 1: the size to ask with. 34 if `count` is null, with a
    /// line at level 1, or the bytes are too few: `dst` then holds the first `*count` characters,
    /// without a NUL. 0, 22 or 61 else.
    int QueryValue(char* dst, const char* name, unsigned* count, HKEY node);

    /// The name of value number `index` of the current key, as `EnumKey` gives that of a key. `filter`
    /// is the type of those that count, or `kRegistryAllValues`. With that filter and with filter 0
    /// the enumeration has one empty name more at its end. If `data` and `dataLength` are given, a
    /// text is stored as by `QueryValue`, whose result is then the result, and a number if
    /// `*dataLength` is at least 4; `*dataLength` becomes the bytes stored, 0 for what cannot be had
    /// so. 0, 22, 34 or 61.
    int EnumValue(char* name, unsigned* nameLength, unsigned index, unsigned filter, char* data,
                  unsigned* dataLength);

    /// The same with the sizes by value: the lengths are not told.
    int EnumValueByValue(char* name, unsigned nameLength, unsigned index, unsigned filter,
                         char* data, unsigned dataLength);

    /// Sets a value of `size` bytes of a type 1 to 4, in place of what has that name, also of a
    /// subkey with all below it. A text is stored with a NUL behind it, a number must have 4 bytes.
    /// False without a key, for another type or size, or without memory; true, and nothing stored,
    /// if `name` is null.
    bool SetValue(const char* name, const void* data, unsigned size, unsigned type, HKEY node);

    /// Sets a number in the current key. 0 or 22.
    int SetValue(const char* name, int value);

    /// Sets a text of type 1 in the current key. 0 or 22.
    int SetValue(const char* name, const char* text);

    /// Takes a value, or a subkey with all below it, out of the current key. 0, also if there is
    /// none; 22 without a current key.
    int DeleteValue(const char* name);

    /// The value `name` of the UUID key of the local machine, looked for twice. False, and `out` as
    /// it was, if there is no such text.
    bool GetUuidValue(std::string& out, const char* name);

    // --- The tree and its files --------------------------------------------------------------------

    /// The keys of the hives; null while the tree has no such key. Set when the tree is restored,
    /// before the first constructor returns. Thread-safety: constructors may be given an element while
    /// others delete or restore its key; for other reads no such key may come or go meanwhile.
    static CRegistryNode* MHives[kRegistryHives];

    /// Brings the tree into memory from the first of the three files that holds a value; with
    /// `forceSetup` also if it is there already, over what is there. A failure shows in the trace
    /// only: the next call tries again. Thread-safety: any thread.
    static void SetupTree(bool forceSetup);

    /// Reads the file `path` into `node`, name by name over what is there. 0, with a line at level 1,
    /// if it cannot be opened or read, is empty, or holds no value; 1 else.
    /// Thread-safety: any thread, other trees at the same time.
    static int RestoreTree(const char* path, CRegistryNode* node);

    /// Reads lines up to the one that ends a node, or to the end of the file, into `node`. The
    /// stream stands behind that line then, if it can be positioned. 1 if there was a value among
    /// them, at any depth; 0 else.
    static unsigned ReadNode(CRegistryNode* node, FILE* file);

    /// Writes the content of a node. False if not all of it has reached the stream; `errno` tells
    /// why.
    static bool WriteNode(CRegistryNode* node, FILE* file);

    /// Writes the tree, if it has changed, beside its file, and puts that in its place once it is
    /// whole; the former file becomes the backup unless it is empty. After a failure the change is
    /// in memory only, until the next one. Waits for a save that another thread makes, which may be
    /// that of the caller's changes. Thread-safety: any thread.
    static void SaveTree();

    /// Frees everything below a node and traces each name at level 2; names and types stay.
    static void DeleteNode(CRegistryNode* node);

    /// Clears the handle of a hive whose key goes.
    static void ForgetHive(const CRegistryNode* key);

  private:
    int32_t m_LastError;
    uint32_t m_ValueLength;
    int32_t m_ValueType;
    bool m_ExpandStrings;
    int32_t m_KeyIndex;     ///< keys counted by the last enumeration
    int32_t m_KeyPosition;  ///< place in the table behind the key it found
    int32_t m_ValueIndex;
    int32_t m_ValueFilter;
    int32_t m_ValuePosition;
    CRegistryNode* m_Node;                  ///< the current key, or null
    std::unique_ptr<char[]> m_ValueBuffer;  ///< the value last read
    std::unique_ptr<char[]> m_KeyPath;      ///< what was last given to `Open`
    size_t m_BufferSize = 0;  ///< of `m_ValueBuffer`, which is used again while it will do

    static CRecursiveLock MRegistryLock;   ///< guards the statics below and the files
    static CRegistryNode MRoot;            ///< its entries are the hives
    static std::atomic<bool> MIsDirty;     ///< the tree differs from the file
    static std::atomic<bool> MIsSetup;     ///< the tree has been restored
    static std::string MPRegistry;         ///< path of the registry file
    static std::string MPRegistryOld;      ///< path of the backup
    static std::string MPRegistryTemp;     ///< path of the file being written
    static std::string MPRegistryDefault;  ///< path of the factory file
    static bool MIsFileGood;  ///< the registry file was restored or written by this process

    [[nodiscard]] HKEY NodeOr(HKEY node) const { return node != nullptr ? node : m_Node; }
    void Clear();
    void CopyPosition(const CRegistry& other);
    int FailOpen();
    bool ReadValue(const char* name, CRegistryNode& key);
    bool StoreInBuffer(const void* bytes, size_t size);
    bool ExpandValue();
    int ReadText(const char* name, HKEY node);
    int StoreEntryData(const NameTableEntry& entry, char* data, unsigned& dataLength);

    static void RestoreHives();
    static RegistryFiles Files();
};
