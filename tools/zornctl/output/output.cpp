#include "zornctl/output/output.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "zornctl/output/escape.h"

namespace zornctl {

namespace {

constexpr size_t kBlock = 65536;

/// 0, or the error number of what failed.
int WriteAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno != EINTR) return errno;
        if (written > 0) text.remove_prefix(static_cast<size_t>(written));
    }
    return 0;
}

std::string_view Variable(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
}

size_t TerminalWidth() {
    size_t columns = 0;
    const auto wish = Variable("COLUMNS");
    const auto [end, error] = std::from_chars(wish.data(), wish.data() + wish.size(), columns);
    if (error == std::errc{} && columns > 0) return columns;
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

std::string FormatFailure(const Failure& failure) {
    std::string line = "zornctl: ";
    if (!failure.path.empty()) line.append(Escape(failure.path)).append(": ");
    line += Escape(failure.cause);
    if (!failure.remedy.empty()) line.append(" (").append(Escape(failure.remedy)).append(")");
    return line += '\n';
}

}  // namespace

TextStyle Output::Style() const {
    if (isatty(STDOUT_FILENO) == 0) return {};
    return {TerminalWidth(), Variable("NO_COLOR").empty() && Variable("TERM") != "dumb"};
}

void Output::WriteText(std::string_view text) {
    m_Buffer += text;
    if (m_Buffer.size() >= kBlock) Flush();
}

void Output::WriteDocument(std::string_view text) {
    if (m_IsJson)
        WriteJson({{"text", text}});
    else
        WriteText(text);
}

void Output::WriteJson(const nlohmann::ordered_json& object) {
    nlohmann::ordered_json whole{{"format_version", kFormatVersion}, {"command", m_Command}};
    whole.update(object);
    constexpr int kOneLine = -1;
    WriteText(whole.dump(kOneLine, ' ', true));
    WriteText("\n");
}

void Output::WriteNote(std::string_view text) {
    (void)WriteAll(STDERR_FILENO, "zornctl: " + Escape(text) + "\n");
}

void Output::WriteFailure(const Failure& failure) {
    (void)WriteAll(STDERR_FILENO, FormatFailure(failure));
    if (!m_IsJson) return;
    WriteJson({{"error",
                {{"status", static_cast<int>(failure.status)},
                 {"path", JsonText(failure.path)},
                 {"cause", JsonText(failure.cause)},
                 {"remedy", JsonText(failure.remedy)}}}});
    (void)WriteAll(STDOUT_FILENO, std::exchange(m_Buffer, {}));
}

void Output::Flush() {
    const int error = WriteAll(STDOUT_FILENO, std::exchange(m_Buffer, {}));
    if (error == EPIPE) throw ReaderGone{};
    if (error != 0) throw SystemFailure("standard output", error);
}

std::string JsonText(std::string_view text) {
    return IsUtf8(text) ? std::string{text} : Escape(text);
}

}  // namespace zornctl
