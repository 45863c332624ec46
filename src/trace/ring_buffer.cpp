// The ring file: a file of fixed size, mapped and written by memcpy, so that its content outlives
// the process. From its start on it holds
//
//     header | rest of that block | "Begin of RingBuffer" | lines, in passes | end mark | older
//     lines
//
// The lines behind the "Begin" line are the ring proper, from m_RingStart on. Behind the newest
// line stands the end mark, which the next line overwrites; behind the header stands the mark that
// its last line left. Where a line and the mark do not fit any more, the rest is filled with dots,
// the header is written anew and the pass starts again at m_RingStart.
//
// The process may be killed between any two stores, and the reader goes by the mark. So a mark
// gives way last: to the first 16 bytes of a line when the rest of it and its own mark stand, and
// at the end of a pass to the dots when the new pass has a mark. For that moment there are two,
// never none.
//
// The header must never reach the ring proper, however long the environment's values are: its lines
// have a limit of their own, and those beyond it are left out.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include "trace/debug.h"
#include "trace/drop_exceptions.h"
#include "trace/line_text.h"
#include "trace/no_cancellation.h"

namespace {

static_assert(kEndMarkSize == kSteadySize, "the rest of a line is made while the mark stands");

constexpr size_t kBlockSize = 1024;
constexpr int kRingFileMode = 0x81C0;  // a regular file of mode 0700
/// Two blocks behind the end of the header are looked at for the beginning of the ring proper.
constexpr uint64_t kHeaderGap = 2 * kBlockSize;
constexpr uint64_t kSmallestRing = kHeaderGap + kBlockSize;
constexpr uint64_t kBytesPerFactor = 1024 * 1024;
constexpr uint64_t kLargestRing = 1024 * kBytesPerFactor;

uint64_t DownToBlock(uint64_t offset) {
    return offset & ~uint64_t{kBlockSize - 1};
}

/// What `ArmRingBuffer` promises.
uint64_t RingSize(int32_t factor, int32_t weight) {
    const uint64_t mebibytes = uint64_t{static_cast<uint32_t>(std::max(factor, 1))} *
                               static_cast<uint32_t>(std::max(weight, 1));
    return std::min(mebibytes, kLargestRing / kBytesPerFactor) * kBytesPerFactor;
}

/// Whether header and ring proper have room, and the size suits the count of blocks.
bool IsRingSize(size_t size) {
    return size % kBlockSize == 0 && size >= kSmallestRing && size <= kLargestRing;
}

/// The path goes into a shell command unquoted.
bool IsOneShellWord(std::string_view path) {
    constexpr std::string_view kLiteral =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@%=";
    return !path.empty() && path.front() != '-' &&
           path.find_first_not_of(kLiteral) == std::string_view::npos;
}

/// Ends a text that is cut at the size of the line buffer with `words`; its length.
size_t CutText(char* text, std::string_view words) {
    memcpy(text + kTextSize, words.data(), words.size());
    return kTextSize + words.size();
}

/// Keeps the compiler from moving stores across. The processor makes them in their order.
void KeepOrderOfStores() {
    std::atomic_signal_fence(std::memory_order_acq_rel);
}

/// A file that is cut kills the process that has it mapped, at its next store. So a new ring is
/// another file than the former one, whose writer may still run. A link stays what it is.
void RemoveFormerRing(const char* path) {
    struct stat status;
    if (lstat(path, &status) == 0 && S_ISREG(status.st_mode)) (void)unlink(path);
}

/// A pipe that nobody reads would stop the process.
bool IsFile(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

struct Free {
    void operator()(char* memory) const { free(memory); }
};

}  // namespace

bool CDebug::ArmRingBuffer() {
    const NoCancellation atOnce;
    const RecursiveLockGuard hold{m_Lock};
    if (m_RingBase != nullptr) {
        LogFilePrintf("\n### ArmRingBuffer(): the ring buffer runs already ###");
        return false;
    }
    if (!ComposeRingPath(m_RingStartupPath, "ring_startup") ||
        !ComposeRingPath(m_RingPath, "ring")) {
        ForgetRing();
        LogFilePrintf("\n### ArmRingBuffer(): a path below \"%s\" is too long or no plain word ###",
                      m_LogDirectory);
        return false;
    }
    m_RingSize = RingSize(m_RingFactor, m_RingWeight);
    m_RingPos = 0;
    m_RingWrapCount = 0;
    if (!InitRingBuffer(m_RingStartupPath, m_RingSize)) {
        ForgetRing();
        return false;
    }
    m_Enabled = true;
    return true;
}

/// No path of a ring that does not run may reach the shell.
void CDebug::ForgetRing() {
    m_RingSize = 0;
    m_RingStartupPath[0] = m_RingPath[0] = '\0';
}

/// `<log directory>/<stem>_<program name>`, the file's name in small letters; false if that is cut
/// or no plain word.
bool CDebug::ComposeRingPath(char (&path)[kTracePathSize], const char* stem) {
    char name[kTracePathSize];
    snprintf(name, sizeof name, "%s", stem);
    AppendNameSuffix(name, sizeof name, m_ProgramName != nullptr ? m_ProgramName : "");
    ToLowerInPlace(name);
    const int length = snprintf(path, sizeof path, "%s/%s", m_LogDirectory, name);
    return length > 0 && static_cast<size_t>(length) < sizeof path && IsOneShellWord(path);
}

bool CDebug::InitRingBuffer(const char* path, size_t len) {
    const NoCancellation atOnce;
    // Nothing of a size that cannot be used is made; no bytes at all fail where they cannot be
    // mapped.
    if (len != 0 && (len != m_RingSize || !IsRingSize(len))) {
        LogFilePrintf("\n### InitRingBuffer(): %s cannot be a ring of %zu bytes ###", path, len);
        return false;
    }
    if (!MapRing(path, len)) return false;
    m_TraceTarget = kTargetRing;
    ContinueRingAt(m_RingPos);
    PrintRingHeader(m_RingSize - kHeaderGap);
    ContinueRingAt(DownToBlock(m_RingPos + kHeaderGap));
    PrintTo(kTargetRing, "\n### Begin of RingBuffer. ###");
    m_RingStart = m_RingPos;
    PrintTo(kTargetRing, "\n### Start of initialization. ###");
    return true;
}

bool CDebug::MapRing(const char* path, size_t length) {
    RemoveFormerRing(path);
    errno = 0;
    m_RingFd = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, kRingFileMode);
    if (m_RingFd < 0) {
        LogFilePrintf("\n### InitRingBuffer(): open of %s failed (errno=%d; %s) ###", path, errno,
                      strerror(errno));
        return false;
    }
    bool filled = false;
    DropExceptions([&]() REQUIRES(m_Lock) { filled = PrefillRing(static_cast<int32_t>(length)); });
    if (!filled) {
        CloseRing();
        LogFilePrintf("\n### InitRingBuffer(): (2) write m_InternalDebugBuffer to %s failed ###",
                      path);
        return false;
    }
    void* base = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, m_RingFd, 0);
    if (base == MAP_FAILED) {
        const int error = errno;
        CloseRing();
        LogFilePrintf("\n### InitRingBuffer(): mmap of %s failed (errno=%d; %s) ###", path, error,
                      strerror(error));
        return false;
    }
    m_RingBase = static_cast<char*>(base);
    return true;
}

