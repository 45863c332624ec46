// A second's prefix is made once and kept; a line puts the milliseconds and the memory figure into
// a copy of it. The process number is asked for once and again after a fork, of which a handler of
// the C library tells. The memory figure comes from the one file of /proc that holds it and little
// else, kept open: a fifth of the price of its line in `status`, from the same counter of the
// kernel.

#include "trace/line_prefix.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <utility>

#include "trace/no_cancellation.h"
#include "trace/proc_status.h"

namespace {

/// Enough for a date of any year that `strftime` fits into its 22 bytes, and the milliseconds.
constexpr size_t kStampSize = 32;
constexpr size_t kMemoryColumns = 8;

/// Forks of this process and its ancestors since the first prefix, plus one; 0 before that, and where
/// they cannot be counted.
std::atomic<unsigned> g_ForkCount{0};

void CountFork() {
    g_ForkCount.fetch_add(1, std::memory_order_relaxed);
}

void BeginToCountForks() {
    if (pthread_atfork(nullptr, nullptr, CountFork) == 0) CountFork();
}

/// The same count at the first prefix of several threads at once. Where forks cannot be counted nothing
/// may be kept: every call is another process.
unsigned FirstForkCount() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    static std::atomic<unsigned> calls{0};
    (void)pthread_once(&once, BeginToCountForks);
    const unsigned count = g_ForkCount.load(std::memory_order_relaxed);
    return count != 0 ? count : ++calls;
}

unsigned ForkCount() {
    const unsigned count = g_ForkCount.load(std::memory_order_relaxed);
    return count != 0 ? count : FirstForkCount();
}

/// Gives the length of the date, or 0 if it cannot be told.
size_t FormatStamp(char (&stamp)[kStampSize], const timeval& now) {
    tm local;
    char seconds[22];
    const size_t length = localtime_r(&now.tv_sec, &local) == nullptr
                              ? 0
                              : strftime(seconds, sizeof seconds, "%F %H:%M:%S", &local);
    if (length == 0) {
        snprintf(stamp, sizeof stamp, "%s", "yyyy-mm-dd hh:mm:ss.mmm");
    } else {
        snprintf(stamp, sizeof stamp, "%s.%03d", seconds, static_cast<int>(now.tv_usec / 1000));
    }
    return length;
}

/// Writes `number` right-aligned into the memory figure's column.
void PutMemory(char* place, uint64_t number) {
    size_t at = kMemoryColumns;
    do {
        place[--at] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0 && at > 0);
    memset(place, ' ', at);
}

}  // namespace

LinePrefix::~LinePrefix() {
    const NoCancellation untilClosed;
    if (m_Statm >= 0) close(std::exchange(m_Statm, -1));
}

size_t LinePrefix::Format(char* buffer, const char* name, bool withMemory, size_t kept) {
    timeval now{};
    (void)gettimeofday(&now, nullptr);
    if (const unsigned forks = ForkCount(); forks != m_ForkCount) {
        RenewAfterFork();
        m_ForkCount = forks;
    }
    const bool serves = Serves(now, name, withMemory);
    if (withMemory && !serves && m_Statm < 0) OpenStatm();
    const uint64_t resident = withMemory ? ResidentKiB() : 0;
    if (!serves || resident > kLargestInColumn) Build(now, name, resident, withMemory);
    if (m_Length == 0) return 0;
    memcpy(buffer + kept, m_Text + kept, m_Length - kept);
    if (m_MillisecondsAt != 0) {
        const auto milliseconds = static_cast<unsigned>(now.tv_usec / 1000);
        buffer[m_MillisecondsAt] = static_cast<char>('0' + milliseconds / 100);
        buffer[m_MillisecondsAt + 1] = static_cast<char>('0' + milliseconds / 10 % 10);
        buffer[m_MillisecondsAt + 2] = static_cast<char>('0' + milliseconds % 10);
    }
    if (m_MemoryAt != 0) PutMemory(buffer + m_MemoryAt, resident);
    return m_Length;
}

void LinePrefix::RenewAfterFork() {
    m_Pid = getpid();
    m_IsPattern = false;
    if (m_Statm >= 0) close(std::exchange(m_Statm, -1));
}

void LinePrefix::OpenStatm() {
    char path[sizeof "/proc//statm" + 11];
    snprintf(path, sizeof path, "/proc/%d/statm", m_Pid);
    m_Statm = open(path, O_RDONLY | O_CLOEXEC);
}

bool LinePrefix::Serves(const timeval& now, const char* name, bool withMemory) const {
    return m_IsPattern && now.tv_sec == m_Second && withMemory == m_WithMemory &&
           strcmp(name, m_Name) == 0;
}

void LinePrefix::Build(const timeval& now, const char* name, uint64_t resident, bool withMemory) {
    char stamp[kStampSize];
    const size_t dateLength = FormatStamp(stamp, now);
    int length = 0;
    if (withMemory) {
        length = snprintf(m_Text, sizeof m_Text, "%s [%010d] %8zu %s !%-13s ", stamp, m_Pid,
                          size_t{resident}, "KB", name);
    } else {
        length = snprintf(m_Text, sizeof m_Text, "%s [%010d] %-13s ", stamp, m_Pid, name);
    }
    m_Length = static_cast<size_t>(std::clamp(length, 0, static_cast<int>(kPrefixSize)));
    m_MillisecondsAt = dateLength != 0 ? dateLength + 1 : 0;
    m_IsPattern = m_Length > 0 && resident <= kLargestInColumn;
    m_MemoryAt = withMemory && m_IsPattern ? strlen(stamp) + sizeof " [0000000000] " - 1 : 0;
    m_Second = now.tv_sec;
    m_WithMemory = withMemory;
    snprintf(m_Name, sizeof m_Name, "%s", name);
}

uint64_t LinePrefix::ResidentKiB() const {
    char text[64];
    const ssize_t length = m_Statm >= 0 ? pread(m_Statm, text, sizeof text, 0) : -1;
    const char* const end = text + std::max(length, ssize_t{0});
    uint64_t pages = 0;
    const char* const resident = std::find(static_cast<const char*>(text), end, ' ');
    if (resident != end && std::from_chars(resident + 1, end, pages).ec == std::errc{}) {
        return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024;
    }
    uint64_t kibibytes = 0;
    GetProcStatusField(m_Pid, &kibibytes, "VmRSS:", 1);
    return kibibytes;
}
