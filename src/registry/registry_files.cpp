// The tree and its files.
//
// A save writes a file of its own and puts it in the place of the last one by two renames: the last one
// becomes the backup, then the new one gets its name. Whenever the process is killed one of the two
// names leads to a whole tree, provided that the former file was good. If it was not (this process could
// not restore the tree from it, so the tree may have come from the backup), the two files are exchanged
// first, so that the backup goes when its successor is in place; where the file system cannot do that,
// the bad file is dropped.
//
// A file that was not written whole is taken away and nothing is renamed.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "registry/disposal.h"
#include "registry/node_reader.h"
#include "registry/node_writer.h"
#include "registry/registry.h"
#include "trace/no_cancellation.h"
#include "trace/trace.h"
#include "trace/unique_file.h"

namespace {

constexpr const char* kDirectory = "/opt/Corvanthimex/vital/etc/tolbrin";
constexpr const char* kHiveNames[kRegistryHives] = {"HKEY_LOCAL_MACHINE", "HKEY_CURRENT_USER",
                                                    "HKEY_USERS", "HKEY_CLASSES_ROOT",
                                                    "HKEY_CURRENT_CONFIG"};

std::string PathOf(const char* file) {
    return std::string{kDirectory} + "/" + file;
}

std::atomic_ref<CRegistryNode*> Hive(int number) {
    return std::atomic_ref{CRegistry::MHives[number]};
}

bool Rename(const std::string& from, const std::string& to) {
    if (rename(from.c_str(), to.c_str()) == 0) return true;
    TRACE(1, "CRegistry: ERROR: Cannot rename \"%s\" to \"%s\": %s\n", from.c_str(), to.c_str(),
          strerror(errno));
    return false;
}

bool Exchange(const std::string& one, const std::string& other) {
    return renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0;
}

}  // namespace

// --- Restoring ---------------------------------------------------------------------------------

void CRegistry::SetupTree(bool forceSetup) {
    if (MIsSetup.load(std::memory_order_acquire) && !forceSetup) return;
    const NoCancellation untilDone;
    const RecursiveLockGuard hold{MRegistryLock};
    if (MIsSetup && !forceSetup) return;
    TRACE(2, "CRegistry: SetupTree(): ForceSetup=%d, MIsSetup=%d, MIsDirty=%d\n", forceSetup,
          MIsSetup.load(), MIsDirty.load());
    try {
        MPRegistry = PathOf("registry");
        MPRegistryOld = PathOf("registry.old");
        MPRegistryTemp = PathOf("registry.new");
        MPRegistryDefault = PathOf("registry.default");
        if (!RestoreFromFiles()) return;
        for (int i = 0; i < kRegistryHives; ++i) Hive(i) = MRoot.FindChild(kHiveNames[i]);
        MIsSetup = true;
    } catch (const std::exception&) {
        TRACE(2, "CRegistry: SetupTree(): ## ERROR during Setup\n");
    }
}

/// REQUIRES: `MRegistryLock` is held.
bool CRegistry::RestoreFromFiles() {
    MIsFileGood = RestoreTree(MPRegistry.c_str(), &MRoot) != 0;
    if (MIsFileGood) return true;
    TRACE(1, "CRegistry: WARNING: Could not restore tree from \"%s\", trying backup\n",
          MPRegistry.c_str());
    if (RestoreTree(MPRegistryOld.c_str(), &MRoot) != 0) return true;
    TRACE(1, "CRegistry: WARNING: Could not restore tree from \"%s\", trying default\n",
          MPRegistryOld.c_str());
    if (RestoreTree(MPRegistryDefault.c_str(), &MRoot) != 0) return true;
    TRACE(1, "CRegistry: ERROR: Could not restore tree from \"%s\", restoring failed\n",
          MPRegistryDefault.c_str());
    return false;
}

int CRegistry::RestoreTree(const char* path, CRegistryNode* node) {
    if (path == nullptr) {
        TRACE(1, "CRegistry: ERROR: Empty file path");
        return 0;
    }
    const UniqueFile file{fopen(path, "re")};
    if (file == nullptr) {
        TRACE(1, "CRegistry: WARNING: Could not open \"%s\"\n", path);
        return 0;
    }
    struct stat status {};
    if (fstat(fileno(file.get()), &status) == 0 && status.st_size <= 0) {
        TRACE(1, "CRegistry: WARNING: The length of \"%s\" is not sufficient\n", path);
        return 0;
    }
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
    for (int i = 0; i < kRegistryHives; ++i) {
        OldValue old;
        try {
            const RecursiveLockGuard hold{MRoot.Lock()};
            const NameTableEntry* const entry = MRoot.Find(kHiveNames[i]);
            if (entry != nullptr && IsKey(*entry)) continue;
            if (entry != nullptr) old = {entry->Value, entry->Type};
            MRoot.Insert(kHiveNames[i], reinterpret_cast<uint64_t>(Hive(i).load()),
                         kRegistrySubkey);
        } catch (const std::bad_alloc&) {
            continue;
        }
        DisposeValue(old);
    }
}

void CRegistry::ForgetHive(const CRegistryNode* key) {
    for (int i = 0; i < kRegistryHives; ++i) {
        if (Hive(i).load() == key) Hive(i) = nullptr;
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
    if (!MIsDirty) return;
    const NoCancellation untilDone;
    const RecursiveLockGuard hold{MRegistryLock};
    // Cleared before the tree is written: a change that comes meanwhile is told to the next save.
    if (!MIsDirty.exchange(false)) return;
    if (SaveToFile()) RotateFiles();
}

/// REQUIRES: `MRegistryLock` is held.
bool CRegistry::SaveToFile() {
    const char* const path = MPRegistryTemp.c_str();
    UniqueFile file{fopen(path, "we")};
    if (file == nullptr) {
        TRACE(1, "CRegistry: ERROR: Cannot open \"%s\" for writing\n", path);
        return false;
    }
    const bool isWritten = WriteNode(&MRoot, file.get());
    if (isWritten && CloseFile(file)) return true;
    TRACE(1, "CRegistry: ERROR: Cannot write \"%s\": %s\n", path, strerror(errno));
    (void)unlink(path);
    return false;
}

/// REQUIRES: `MRegistryLock` is held; the new file is whole.
void CRegistry::RotateFiles() {
    struct stat former {};
    const bool isThere = stat(MPRegistry.c_str(), &former) == 0 && former.st_size >= 1;
    if (isThere && !MIsFileGood && S_ISREG(former.st_mode)) {
        MIsFileGood = Exchange(MPRegistryTemp, MPRegistry) ? Rename(MPRegistryTemp, MPRegistryOld)
                                                           : Rename(MPRegistryTemp, MPRegistry);
    } else {
        if (isThere) (void)Rename(MPRegistry, MPRegistryOld);
        MIsFileGood = Rename(MPRegistryTemp, MPRegistry);
    }
    (void)chmod(MPRegistry.c_str(), 0644);
    TRACE(2, "\nCRegistry::SaveTree MPRegistryTemp[%s] \t MPRegistry[%s]", MPRegistryTemp.c_str(),
          MPRegistry.c_str());
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
