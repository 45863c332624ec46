#include <cerrno>
#include <system_error>

#include "zornctl/command/commands.h"
#include "zornctl/command/trace_view.h"
#include "zornctl/order/order_log.h"
#include "zornctl/system/file_watch.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/system/trace_settings.h"
#include "zornctl/system/whole_file.h"

namespace zornctl {

namespace {

/// Where a service with the environment of this process writes.
std::string DefaultLog() {
    const auto input = ReadSettingsInput(kConfigDirectory, OwnEnvironment());
    auto path = SettleTraceSettings(input).logPath;
    if (input.error != 0 && input.error != ENOENT) {
        Output::WriteNote(input.directory + ": " + std::generic_category().message(input.error) +
                          ": without its ini files, the log is " + path);
    }
    return path;
}

/// The first line of a log stays as long as its service runs, unless the passes begin there.
std::string IdentityOf(const std::vector<TraceEntry>& entries) {
    const bool isKnown =
        !entries.empty() && entries.front().text.find(" WRAP ") == std::string::npos;
    return isKnown ? std::string{entries.front().text} : std::string{};
}

std::unique_ptr<TraceLook> ReadLog(const std::string& path) {
    auto look = std::make_unique<TraceLook>();
    look->file = ReadTraceFile(path, kLargestLog);
    look->entries = SplitEntries(OrderLog(look->file).pieces);
    look->identity = IdentityOf(look->entries);
    return look;
}

}  // namespace

ExitStatus RunLog(const Arguments& arguments, Output& output) {
    const auto operand = arguments.Operand(0);
    const std::string path = operand ? *operand : DefaultLog();
    FileSignature last;
    TraceSource source{path, {}, "log file", std::chrono::milliseconds{1000}, {}};
    source.read = [&] {
        last = SignatureOf(path);
        return ReadLog(path);
    };
    source.hasChanged = [&] { return SignatureOf(path) != last; };
    return ShowTrace(source, arguments, output);
}

}  // namespace zornctl
