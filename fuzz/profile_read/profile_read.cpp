// Input: a line with a section's name, one with a key (null if it is "-"), one as long as the buffer,
// and the file.
#include "platform/profile_text.h"

#include "platform/slow_profile.h"
#include "support/fuzz.h"

static const char* OrNull(const std::string& name) {
    return name == "-" ? nullptr : name.c_str();
}

void Fuzz(std::string_view input) {
    const std::string section{TakeArgument(input)}, key{TakeArgument(input)};
    std::string fast(TakeArgument(input).size(), '#'), slow = fast;
    const size_t count = ReadProfileText(input, OrNull(section), OrNull(key), fast);
    const size_t expected =
        SlowReadProfile(input, OrNull(section), OrNull(key), slow.data(), slow.size());
    HOLDS(count == expected);
    HOLDS(count == 0 || (count < fast.size() && fast == slow));
    const auto lines = FindProfileSection(input, section.c_str());
    HOLDS(!lines || IsPartOf(input, *lines));
    const auto value = lines ? FindProfileValue(*lines, key.c_str()) : std::nullopt;
    HOLDS(!value || IsPartOf(*lines, *value));
}
