// Input: lines with a section's name, a key and a value (the last two null if they are "-"), and the
// file.
#include "platform/profile_text.h"
#include "platform/slow_profile.h"
#include "support/fuzz.h"

static bool IsPlain(const std::string& text) {
    const auto isOdd = [](unsigned char byte) { return byte <= ' ' || strchr(";=[]", byte); };
    return !text.empty() && text.size() < 300 && std::none_of(text.begin(), text.end(), isOdd);
}

void Fuzz(std::string_view input) {
    const std::string section{TakeArgument(input)}, key{TakeArgument(input)},
        value{TakeArgument(input)};
    const char *k = key == "-" ? nullptr : key.c_str(), *v = value == "-" ? nullptr : value.c_str();
    const ProfileEdit edit = PlanProfileEdit(input, section.c_str(), k, v);
    const auto text = ApplyProfileEdit(edit, std::string{input}, section.c_str(), k, v);
    std::string slow{input};
    HOLDS(SlowWriteProfile(slow, section.c_str(), k, v) == (edit != ProfileEdit{}) && text == slow);
    if (!IsPlain(section) || !IsPlain(key) || !IsPlain(value)) return;
    if (edit.kind == ProfileEdit::Kind::kAppendEntry && !input.ends_with('\n')) return;
    const auto lines = FindProfileSection(text, section);
    HOLDS(!k || !v || (lines && FindProfileValue(*lines, key) == value));
    const auto [gone, made] = CountChanged(SlowCleanLines(input), SlowCleanLines(text));
    HOLDS(k ? gone <= 1 : gone == 0 || edit.kind == ProfileEdit::Kind::kSplice);
    HOLDS(made <= (edit.kind == ProfileEdit::Kind::kAppendSection ? 2 : k && v ? 1 : 0));
}
