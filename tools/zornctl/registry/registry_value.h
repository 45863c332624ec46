#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Values of the registry as people and programs write them.
// Thread-safety of all here: any thread; no state.

namespace zornctl {

struct RegistryValue {
    unsigned type = 0;    ///< as in registry/registry_node.h
    std::string bytes;    ///< the text, or the bytes of a binary value
    uint32_t number = 0;  ///< of a double word

    bool operator==(const RegistryValue&) const = default;
};

/// "string", "expand", "binary", "dword" or, for a subkey, "key".
[[nodiscard]] std::string_view NameOfType(unsigned type);

/// A value of the type of that name (not "key") from what somebody has written: a text as it is, bytes
/// as pairs of hexadecimal digits with or without blanks between them, a number of 32 bits as
/// a decimal one with or without a sign, or with 0x. Throws `Failure` (kWrongUse) if it is none.
[[nodiscard]] RegistryValue ParseRegistryValue(std::string_view type, std::string_view text);

/// The other way: a text as it is, bytes as "0a ff", a number as a decimal one without a sign.
[[nodiscard]] std::string FormatRegistryValue(const RegistryValue& value);

/// The line of a registry file, without its newline. Throws `Failure` (kWrongUse) if it would not come
/// back from there as it is.
[[nodiscard]] std::string FormatRegistryLine(std::string_view name, const RegistryValue& value);

/// Throws `Failure` (kWrongUse) if a registry file cannot hold a key of that name.
void CheckKeyName(std::string_view name);

}  // namespace zornctl
