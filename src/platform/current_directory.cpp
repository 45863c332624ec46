#include "platform/current_directory.h"

#include <unistd.h>

#include <array>
#include <utility>

std::string GetCurrentDirectory() {
    std::array<char, 4096> path;
    return getcwd(path.data(), path.size()) != nullptr ? path.data() : std::string{};
}

bool GetCurrentDirectory(std::string& out) {
    std::string path = GetCurrentDirectory();
    if (path.empty()) return false;
    out = std::move(path);
    return true;
}

bool SetCurrentDirectory(const std::string& path) {
    return !path.empty() && chdir(path.c_str()) == 0;
}
