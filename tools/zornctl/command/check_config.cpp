#include <cerrno>
#include <nlohmann/json.hpp>

#include "zornctl/command/commands.h"
#include "zornctl/output/table.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/system/trace_settings.h"

namespace zornctl {

namespace {

using nlohmann::ordered_json;

std::string_view NameOf(SettingOrigin origin) {
    switch (origin) {
        case SettingOrigin::kEnvironment:
            return "environment";
        case SettingOrigin::kFile:
            return "file";
        case SettingOrigin::kDefault:
            return "default";
        case SettingOrigin::kNone:
            break;
    }
    return "none";
}

std::string FormatSource(const Setting& setting) {
    switch (setting.origin) {
        case SettingOrigin::kEnvironment:
            return "variable " + setting.place;
        case SettingOrigin::kFile:
            return setting.place;
        case SettingOrigin::kDefault:
            return "default";
        case SettingOrigin::kNone:
            break;
    }
    return "nothing is read";
}

ordered_json SettingObject(const Setting& setting) {
    return {{"name", setting.name},
            {"value", setting.isNumber ? ordered_json(std::stoul(setting.value))
                                       : ordered_json(JsonText(setting.value))},
            {"source", NameOf(setting.origin)},
            {"place", JsonText(setting.place)}};
}

void WriteObject(const TraceSettings& settings, const SettingsInput& input, Output& output) {
    auto rows = ordered_json::array();
    for (const auto& row : settings.rows) rows.push_back(SettingObject(row));
    auto warnings = ordered_json::array();
    for (const auto& warning : settings.warnings) {
        warnings.push_back({{"place", JsonText(warning.place)},
                            {"cause", JsonText(warning.cause)},
                            {"remedy", JsonText(warning.remedy)}});
    }
    output.WriteJson({{"directory", JsonText(input.directory)},
                      {"directory_exists", input.error == 0},
                      {"log", JsonText(settings.logPath)},
                      {"settings", std::move(rows)},
                      {"warnings", std::move(warnings)}});
}

void WriteTables(const TraceSettings& settings, const SettingsInput& input, Output& output) {
    const auto style = output.Style();
    std::vector<std::vector<Cell>> rows;
    for (const auto& row : settings.rows) rows.push_back({row.title, row.value, FormatSource(row)});
    const std::string logSource =
        input.error == 0 ? "" : input.directory + " does not exist: no ini file is read";
    rows.push_back({"log file", settings.logPath, logSource});
    output.WriteText(FormatTable({"SETTING", "VALUE", "SOURCE"}, rows, style));
    if (settings.warnings.empty()) return;
    std::vector<std::vector<Cell>> warnings;
    for (const auto& warning : settings.warnings) {
        warnings.push_back({Cell{"warning", Emphasis::kWarning}, warning.place,
                            warning.cause + "; " + warning.remedy});
    }
    output.WriteText("\n" + FormatTable({"", "PLACE", "CAUSE AND REMEDY"}, warnings, style));
}

}  // namespace

ExitStatus RunCheckConfig(const Arguments& arguments, Output& output) {
    const auto pid = arguments.Number("environment-of");
    const auto wish = arguments.Value("directory");
    const auto input = ReadSettingsInput(wish.value_or(kConfigDirectory),
                                         pid ? EnvironmentOf(*pid) : OwnEnvironment());
    // The service's own may be missing, one that was asked for by its name may not.
    const bool isMissing = input.error == ENOENT || input.error == ENOTDIR;
    if (input.error != 0 && (wish || !isMissing)) throw SystemFailure(input.directory, input.error);
    const auto settings = SettleTraceSettings(input);
    if (output.IsJson())
        WriteObject(settings, input, output);
    else
        WriteTables(settings, input, output);
    const bool isFailed = arguments.Has("strict") && !settings.warnings.empty();
    return isFailed ? ExitStatus::kNotFound : ExitStatus::kDone;
}

}  // namespace zornctl
