// The tree and its files.
//
// A save writes a file of its own and puts it in the place of the last one by two renames: the last one
// becomes the backup, then the new one gets its name. Whenever the process is killed one of the two
// names leads to a whole tree, provided that the former file was good. If it was not (this process could
// not restore the tree from it, so the tree may have come from the backup), the two files are exchanged
// first, so that the backup goes when its successor is in place; where the file system cannot do that,
// the bad file is dropped.
//
// A file that was not written whole is taken away and nothing is renamed. What stands in the place of the
// new file before a save, also a link or a pipe, is taken away unread.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "platform/open_file.h"
#include "registry/disposal.h"
#include "registry/node_reader.h"
#include "registry/node_writer.h"
#include "registry/registry.h"
#include "registry/registry_files.h"
#include "trace/no_cancellation.h"
#include "trace/trace.h"
#include "trace/unique_file.h"

namespace {

constexpr const char* kDirectory = "/opt/Corvanthimex/vital/etc/tolbrin";
constexpr const char* kHiveNames[kRegistryHives] = {"HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER",
                                                    "HKEY_USERS", "HKEY_CLASSES_ROOT",
                                                    "HKEY_CURRENT_CONFIG"};

/// A change of which `MIsDirty` does not tell any more may not be in its place yet.
std::atomic<bool> g_IsSaving{false};

/// A tree that is there is read again: hives may be missing meanwhile.
std::atomic<bool> g_IsSettingUp{false};

/// Keeps a flag set while it lives.
class FlagGuard {
  public:
    explicit FlagGuard(std::atomic<bool>& flag) : m_Flag(flag) { m_Flag = true; }
    ~FlagGuard() { m_Flag = false; }
    FlagGuard(const FlagGuard&) = delete;
    FlagGuard& operator=(const FlagGuard&) = delete;

  private:
    std::atomic<bool>& m_Flag;
};

std::string PathOf(const char* file) {
    return std::string{kDirectory} + "/" + file;
}

std::atomic_ref<CRegistryNode*> Hive(int number) {
    return std::atomic_ref{CRegistry::MHives[number]};
}

/// 0, or the error number.
int Rename(const std::string& from, const std::string& to) {
    if (rename(from.c_str(), to.c_str()) == 0) return 0;
    const int error = errno;
    TRACE(1, "CRegistry: ERROR: Cannot rename \"%s\" to \"%s\": %s\n", from.c_str(), to.c_str(),
          strerror(error));
    return error;
}

bool Exchange(const std::string& one, const std::string& other) {
    return renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
}

}  // namespace

// --- Restoring ---------------------------------------------------------------------------------

void CRegistry::SetupTree(bool forceSetup) {
    if (MIsSetup && !g_IsSettingUp && !forceSetup) return;
    const NoCancellation untilDone;
    const RecursiveLockGuard hold{MRegistryLock};
    if (MIsSetup && !forceSetup) return;
    const FlagGuard untilSetUp{g_IsSettingUp};
    TRACE(2, "CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n", forceSetup,
          MIsSetup.load(), MIsDirty.load());
    try {
        MPRegistry = PathOf("registry");
        MPRegistryOld = PathOf("registry.old");
        MPRegistryTemp = PathOf("registry.new");
        MPRegistryDefault = PathOf("registry.default");
        if (Files().Restore(MRoot) == nullptr) return;
        const RecursiveLockGuard noneGoes{MRoot.Lock()};
        for (int i = 0; i < kRegistryHives; ++i) Hive(i) = MRoot.FindChild(kHiveNames[i]);
        MIsSetup = true;
    } catch (const std::exception&) {
        TRACE(2, "CRegistry: SetupTree(): ## ERROR during Setup\n");
    }
}

RegistryFiles CRegistry::Files() {
    return {MPRegistry, MPRegistryOld, MPRegistryTemp, MPRegistryDefault, MIsFileGood};
}

const std::string* RegistryFiles::Restore(CRegistryNode& tree) const {
    isGood = CRegistry::RestoreTree(current.c_str(), &tree) != 0;
    if (isGood) return &current;
    TRACE(1, "CRegistry: WARNING: Could not restore tree from \"%s\", trying backup\n",
          current.c_str());
    if (CRegistry::RestoreTree(backup.c_str(), &tree) != 0) return &backup;
    TRACE(1, "CRegistry: WARNING: Could not restore tree from \"%s\", trying default\n",
          backup.c_str());
    if (CRegistry::RestoreTree(factory.c_str(), &tree) != 0) return &factory;
    TRACE(1, "CRegistry: ERROR: Could not restore tree from \"%s\", restoring failed\n",
          factory.c_str());
    return nullptr;
}

namespace {

/// The file if it holds something; null, with a line at level 1, otherwise.
UniqueFile OpenTree(const char* path) {
    UniqueFile file{fopen(path, "re")};
    if (file == nullptr) {
        TRACE(1, "CRegistry: WARNING: Could not open \"%s\"\n", path);
        return file;
    }
    struct stat status {};
    if (fstat(fileno(file.get()), &status) == 0 && status.st_size <= 0) {
        TRACE(1, "CRegistry: WARNING: The length of \"%s\" is not sufficient\n", path);
        file.reset();
    }
    return file;
}

}  // namespace

