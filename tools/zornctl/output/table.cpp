#include "zornctl/output/table.h"

#include <algorithm>

#include "zornctl/output/escape.h"

namespace zornctl {

namespace {

constexpr std::string_view kGap = "  ";
constexpr size_t kLeastWidth = 20;

using Row = std::vector<Cell>;

std::string_view ColourOf(Emphasis emphasis) {
    switch (emphasis) {
        case Emphasis::kGood:
            return "\x1b[32m";
        case Emphasis::kWarning:
            return "\x1b[33m";
        case Emphasis::kBad:
            return "\x1b[31m";
        case Emphasis::kFaint:
            return "\x1b[2m";
        case Emphasis::kNone:
            break;
    }
    return {};
}

std::vector<size_t> WidthsOf(const std::vector<Row>& rows) {
    std::vector<size_t> widths(rows.front().size());
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Columns(row[i].text));
        }
    }
    return widths;
}

/// How many columns the last cell of a row begins behind.
size_t IndentOf(const std::vector<size_t>& widths) {
    size_t indent = 0;
    for (size_t i = 0; i + 1 < widths.size(); ++i) indent += widths[i] + kGap.size();
    return indent;
}

/// Lines of at most `width` columns (0: any), all but the first one behind `indent` blanks.
void AppendLines(std::string& out, const Cell& cell, size_t indent, size_t width,
                 const TextStyle& style) {
    const auto lines = BreakLines(cell.text, width);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i != 0) out.append(indent, ' ');
        out += Emphasize(lines[i], cell.emphasis, style);
        out.erase(out.find_last_not_of(' ') + 1);
        out += '\n';
    }
}

void AppendRow(std::string& out, const Row& row, const std::vector<size_t>& widths,
               const TextStyle& style) {
    for (size_t i = 0; i + 1 < row.size(); ++i) {
        out += Emphasize(row[i].text, row[i].emphasis, style);
        out.append(widths[i] - Columns(row[i].text), ' ').append(kGap);
    }
    const size_t indent = IndentOf(widths);
    AppendLines(out, row.back(), indent, style.width == 0 ? 0 : style.width - indent, style);
}

/// A row for a narrow terminal: a cell a line, those behind the first one indented.
void AppendStack(std::string& out, const Row& row, const TextStyle& style) {
    if (!row.front().text.empty()) AppendLines(out, row.front(), 0, style.width, style);
    for (size_t i = 1; i < row.size(); ++i) {
        if (row[i].text.empty()) continue;
        out.append(kGap).append(kGap);
        const size_t indent = 2 * kGap.size();
        AppendLines(out, row[i], indent, std::max(style.width, indent + 1) - indent, style);
    }
}

Row Escaped(const Row& row) {
    Row escaped;
    for (const Cell& cell : row) escaped.emplace_back(Escape(cell.text), cell.emphasis);
    return escaped;
}

}  // namespace

std::string FormatTable(const std::vector<std::string>& titles, const std::vector<Row>& rows,
                        const TextStyle& style) {
    std::vector<Row> all{Row{}};
    for (const auto& title : titles) all.front().emplace_back(title, Emphasis::kFaint);
    for (const auto& row : rows) all.push_back(Escaped(row));
    const auto widths = WidthsOf(all);
    const bool isNarrow = style.width != 0 && style.width < IndentOf(widths) + kLeastWidth;
    std::string out;
    for (const auto& row : all) {
        if (isNarrow)
            AppendStack(out, row, style);
        else
            AppendRow(out, row, widths, style);
    }
    return out;
}

std::string Emphasize(std::string_view text, Emphasis emphasis, const TextStyle& style) {
    if (!style.hasColour || emphasis == Emphasis::kNone || text.empty()) return std::string{text};
    return std::string{ColourOf(emphasis)}.append(text).append("\x1b[0m");
}

std::vector<std::string> BreakLines(std::string_view text, size_t width) {
    std::vector<std::string> lines{std::string{}};
    if (width == 0) return {std::string{text}};
    while (!text.empty()) {
        const auto word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        auto& line = lines.back();
        if (line.empty())
            line = word;
        else if (Columns(line) + 1 + Columns(word) <= width)
            line.append(" ").append(word);
        else
            lines.emplace_back(word);
    }
    return lines;
}

}  // namespace zornctl
