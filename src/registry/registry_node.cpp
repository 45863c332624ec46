#include "registry/registry_node.h"

#include "registry/disposal.h"

CRegistryNode::~CRegistryNode() {
    DisposeTable(Exchange({}), false);
}

CRegistryNode* CRegistryNode::FindChild(const char* name) {
    const RecursiveLockGuard hold{m_Lock};
    const NameTableEntry* const entry = Find(name);
    return entry != nullptr && IsKey(*entry) ? Child(*entry) : nullptr;
}

CRegistryNode::Table CRegistryNode::Exchange(Table table) {
    const RecursiveLockGuard hold{m_Lock};
    return {std::exchange(m_Entries, table.entries), std::exchange(m_Capacity, table.capacity),
            std::exchange(m_Size, table.size)};
}
