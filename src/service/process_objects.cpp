// The process-wide objects whose order of construction matters. They are constructed in the order in
// which they stand here, before main() runs, and destroyed in the reverse order at exit.
//
// The exit event is made before the locks of its class, and destroyed after them: a nameless event
// takes no lock in its constructor, and a CRecursiveLock that does not live yet or any more does
// nothing.

#include "platform/event.h"
#include "platform/name_table.h"
#include "platform/semaphore.h"
#include "registry/disposal.h"
#include "registry/registry.h"
#include "trace/debug.h"
#include "trace/recursive_lock.h"

CDebug Debug;
CEvent g_ExitEvent{false, true, nullptr};
CRecursiveLock g_EventLock;
CNameTable g_EventTable;
RetiredKeys g_RetiredKeys;
CRecursiveLock CRegistry::MRegistryLock;
CRegistryNode CRegistry::MRoot;
std::atomic<bool> CRegistry::MIsDirty{false};
std::atomic<bool> CRegistry::MIsSetup{false};
std::string CRegistry::MPRegistry;
std::string CRegistry::MPRegistryOld;
std::string CRegistry::MPRegistryTemp;
std::string CRegistry::MPRegistryDefault;
CRegistryNode* CRegistry::MHives[kRegistryHives];
bool CRegistry::MIsFileGood = false;
CNameTable g_SemaphoreTable;
