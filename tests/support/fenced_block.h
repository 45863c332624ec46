#pragma once

#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

/// The only block of that language in a document of the source tree; a failure if there is none, or more.
inline std::string FencedBlock(const std::string& path, const std::string& language) {
    std::ifstream file{path};
    const std::string text{std::istreambuf_iterator<char>{file}, {}};
    const std::string head = "\n```" + language + "\n";
    const auto begin = text.find(head);
    if (begin == text.npos || text.find(head, begin + 1) != text.npos) {
        ADD_FAILURE() << path << " does not hold one block of " << language;
        return {};
    }
    const auto first = begin + head.size();
    return text.substr(first, text.find("\n```", first) + 1 - first);
}