/// Writes a row of blocks: a prefix, underscores and a newline, so that a viewer shows when the
/// file was made and what was never written, and so that no store needs room on the disk any more.
bool CDebug::PrefillRing(int32_t length) {
    if (!IsFile(m_RingFd)) return false;
    char* const block = m_InternalDebugBuffer;
    for (int32_t rest = length; rest > 0; rest -= int32_t{kBlockSize}) {
        const size_t prefixLength = FormatPrefix(block, nullptr);
        memset(block + prefixLength, '_', kBlockSize - 1 - prefixLength);
        block[kBlockSize - 1] = '\n';
        if (write(m_RingFd, block, kBlockSize) != ssize_t{kBlockSize}) return false;
    }
    return true;
}

void CDebug::PrintRingHeader(uint64_t limit) {
    m_RingHeaderLimit = limit;
    PrintHeader(kTargetRing);
    m_RingHeaderLimit = 0;
}

void CDebug::CloseRing() {
    if (m_RingBase != nullptr) munmap(std::exchange(m_RingBase, nullptr), m_RingSize);
    if (m_RingFd >= 0) close(std::exchange(m_RingFd, -1));
}

void CDebug::WriteToRing(const char* fmt, va_list args, const char* name) {
    if (fmt == nullptr || m_RingBase == nullptr) return;
    DropExceptions([&]() REQUIRES(m_Lock) { FormatToRing(fmt, args, name); });
}

/// Most lines are made where they are to stand: behind the end mark, which stays until they are whole.
void CDebug::FormatToRing(const char* fmt, va_list args, const char* name) {
    bool isInPlace = FitsRing(kPrefixSize + kTextSize + 1);
    char* line = isInPlace ? m_RingBase + m_RingPos : m_InternalDebugBuffer;
    const size_t prefixLength = FormatPrefix(line, name, isInPlace ? kEndMarkSize : 0);
    if (prefixLength == 0) {  // the text begins where the mark stands
        isInPlace = false;
        line = m_InternalDebugBuffer;
    }
    va_list again;
    va_copy(again, args);
    const int textLength = FormatText(line + prefixLength, kTextSize + 1, fmt, args);
    const size_t length = prefixLength + static_cast<size_t>(std::max(textLength, 0));
    if (textLength > static_cast<int>(kTextSize)) {
        AppendLongToRing(line, prefixLength, length, fmt, again);
    } else if (isInPlace) {
        FinishInRing(m_Prefix.Head(), EndWithNewline(line, length));
    } else {
        AppendToRing(line, EndWithNewline(line, length));
    }
    va_end(again);
}

