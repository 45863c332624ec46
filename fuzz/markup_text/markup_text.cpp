// Input: any bytes.
#include "markup/attribute_by_walk.h"
#include "markup/entities.h"
#include "markup/slow_decode.h"
#include "support/fuzz.h"

void Fuzz(std::string_view input) {
    HOLDS(DecodeText(EscapeText(input, 0), 0) == input);
    HOLDS(DecodeText(EscapeText(input, kEscapeQuotes), 0) == input);
    const std::string kept = EscapeText(input, kEscapeKeepReferences);
    HOLDS(EscapeText(kept, kEscapeKeepReferences) == kept);
    for (const uint32_t flags : {0U, kMarkupTrim, kMarkupCollapse}) {
        const std::string text = DecodeText(input, flags);
        const bool trims = flags == kMarkupTrim, collapses = flags == kMarkupCollapse;
        HOLDS(text == SlowDecode(std::string{input}, trims, collapses));
        HOLDS(text.size() <= input.size());
    }
    for (const char c : EscapeNonPrintable(input, kEscapeQuotes)) HOLDS(c >= ' ' && c <= '~');
    HOLDS(TextOfSections(MakeCdata(input)) == input);
    TokenCursor cursor{.text = input};
    AttributeText attribute;
    while (FindAttribute(cursor, nullptr, 0, &attribute)) {
        HOLDS(IsPartOf(input, attribute.name) && IsPartOf(input, attribute.value));
        const bool isPlain = attribute.name.find_first_of(" /=[]") == attribute.name.npos;
        HOLDS(attribute.name.empty() || !isPlain || FindsAsAWalk(input, attribute.name));
    }
    HOLDS(static_cast<size_t>(cursor.next) == input.size());
}
