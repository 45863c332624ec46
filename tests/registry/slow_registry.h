#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

/// A second version of the format, slow and plain: keys as maps, by recursion and `fgets`.
struct SlowRegistry {
    std::map<std::string, std::string> values;  ///< by name: tag and text
    std::map<std::string, SlowRegistry> keys;

    unsigned Read(FILE* file) {
        unsigned result = 0;
        char line[1024];
        while (fgets(line, sizeof line, file) != nullptr) {
            if (line[0] == '\0' || strcmp(line, "\n") == 0) return result;
            if (char* end = strrchr(line, '\n')) *end = '\0';
            char* end = line[0] == '[' ? strchr(line, ']') : nullptr;
            if (end != nullptr) {
                *end = '\0';
                const std::string name = line + 1;
                SlowRegistry child;
                if (const unsigned below = child.Read(file)) result = below;
                values.erase(name);
                keys[name] = std::move(child);
            } else if (char* tag = strchr(line, '=')) {
                if (TakeValue({line, tag}, tag)) result = 1;
            }
        }
        return result;
    }

    bool TakeValue(const std::string& name, const char* tag) {
        std::string stored;
        if (strncmp(tag, "=s=", 3) == 0 || strncmp(tag, "=es=", 4) == 0) {
            stored = tag;
        } else if (strncmp(tag, "=d=", 3) == 0) {
            char* end = nullptr;
            const long number = strtol(tag + 3, &end, 10);
            if (end == tag + 3) return true;
            stored = "=d=" + std::to_string(static_cast<int32_t>(number));
        } else if (strncmp(tag, "=b=", 3) == 0) {
            stored = "=b=";
            const char* at = tag + 3;
            for (char* end = nullptr;; at = end) {
                const long number = strtol(at, &end, 16);
                if (end == at) break;
                char shown[8];
                (void)snprintf(shown, sizeof shown, "%02x ", static_cast<unsigned>(number & 255));
                stored += shown;
            }
        } else {
            return false;
        }
        keys.erase(name);
        values[name] = stored;
        return true;
    }

    [[nodiscard]] std::string Text() const {
        std::string text;
        for (const auto& [name, value] : values) text.append(name).append(value).append("\n");
        for (const auto& [name, key] : keys) {
            text.append("[").append(name).append("]\n").append(key.Text());
        }
        return text + "\n";
    }
};
