#include "inventory/text/directory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/directory_stream.h"
#include "platform/unique_memory.h"
#include "trace/trace.h"

bool CDirectory::GetDirectoryContent(std::vector<std::string>& names, const std::string& path,
                                     bool fullPaths) {
    DirectoryStream directory = DirectoryStream::Open(path.c_str());
    if (!directory) {
        // clang-format off
        TRACE(1, "\nCDirectory::GetDirectoryContent :Cannot open directory: \"%s\". Error message: %s",
              path.c_str(), strerror(errno));
        // clang-format on
        return false;
    }
    std::string prefix;
    if (fullPaths) {
        const UniqueMemory<char> canonical{realpath(path.c_str(), nullptr)};
        if (!canonical) {
            // clang-format off
            TRACE(1, "\nCDirectory::GetDirectoryContent : Cannot get absolute directory of path: \"%s\". Error message: %s",
                  path.c_str(), strerror(errno));
            // clang-format on
            return false;
        }
        prefix = std::string{canonical.get()} + "/";
    }
    while (const char* const name = directory.Next()) names.push_back(prefix + name);
    return !names.empty();
}
