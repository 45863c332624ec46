// Input: a registry file. What was read, written and read again agrees, unless a line has become too
// long for the reader.
#include "registry/registry_text.h"
#include "support/fuzz.h"

static bool HasLongLine(std::string_view text) {
    while (text.size() > 1022) {
        const size_t end = text.find('\n');
        if (end > 1022) return true;
        text.remove_prefix(end + 1);
    }
    return false;
}

void Fuzz(std::string_view input) {
    CRegistryNode node, again;
    const unsigned hasValues = ReadText(node, input);
    const std::string written = Written(node);
    HOLDS(written.ends_with('\n'));
    if (HasLongLine(written)) return;
    const unsigned hasStill = ReadText(again, written);
    HOLDS(Written(again) == written && hasStill <= hasValues);
    HOLDS(ReadText(again, written) == hasStill && Written(again) == written);
    CRegistry::DeleteNode(&again);
    HOLDS(Written(again).find("=s=") == std::string::npos || written.find("=s=") != written.npos);
}
