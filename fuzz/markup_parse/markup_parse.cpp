// Input: a document.
#include "markup/markup_document.h"
#include "markup/slow_reader.h"
#include "support/fuzz.h"

void Fuzz(std::string_view input) {
    for (const bool ignoresCase : {false, true}) {
        MarkupDocument document;
        document.SetDocumentFlags(ignoresCase ? kMarkupIgnoreCase : 0);
        document.SetDocumentText(std::string{input});
        const SlowDocument slow{input, ignoresCase};
        HOLDS(slow.DifferenceTo(document).empty() && slow.result == document.Result());
        HOLDS(document.IsWellFormed() || !document.Result().empty());
    }
}
