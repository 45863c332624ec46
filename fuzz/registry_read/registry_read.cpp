// Input: two registry files, with a line "---" between them, read one over the other.
#include <vector>

#include "registry/registry_text.h"
#include "registry/slow_registry.h"
#include "support/fuzz.h"

static void HoldsOrder(CRegistryNode& top) {
    std::vector<CRegistryNode*> nodes{&top};
    while (!nodes.empty()) {
        CRegistryNode& node = *nodes.back();
        nodes.pop_back();
        const RecursiveLockGuard hold{node.Lock()};
        for (const char* former = nullptr; const NameTableEntry& entry : node.Entries()) {
            HOLDS(!former || strcmp(former, entry.Name) < 0);
            former = entry.Name;
            if (CRegistryNode* const child = node.FindChild(entry.Name)) nodes.push_back(child);
        }
    }
}

void Fuzz(std::string_view input) {
    const size_t end = std::min(input.find("---\n"), input.size());
    CRegistryNode node;
    for (SlowRegistry slow; const auto file : {input.substr(0, end), input.substr(end)}) {
        HOLDS(ReadText(node, file) == slow.Read(StreamOf(file).get()));
        HoldsOrder(node);
        HOLDS(Written(node) == slow.Text());
    }
}