/// The same for a line of `length` bytes that is too long for its place; `begin` has its prefix.
void CDebug::AppendLongToRing(const char* begin, size_t prefixLength, size_t length,
                              const char* fmt, va_list args) {
    char* line = m_InternalDebugBuffer;
    const size_t steady = std::min(prefixLength, kSteadySize);
    memcpy(line, m_Prefix.Head(), steady);
    memmove(line + steady, begin + steady, prefixLength - steady);
    std::unique_ptr<char, Free> longLine;
    const bool isTooLong = length - prefixLength > m_RingSize / 10;
    if (!isTooLong) longLine.reset(static_cast<char*>(malloc(length + 2)));
    if (longLine != nullptr) {
        line = static_cast<char*>(memcpy(longLine.get(), line, prefixLength));
        (void)FormatText(line + prefixLength, length - prefixLength + 1, fmt, args);
    } else {
        (void)FormatText(line + prefixLength, kTextSize + 1, fmt, args);
        length = prefixLength +
                 CutText(line + prefixLength,
                         isTooLong ? "\n## WARNING: TRACE-SIZE TOO BIG: Output Truncated!\n"
                                   : "\n## ERROR: No memory: Output Truncated!\n");
    }
    AppendToRing(line, EndWithNewline(line, length));
}

bool CDebug::FitsRing(size_t length) const {
    const uint64_t limit = m_RingHeaderLimit != 0 ? m_RingHeaderLimit : m_RingSize;
    return m_RingPos + length + m_EndMarkLength <= limit;
}

/// Puts a whole line behind the newest one, after a wrap if it does not fit.
void CDebug::AppendToRing(char* line, size_t length) {
    char saved[sizeof m_InternalDebugBuffer];
    if (!FitsRing(length)) {
        if (m_RingHeaderLimit != 0) return;
        if (line == m_InternalDebugBuffer) line = static_cast<char*>(memcpy(saved, line, length));
        WrapRing();
        if (!FitsRing(length)) {
            length = m_RingSize - m_EndMarkLength - m_RingPos;
            line[length - 1] = '\n';
        }
    }
    StoreInRing(line, length);
}

/// Puts a line in place of the end mark at `m_RingPos`, and the mark behind it.
void CDebug::StoreInRing(const char* line, size_t length) {
    const size_t atMark = std::min(length, kEndMarkSize);
    memcpy(m_RingBase + m_RingPos + atMark, line + atMark, length - atMark);
    FinishInRing(line, length);
}

/// The same for a line of which all but what is to stand in place of the mark is there.
void CDebug::FinishInRing(const char* line, size_t length) {
    char* const place = m_RingBase + m_RingPos;
    memcpy(place + length, m_EndMark, kEndMarkSize);
    KeepOrderOfStores();
    if (length >= kEndMarkSize) {
        memcpy(place, line, kEndMarkSize);
    } else {
        memcpy(place, line, length);
    }
    m_RingPos += length;
}

/// The next line is to be stored there: a mark stands wherever one may be.
void CDebug::ContinueRingAt(uint64_t offset) {
    m_RingPos = offset;
    memcpy(m_RingBase + offset, m_EndMark, kEndMarkSize);
    KeepOrderOfStores();
}

/// Goes back to the beginning of the ring proper; the header is written anew on the way.
void CDebug::WrapRing() {
    const NoCancellation atOnce;
    char* const endOfPass = m_RingBase + m_RingPos;
    const uint64_t rest = m_RingSize - m_RingPos;
    const uint64_t atMark = std::min(rest, m_EndMarkLength);
    memset(endOfPass + atMark, '.', rest - atMark);
    m_RingWrapCount += 1;
    ContinueRingAt(0);
    PrintRingHeader(DownToBlock(m_RingStart - 1));
    ContinueRingAt(m_RingStart);
    memset(endOfPass, '.', atMark);
}

/// Closes and compresses the start-up ring and begins the running one.
void CDebug::SwapRings() {
    const NoCancellation atOnce;
    const RecursiveLockGuard hold{m_Lock};
    PrintTo(kTargetRing, "\n### End of initialization. ###");
    m_Enabled = false;
    CloseRing();
    m_RingPos = 0;
    m_RingWrapCount = 0;
    CompressStartupRing();
    m_RingSize = m_RingSize / 4;  // the running ring has a quarter of the start-up ring
    const bool running = InitRingBuffer(m_RingPath, m_RingSize);
    if (!running) SetSilent();
    m_Enabled = running;
    m_InitDone = true;
}

void CDebug::CompressStartupRing() {
    // Without a name gzip would read the standard input: a ring that was not armed here.
    if (m_RingStartupPath[0] == '\0') return;
    char command[kTracePathSize + sizeof "gzip -f %s 2>/dev/null"];
    snprintf(command, sizeof command, "gzip -f %s 2>/dev/null", m_RingStartupPath);
    FILE* gzip = popen(command, "r");
    if (gzip != nullptr) {
        (void)pclose(gzip);
    } else {
        LogFilePrintf("\n### gziping of startup log file failed -> it doesn't matter ###");
    }
}