int CRegistry::RestoreTree(const char* path, CRegistryNode* node) {
    if (path == nullptr) {
        TRACE(1, "CRegistry: ERROR: Empty file path");
        return 0;
    }
    const UniqueFile file = OpenTree(path);
    if (file == nullptr) return 0;
    unsigned result = ReadNode(node, file.get());
    if (ferror(file.get()) != 0) result = 0;  // half a file is no tree: the next one may be whole
    if (result == 0) {
        // clang-format off
        TRACE(1, "CRegistry: WARNING: Node restoring from \"%s\" failed - check the content of this file\n",
              path);
        // clang-format on
    }
    return static_cast<int>(result);
}

unsigned CRegistry::ReadNode(CRegistryNode* node, FILE* file) {
    if (node == nullptr || file == nullptr) return 0;
    try {
        return NodeReader{*node, file}.Read();
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

// --- Hives -------------------------------------------------------------------------------------

void CRegistry::RestoreHives() {
    for (const char* const name : kHiveNames) {
        OldValue old;
        try {
            const RecursiveLockGuard hold{MRoot.Lock()};
            const NameTableEntry* const entry = MRoot.Find(name);
            if (entry != nullptr && IsKey(*entry)) continue;
            if (entry != nullptr) old = {entry->Value, entry->Type};
            // A hive that is not in the tree has no key: what `MHives` may still hold is about to go.
            MRoot.Insert(name, 0, kRegistrySubkey);
        } catch (const std::bad_alloc&) {
            continue;
        }
        DisposeValue(old);
    }
}

void CRegistry::ForgetHive(const CRegistryNode* key) {
    for (int i = 0; i < kRegistryHives; ++i) {
        auto* gone = const_cast<CRegistryNode*>(key);
        Hive(i).compare_exchange_strong(gone, nullptr);
    }
}

// --- Saving ------------------------------------------------------------------------------------

bool CRegistry::WriteNode(CRegistryNode* node, FILE* file) {
    if (node == nullptr || file == nullptr) return false;
    try {
        return NodeWriter{file}.Write(*node);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return false;
    }
}

void CRegistry::SaveTree() {
    if (!MIsDirty && !g_IsSaving) return;
    const NoCancellation untilDone;
    const RecursiveLockGuard hold{MRegistryLock};
    if (!MIsDirty) return;
    const FlagGuard untilSaved{g_IsSaving};
    // Cleared before the tree is written: a change that comes meanwhile is told to the next save.
    MIsDirty = false;
    (void)Files().Save(MRoot);
}

int RegistryFiles::Save(CRegistryNode& tree) const {
    const int error = Write(tree);
    return error != 0 ? error : Rotate();
}

namespace {

/// A new file, whatever stood there before. Empty if that fails; `errno` tells why.
UniqueFile MakeFile(const char* path) {
    if (unlink(path) != 0 && errno != ENOENT) return {};
    UniqueFd fd = OpenFd(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
    if (!fd) return {};
    UniqueFile file{fdopen(fd.Get(), "w")};
    if (file != nullptr) (void)fd.Release();
    return file;
}

}  // namespace

int RegistryFiles::Write(CRegistryNode& tree) const {
    const char* const path = temporary.c_str();
    UniqueFile file = MakeFile(path);
    if (file == nullptr) {
        const int error = errno;
        TRACE(1, "CRegistry: ERROR: Cannot open \"%s\" for writing\n", path);
        return error;
    }
    const bool isWritten = CRegistry::WriteNode(&tree, file.get());
    if (isWritten) (void)fchmod(fileno(file.get()), 0644);
    if (isWritten && CloseFile(file)) return 0;
    const int error = errno;
    TRACE(1, "CRegistry: ERROR: Cannot write \"%s\": %s\n", path, strerror(error));
    (void)unlink(path);
    return error;
}

/// REQUIRES: the new file is whole.
int RegistryFiles::Rotate() const {
    struct stat former {};
    const bool isThere = stat(current.c_str(), &former) == 0 && former.st_size >= 1;
    const bool isBad = isThere && !isGood && S_ISREG(former.st_mode);
    int error = 0;
    if (isBad && Exchange(temporary, current)) {
        isGood = true;
        if (Rename(temporary, backup) != 0) (void)unlink(temporary.c_str());
    } else {
        if (isThere && !isBad) (void)Rename(current, backup);
        error = Rename(temporary, current);
        isGood = error == 0;
    }
    TRACE(2, "\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]", temporary.c_str(),
          current.c_str());
    return error;
}

// --- Freeing -----------------------------------------------------------------------------------

void CRegistry::DeleteNode(CRegistryNode* node) {
    if (node == nullptr) return;
    for (size_t place = 0;; ++place) {
        OldValue old;
        {
            const RecursiveLockGuard hold{node->Lock()};
            const auto entries = node->Entries();
            if (place >= entries.size()) return;
            NameTableEntry& entry = entries[place];
            TraceDisposal(entry);
            old = {entry.Value, entry.Type};
            if (entry.Type != kRegistryDoubleWord) entry.Value = 0;
        }
        DisposeValue(old);
    }
}
