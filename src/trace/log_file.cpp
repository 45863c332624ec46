// The log file: a head of the lines written up to the end of initialization, and behind it a cycle
// that is overwritten in place, pass after pass. Each pass begins with the WRAP line, so that line
// is where new meets old. The file is never shortened: behind the write position stand the lines of
// the former pass, the first of them perhaps cut in two.
//
// The count of bytes, not the file's size, decides about a wrap; it starts again at what the head
// holds. The stream has no buffer, so a line is one write(2), a crash loses none, and a full disk
// loses those that it has no room for and nothing later.

#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "trace/debug.h"
#include "trace/drop_exceptions.h"
#include "trace/line_text.h"
#include "trace/no_cancellation.h"
#include "trace/unique_file.h"

namespace {

/// A pipe that nobody reads would stop every thread that traces.
bool IsPipe(FILE* file) {
    struct stat status;
    return fstat(fileno(file), &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

void CDebug::OpenLogFile(const char* name) {
    char stem[kTracePathSize];
    snprintf(stem, sizeof stem, "%s", name);
    ToLowerInPlace(stem);
    snprintf(m_LogPath, sizeof m_LogPath, "%s/log.%s", m_LogDirectory, stem);
    const UniqueFile closing{std::exchange(m_LogFile, nullptr)};
    UniqueFile opened{fopen(m_LogPath, "w+e")};
    if (opened && !IsPipe(opened.get())) m_LogFile = opened.release();
    m_LogInitEndOffset = 0;
    m_LogInitEndCount = m_LogByteCount = m_LogCycle = 0;
    m_LogIsLosing = false;
    if (m_LogFile != nullptr) {
        (void)setvbuf(m_LogFile, nullptr, _IONBF, 0);
    } else {
        syslog(LOG_ERR, "ERROR: Error during opening %s --> proceed without it\n", m_LogPath);
    }
}

void CDebug::WriteToLogFile(const char* fmt, va_list args, const char* name) {
    if (m_LogFile == nullptr || fmt == nullptr) return;
    DropExceptions([&]() REQUIRES(m_Lock) {
        char* const line = m_InternalDebugBuffer;
        const size_t prefixLength = FormatPrefix(line, name);
        const int text = FormatText(line + prefixLength, kTextSize + 1, fmt, args);
        const size_t textLength = std::min(static_cast<size_t>(std::max(text, 0)), kTextSize);
        line[EndWithNewline(line, prefixLength + textLength)] = '\0';
        if (AppendToLogFile()) WrapLogFile(prefixLength);
    });
}

/// Writes the line that stands in the buffer, up to its NUL; true if the limit is passed.
bool CDebug::AppendToLogFile() {
    const size_t length = strlen(m_InternalDebugBuffer);
    const size_t written = fwrite(m_InternalDebugBuffer, 1, length, m_LogFile);
    if (written < length) ReportLostLine(errno);
    if (written == length) m_LogIsLosing = false;
    const uint64_t count = uint64_t{m_LogByteCount} + written;
    m_LogByteCount = static_cast<uint32_t>(count);
    return count > m_LogMaxSize;
}

/// Says once that lines are lost, and once more when that happens again after a line was written.
void CDebug::ReportLostLine(int error) {
    if (std::exchange(m_LogIsLosing, true)) return;
    syslog(LOG_ERR, "ERROR: Error during writing %s (errno=%d) --> lines are lost\n", m_LogPath,
           error);
}

/// Goes back to the end of the head and begins a pass, with the prefix of the line just written.
void CDebug::WrapLogFile(size_t prefixLength) {
    const NoCancellation atOnce;
    errno = 0;
    if (fseek(m_LogFile, m_LogInitEndOffset, SEEK_SET) != 0) {
        syslog(LOG_ERR, "ERROR: fseek failed for %s (errno=%d) --> rewind it\n", m_LogPath, errno);
        rewind(m_LogFile);
    }
    const uint32_t initEndCount = m_LogInitEndCount;
    m_LogByteCount = initEndCount;
    m_LogCycle += 1;
    snprintf(m_InternalDebugBuffer + prefixLength, sizeof m_InternalDebugBuffer - prefixLength,
             "------ WRAP ----- Cycle=%d, CntInitEnd=%u, CurrentByteCnt=%u (MaxCnt=%u)\n",
             static_cast<int>(m_LogCycle), initEndCount, initEndCount, m_LogMaxSize);
    (void)AppendToLogFile();
}
