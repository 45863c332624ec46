#include "inventory/text/reg_ex.h"

#include <regex.h>

#include <array>
#include <stdexcept>

#include "trace/trace.h"

namespace {

constexpr int kSearchLimit = 256;

/// A compiled expression.
class Expression {
  public:
    explicit Expression(const char* pattern)
        : m_Error(regcomp(&m_Expression, pattern, REG_EXTENDED)) {}
    ~Expression() {
        if (m_Error == 0) regfree(&m_Expression);
    }
    Expression(const Expression&) = delete;
    Expression& operator=(const Expression&) = delete;

    [[nodiscard]] bool IsValid() const { return m_Error == 0; }

    [[nodiscard]] std::string ErrorText() const {
        std::array<char, 256> text;
        (void)regerror(m_Error, &m_Expression, text.data(), text.size());
        return text.data();
    }

    /// REQUIRES: `IsValid()`.
    [[nodiscard]] bool Search(const char* text, regmatch_t& match) const {
        return regexec(&m_Expression, text, 1, &match, 0) == 0;
    }

  private:
    regex_t m_Expression{};
    int m_Error;
};

struct Range {
    size_t start = 0;
    size_t end = 0;
};

Range FindLastMatch(const Expression& expression, const std::string& text) {
    Range last;
    size_t offset = 0;
    for (int i = 0; i < kSearchLimit && offset <= text.size(); ++i) {
        regmatch_t match{};
        if (!expression.Search(text.c_str() + offset, match)) break;
        last.start = offset + static_cast<size_t>(match.rm_so);
        last.end = offset + static_cast<size_t>(match.rm_eo);
        offset = last.start + 1;
    }
    return last;
}

}  // namespace

bool CRegEx::GetRegexFromString(std::string& match, const std::string& text,
                                const std::string& pattern) {
    Range last;
    {
        const Expression expression{pattern.c_str()};
        if (!expression.IsValid()) {
            // clang-format off
            TRACE(1, "\nCRegEx::GetRegexFromString  : Cannot get regex from string! Error message: %s.\n",
                  expression.ErrorText().c_str());
            // clang-format on
            return false;
        }
        last = FindLastMatch(expression, text);
    }
    try {
        match = text.substr(last.start, last.end - last.start);
        return true;
    } catch (const std::out_of_range&) {
        // clang-format off
        TRACE(1, "\nCRegEx::GetRegexFromString  : Cannot get substring from string: '%s'! Start index: %d. End index: %d.\n",
              text.c_str(), static_cast<int>(last.start), static_cast<int>(last.end));
        // clang-format on
    } catch (const std::exception&) {
        TRACE(1, "\nCRegEx::GetRegexFromString  : Cannot get substring from string: : '%s'!\n",
              text.c_str());
    }
    return false;
}
