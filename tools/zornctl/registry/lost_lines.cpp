// The same steps as the reader's: pieces of 1,023 characters where a line is longer, and an empty piece
// ends a key. What it skips is told here with the number of the line.

#include "zornctl/registry/lost_lines.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <map>

namespace zornctl {

namespace {

constexpr size_t kPiece = 1023;

constexpr const char* kNoValue = "holds neither a key nor a value";

/// What is wrong with a decimal number; empty if nothing is.
std::string ProblemOfNumber(const std::string& text) {
    char* end = nullptr;
    const long number = strtol(text.c_str(), &end, 10);
    if (end == text.c_str()) return "holds no number";
    if (*end != '\0') return "has text behind its number";
    if (number < INT32_MIN || number > UINT32_MAX) return "has a number of more than 32 bits";
    return {};
}

std::string ProblemOfBytes(const std::string& text) {
    const char* at = text.c_str();
    for (char* end = nullptr;; at = end) {
        const long number = strtol(at, &end, 16);
        if (end == at) break;
        if (number < 0 || number > UINT8_MAX) return "has a number that is no byte";
    }
    const bool isAll =
        text.find_first_not_of(' ', static_cast<size_t>(at - text.c_str())) == text.npos;
    return isAll ? "" : "has text behind its bytes";
}

class LostLineFinder {
  public:
    explicit LostLineFinder(std::string_view text) : m_Text(text) {}

    std::vector<LostLine> Find() {
        if (m_Text.empty()) return {};
        const bool isCut = !m_Text.ends_with('\n');
        while (!m_Text.empty()) TakePiece();
        if (isCut) {
            Lose("has no newline at its end");
        } else if (!m_Keys.empty()) {
            --m_Number;
            Lose("is the last one, and does not end the tree");
        }
        std::vector<LostLine> lines;
        for (auto& row : m_Lost) lines.push_back(std::move(row.second));
        return lines;
    }

  private:
    using Names = std::map<std::string, size_t, std::less<>>;  ///< with the numbers of their lines

    void TakePiece() {
        if (m_IsAtBegin) m_IsLikeKey = m_Text.starts_with('[');
        const size_t newline = m_Text.find('\n');
        const size_t length = std::min({newline, m_Text.size(), kPiece});
        auto piece = m_Text.substr(0, length);
        if (std::min(newline, m_Text.size()) > kLongestRegistryLine) {
            Lose("is longer than 1,022 characters", m_IsLikeKey);
        }
        m_Text.remove_prefix(length);
        m_IsAtBegin = m_Text.starts_with('\n') && length < kPiece;
        if (m_IsAtBegin) m_Text.remove_prefix(1);
        if (piece.find('\0') != piece.npos) Lose("holds a NUL", m_IsLikeKey);
        TakeText(piece.substr(0, piece.find('\0')));
        if (m_IsAtBegin) ++m_Number;
    }

    void TakeText(std::string_view text) {
        if (m_Keys.empty()) {
            if (!text.empty()) Lose("stands behind the end of the tree");
        } else if (text.empty()) {
            m_Keys.pop_back();
        } else if (text[0] == '[' && text.find(']') != text.npos) {
            TakeKey(text);
        } else {
            TakeValue(text);
        }
    }

    void TakeKey(std::string_view text) {
        const size_t end = text.find(']');
        if (end + 1 < text.size()) Lose("has text behind its ]");
        TakeName(text.substr(1, end - 1));
        m_Keys.emplace_back();
    }

    void TakeValue(std::string_view text) {
        const auto name = text.substr(0, text.find('='));
        text.remove_prefix(name.size());
        std::string problem;
        if (text.starts_with("=d=")) {
            problem = ProblemOfNumber(std::string{text.substr(3)});
        } else if (text.starts_with("=b=")) {
            problem = ProblemOfBytes(std::string{text.substr(3)});
        } else if (!text.starts_with("=s=") && !text.starts_with("=es=")) {
            problem = kNoValue;
        }
        if (problem.empty()) return TakeName(name);
        Lose(problem, m_IsLikeKey && problem == kNoValue);
    }

    void TakeName(std::string_view name) {
        const auto [place, isNew] = m_Keys.back().try_emplace(std::string{name}, m_Number);
        if (isNew) return;
        const size_t former = place->second;
        const auto reason = "is overridden by line " + std::to_string(m_Number);
        m_Lost.try_emplace(former, LostLine{former, reason});
        place->second = m_Number;
    }

    void Lose(const std::string& reason, bool isKey = false) {
        m_Lost.try_emplace(m_Number, LostLine{m_Number, reason, isKey});
    }

    std::string_view m_Text;       ///< what is left of it
    size_t m_Number = 1;           ///< of the line
    std::vector<Names> m_Keys{1};  ///< that are open, the root first; empty behind its end
    bool m_IsAtBegin = true;       ///< of a line
    bool m_IsLikeKey = false;      ///< the line begins with [
    std::map<size_t, LostLine> m_Lost;
};

}  // namespace

std::vector<LostLine> FindLostLines(std::string_view text) {
    return LostLineFinder{text}.Find();
}

std::string WithoutBrokenLines(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto line = text.substr(0, text.find('\n'));
        const bool isBroken = line.size() > kLongestRegistryLine || line.size() == text.size() ||
                              line.find('\0') != line.npos;
        out.append(isBroken ? "-" : line).append("\n");
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return out;
}

std::string FormatLostLines(const std::vector<LostLine>& lines) {
    constexpr size_t kShown = 5;
    std::string text;
    for (size_t i = 0; i < std::min(lines.size(), kShown); ++i) {
        if (i != 0) text += ", ";
        text += "line " + std::to_string(lines[i].number) + " " + lines[i].reason;
    }
    if (lines.size() > kShown) text += ", and " + std::to_string(lines.size() - kShown) + " more";
    return text;
}

}  // namespace zornctl
