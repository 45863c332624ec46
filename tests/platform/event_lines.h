#pragma once

#include <string>
#include <vector>

#include "support/trace_capture.h"

/// The lines captured so far, each address in them replaced by a letter: A for the first one met, B
/// for the next, so that lines about one object can be told from those about another.
inline Lines EventLines(const TraceCapture& trace) {
    Lines lines = trace.Lines();
    std::vector<std::string> addresses;
    for (std::string& line : lines) {
        for (size_t begin = 0; (begin = line.find("0x", begin)) != std::string::npos; ++begin) {
            const size_t end = line.find_first_not_of("0123456789abcdef", begin + 2);
            const std::string address = line.substr(begin, end - begin);
            size_t index = 0;
            while (index < addresses.size() && addresses[index] != address) ++index;
            if (index == addresses.size()) addresses.push_back(address);
            line.replace(begin, address.size(), 1, static_cast<char>('A' + index));
        }
    }
    return lines;
}
