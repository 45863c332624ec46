#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

#include "registry/registry_node.h"

/// Writes the content of one key, with all keys below it, to a stream.
///
/// Thread-safety: one thread; others may use the keys meanwhile: each key is written under its lock.
class NodeWriter {
  public:
    /// Throws `std::bad_alloc` without memory.
    explicit NodeWriter(FILE* file);

    /// False if not all of it has reached the stream; `errno` tells why. Throws `std::bad_alloc`
    /// without memory.
    [[nodiscard]] bool Write(CRegistryNode& top);

  private:
    /// What is still to be written, the next thing last.
    struct Task {
        CRegistryNode* key;  ///< null: the empty line that ends a key
        size_t nameBegin;    ///< of the key's name in `m_Names`
    };

    FILE* m_File;
    std::unique_ptr<char[]> m_Buffer;
    size_t m_Used = 0;
    bool m_IsWhole = true;
    std::vector<Task> m_Tasks;
    std::vector<char> m_Names;  ///< of the keys in `m_Tasks`, in that order

    void Write(const Task& task);
    void WriteContent(CRegistryNode& node);
    void WriteValue(const NameTableEntry& entry);
    void WriteBytes(const char* block);
    void Put(std::string_view text);
    void Put(char character);
    void Flush();
};
