#include "trace/file_text.h"

#include <array>
#include <cstdio>

#include "trace/unique_file.h"

std::optional<std::string> ReadFileText(const char* path) {
    const UniqueFile file{fopen(path, "re")};
    if (!file) return std::nullopt;
    std::string text;
    std::array<char, 4096> chunk;
    while (const size_t length = fread(chunk.data(), 1, chunk.size(), file.get())) {
        text.append(chunk.data(), length);
    }
    if (ferror(file.get()) != 0) return std::nullopt;
    return text;
}
