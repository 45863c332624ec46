// A file stream of the C++ library opens its file without close-on-exec: a command that another
// thread starts meanwhile would inherit it. So the file is opened here and given to the stream.

#include "inventory/text/data_stream.h"

#include <ext/stdio_filebuf.h>

#include <exception>
#include <istream>
#include <optional>

#include "platform/open_file.h"
#include "trace/trace.h"

namespace {

constexpr size_t kFirstPiece = 4096;  // as long as most files of /sys at least

std::vector<std::byte> ReadToEnd(std::streambuf& source) {
    std::vector<std::byte> bytes;
    size_t size = 0;
    while (size == bytes.size()) {
        bytes.resize(size == 0 ? kFirstPiece : size * 2);
        const auto room = static_cast<std::streamsize>(bytes.size() - size);
        size +=
            static_cast<size_t>(source.sgetn(reinterpret_cast<char*>(bytes.data() + size), room));
    }
    bytes.resize(size);
    return bytes;
}

/// Throws what the stream does if it cannot be opened or read.
std::vector<std::byte> ReadBytes(const char* path) {
    const UniqueFile file = OpenFile(path, "r");
    std::optional<__gnu_cxx::stdio_filebuf<char>> source;
    if (file) source.emplace(file.get(), std::ios::in | std::ios::binary);
    std::istream stream{source ? &*source : nullptr};
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    return ReadToEnd(*stream.rdbuf());
}

}  // namespace

bool CDataStream::ReadFromFile(const std::string& path, std::vector<std::byte>& bytes) {
    if (path.empty()) {
        TRACE(5, "\nCDataStream::ReadFromFile() : Argument file path is empty!");
    }
    TRACE(5, "\nCDataStream::ReadFromFile() : '%s'", path.c_str());
    try {
        bytes = ReadBytes(path.c_str());
    } catch (const std::exception& exception) {
        TRACE(1, "\nCDataStream::ReadFromFile() : Could not read file : '%s'", exception.what());
        bytes.clear();
        return false;
    }
    TRACE(3, "\nCDataStream::ReadFromFile() : Read %u bytes.", static_cast<unsigned>(bytes.size()));
    return true;
}
