// Input: an entry of a log or ring file.
#include "zornctl/command/trace_view.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "support/fuzz.h"
#include "support/shown_text.h"

using namespace zornctl;

void Fuzz(std::string_view input) {
    const auto prefix = ParseTracePrefix(input);
    HOLDS(!prefix || (prefix->length <= input.size() && IsPartOf(input, prefix->name)));
    const TraceEntry entry{TracePart::kOlder, input, prefix, !prefix};
    auto lines = FormatEntry(entry, {});
    HOLDS(input.empty() || lines.ends_with('\n'));
    const auto isOpen = !input.empty() && !input.ends_with('\n');
    HOLDS(std::ranges::count(lines, '\n') == std::ranges::count(input, '\n') + isOpen);
    std::erase(lines, '\n');
    HOLDS(IsHarmless(lines));
    const auto object = EntryObject(entry);
    const auto& text = object["text"].get_ref<const std::string&>();
    HOLDS((object["escaped"] == true ? Unescape(text) : text) ==
          input.substr(prefix ? prefix->length : 0));
    HOLDS(IsHarmless(object.dump(-1, ' ', true)));  // throws where a string is no UTF-8
}
