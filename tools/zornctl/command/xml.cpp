#include <unistd.h>

#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "markup/markup_document.h"
#include "markup/markup_path.h"
#include "markup/result_records.h"
#include "markup/result_text.h"
#include "zornctl/command/commands.h"
#include "zornctl/output/escape.h"
#include "zornctl/system/whole_file.h"
#include "zornctl/xml/xml_matches.h"

namespace zornctl {

namespace {

using nlohmann::ordered_json;

constexpr size_t kLargestDocument = std::numeric_limits<int32_t>::max();

bool IsUtf16(std::string_view text) {
    using namespace std::string_view_literals;
    return text.starts_with("\xFF\xFE") || text.starts_with("\xFE\xFF") ||
           text.starts_with("<\0"sv) || text.starts_with("\0<"sv);
}

std::string ReadDocument(const std::string& file) {
    std::string text = ReadOperand(file, kLargestDocument);
    if (!IsUtf16(text)) return text;
    throw Failure{ExitStatus::kNoAccess, OperandName(file), "is UTF-16, which is not read",
                  "convert it: iconv -f UTF-16 -t UTF-8"};
}

// --- check ---------------------------------------------------------------------------------------

struct Fault {
    std::string record;
    std::string text;
    std::optional<std::pair<size_t, size_t>> place;  ///< line and column
};

struct Report {
    std::string file;
    int32_t elements = 0;
    std::vector<Fault> faults;
    bool isCut = false;  ///< there may be more faults
};

std::optional<size_t> ParseOffset(const std::string& digits) {
    size_t offset = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), offset);
    return error == std::errc{} ? std::optional{offset} : std::nullopt;
}

std::vector<Fault> FaultsOf(const std::string& result, const std::string& text) {
    std::vector<Fault> faults;
    TextPlace place{text};
    MarkupDocument records{result};
    while (records.FindSibling()) {
        Fault& fault = faults.emplace_back();
        fault.record = records.GetNodeName();
        fault.text = ResultText(records.GetMarkup());
        const auto offset = ParseOffset(records.GetAttribute("offset"));
        if (!offset) continue;
        place.MoveTo(*offset);
        fault.place = {place.Line(), place.Column()};
    }
    return faults;
}

Report CheckFile(const std::string& file) {
    const MarkupDocument document{ReadDocument(file)};
    std::string result = document.Result();
    if (document.GetDocumentText().empty()) AddErrorRecord(result, "no_root_element");
    return {OperandName(file), document.GetElementCount(),
            FaultsOf(result, document.GetDocumentText()), result.size() >= kResultLimit};
}

std::string TextOf(const Report& report) {
    const std::string file = Escape(report.file);
    if (report.faults.empty()) {
        return file + ": well-formed, elements: " + std::to_string(report.elements) + "\n";
    }
    std::string text;
    for (const Fault& fault : report.faults) {
        text.append(file);
        if (fault.place) {
            text.append(":").append(std::to_string(fault.place->first));
            text.append(":").append(std::to_string(fault.place->second));
        }
        text.append(": ").append(Escape(fault.text)).append("\n");
    }
    if (report.isCut) text.append(file).append(": there may be more faults\n");
    return text;
}

ordered_json JsonOf(const Report& report) {
    auto faults = ordered_json::array();
    for (const Fault& fault : report.faults) {
        auto& object = faults.emplace_back();
        object["record"] = JsonText(fault.record);
        object["text"] = JsonText(fault.text);
        object["line"] = fault.place ? ordered_json(fault.place->first) : ordered_json();
        object["column"] = fault.place ? ordered_json(fault.place->second) : ordered_json();
    }
    return {{"path", JsonText(report.file)},
            {"well_formed", report.faults.empty()},
            {"elements", report.elements},
            {"more", report.isCut},
            {"faults", std::move(faults)}};
}

ExitStatus Check(const Arguments& arguments, Output& output) {
    auto status = ExitStatus::kDone;
    auto files = ordered_json::array();
    std::string text;
    for (size_t place = 0; const auto file = arguments.Operand(place); ++place) {
        const Report report = CheckFile(*file);
        if (!report.faults.empty()) status = ExitStatus::kNotFound;
        if (output.IsJson()) {
            files.push_back(JsonOf(report));
        } else {
            text.append(TextOf(report));
        }
    }
    if (output.IsJson()) {
        output.WriteJson({{"files", std::move(files)}});
    } else {
        output.WriteText(text);
    }
    return status;
}

// --- get -----------------------------------------------------------------------------------------

void CheckPath(const std::string& path) {
    const auto type = MarkupPath{path.c_str()}.GetType();
    if (type != MarkupPath::Type::kInvalid && type != MarkupPath::Type::kAny) return;
    throw Failure{ExitStatus::kWrongUse, {}, "no path: '" + path + "'", "see zornctl help xml"};
}

std::vector<int32_t> Find(MarkupDocument& document, const std::string& path, bool isAll) {
    if (isAll) return FindAllElements(document, path);
    if (!document.FindSibling(path.c_str())) return {};
    return {document.MainPosition()};
}

std::string ValueAt(const MarkupDocument& document, int32_t position, std::string_view attribute) {
    if (!attribute.empty()) return document.GetAttribute(position, attribute);
    return document.GetDataOf(position);
}

ordered_json JsonOf(const MarkupDocument& document, int32_t position, const std::string& value,
                    TextPlace& place) {
    place.MoveTo(static_cast<size_t>(document.PositionOf(position).start));
    return {{"element", JsonText(document.GetNameOf(position))},
            {"line", place.Line()},
            {"column", place.Column()},
            {"value", JsonText(value)}};
}

ExitStatus Get(const Arguments& arguments, Output& output) {
    const auto path = arguments.Operand(0).value_or(std::string{});
    const auto file = arguments.Operand(1).value_or(std::string{});
    CheckPath(path);
    MarkupDocument document{ReadDocument(file)};
    const auto found = Find(document, path, arguments.Has("all"));
    if (found.empty()) {
        throw Failure{ExitStatus::kNotFound, OperandName(file), "nothing at '" + path + "'",
                      document.IsWellFormed() ? "" : "it has faults: see zornctl xml check"};
    }
    const bool isTerminal = isatty(STDOUT_FILENO) != 0;
    TextPlace place{document.GetDocumentText()};
    auto values = ordered_json::array();
    for (const int32_t position : found) {
        const auto value = ValueAt(document, position, MarkupPath{path.c_str()}.Attribute());
        if (output.IsJson()) {
            values.push_back(JsonOf(document, position, value, place));
        } else {
            output.WriteText((isTerminal ? Escape(value) : value) + "\n");
        }
    }
    if (output.IsJson()) {
        output.WriteJson({{"path", JsonText(OperandName(file))}, {"values", std::move(values)}});
    }
    return ExitStatus::kDone;
}

}  // namespace

ExitStatus RunXml(const Arguments& arguments, Output& output) {
    return arguments.Action()->name == "check" ? Check(arguments, output) : Get(arguments, output);
}

}  // namespace zornctl
