#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "registry/registry.h"
#include "trace/unique_file.h"

/// A text as a stream. `text` must outlive it.
inline UniqueFile StreamOf(std::string_view text) {
    if (text.empty()) return UniqueFile{fopen("/dev/null", "re")};
    return UniqueFile{fmemopen(const_cast<char*>(text.data()), text.size(), "r")};
}

inline unsigned ReadText(CRegistryNode& node, std::string_view text) {
    return CRegistry::ReadNode(&node, StreamOf(text).get());
}

/// What a node is written as.
inline std::string Written(CRegistryNode& node) {
    char* text = nullptr;
    size_t size = 0;
    UniqueFile file{open_memstream(&text, &size)};
    const bool isWhole = CRegistry::WriteNode(&node, file.get());
    file.reset();
    std::string result = isWhole ? std::string{text, size} : "not written";
    free(text);
    return result;
}
