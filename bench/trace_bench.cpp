// What a trace call costs, beside spdlog and beside the least that such a line can cost.
//
//   Disabled            TRACE while the trace is off
//   LogLine             a line in the log file, without the memory figure
//   LogLineFloor        kept prefix, snprintf, one write(2)
//   LogLineSpdlog       spdlog's file sink, flushed on every line
//   LogLineMemory       a line with the memory figure
//   LogLineMemoryFloor  one read of the kernel's figure (pread of statm)
//   RingLine            a line in the ring file, without the memory figure
//   RingLineFloor       kept prefix, snprintf, one copy into a mapped file
//
// Those with /threads:4 show all threads' lines together; compare items_per_second.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "trace/trace.h"

namespace {

constexpr const char* kText = "CPerfMon::Stop      :   monitoring thread %d of %s terminated\n";
constexpr const char* kPrefix = "2026-11-20 20:00:28.440 [0000014582] zorn          ";
constexpr size_t kFileLimit = 20 << 20;

/// A folder of the run's own, gone with it.
const std::string& Folder() {
    static const struct Scratch {
        std::string path = (std::filesystem::temp_directory_path() / "zorn_bench_XXXXXX").string();
        Scratch() {
            if (mkdtemp(path.data()) == nullptr) abort();
        }
        ~Scratch() { std::filesystem::remove_all(path); }
    } scratch;
    return scratch.path;
}

/// The trace as a service sets it up: level 3, with the memory figure if `memory`.
void SetUpTrace(bool memory) {
    const std::string directory = Folder();
    setenv("QX_LOG_RINGBUF_DIR", directory.c_str(), 1);
    setenv("QX_LOG_DEBUG_LEVEL", "3", 1);
    Debug.ResetMembers();
    Debug.Init("zorn");
    if (!memory) {
        struct Switch : CDebug {
            static void Off(CDebug& trace) { trace.*(&Switch::m_MemoryTraces) = 0; }
        };
        Switch::Off(Debug);
    }
}

void Disabled(benchmark::State& state) {
    Debug.Enable(false);
    int number = 0;
    for (auto _ : state) {
        TRACE(3, kText, ++number, "text");
        benchmark::ClobberMemory();
    }
    if (number != 0) state.SkipWithError("an argument was evaluated");
}
BENCHMARK(Disabled);

void WriteLines(benchmark::State& state) {
    int number = 0;
    for (auto _ : state) TRACE(3, kText, ++number, "kelmora");
    state.SetItemsProcessed(state.iterations());
}

void LogLine(benchmark::State& state) {
    WriteLines(state);
}
void SetUpLogLine(const benchmark::State&) {
    SetUpTrace(false);
}
BENCHMARK(LogLine)->Setup(SetUpLogLine);
BENCHMARK(LogLine)->Setup(SetUpLogLine)->Threads(4)->UseRealTime();

void LogLineMemory(benchmark::State& state) {
    WriteLines(state);
}
BENCHMARK(LogLineMemory)->Setup([](const benchmark::State&) { SetUpTrace(true); });

void RingLine(benchmark::State& state) {
    WriteLines(state);
}
void SetUpRing(const benchmark::State&) {
    SetUpTrace(false);
    if (!Debug.ArmRingBuffer()) abort();
    Debug.EndOfInitialization();
}
BENCHMARK(RingLine)->Setup(SetUpRing);
BENCHMARK(RingLine)->Setup(SetUpRing)->Threads(4)->UseRealTime();

// --- The floors ----------------------------------------------------------------------------------

void LogLineFloor(benchmark::State& state) {
    const int file = open((Folder() + "/floor").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    char line[1200];
    const size_t prefix = strlen(kPrefix);
    memcpy(line, kPrefix, prefix);
    size_t written = 0;
    int number = 0;
    for (auto _ : state) {
        const int text = snprintf(line + prefix, sizeof line - prefix, kText, ++number, "kelmora");
        const ssize_t result = write(file, line, prefix + static_cast<size_t>(text));
        written += static_cast<size_t>(result);
        if (written > kFileLimit) written = static_cast<size_t>(lseek(file, 0, SEEK_SET));
    }
    close(file);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LogLineFloor);

void LogLineMemoryFloor(benchmark::State& state) {
    const int file = open("/proc/self/statm", O_RDONLY);
    char text[64];
    for (auto _ : state) benchmark::DoNotOptimize(pread(file, text, sizeof text, 0));
    close(file);
}
BENCHMARK(LogLineMemoryFloor);

void RingLineFloor(benchmark::State& state) {
    constexpr size_t kSize = 256 << 10;
    const int file = open((Folder() + "/floor").c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    if (ftruncate(file, kSize) != 0) abort();
    void* map = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    auto* const base = static_cast<char*>(map);
    memset(base, '_', kSize);
    char line[1200];
    const size_t prefix = strlen(kPrefix);
    memcpy(line, kPrefix, prefix);
    size_t at = 0;
    int number = 0;
    for (auto _ : state) {
        const int text = snprintf(line + prefix, sizeof line - prefix, kText, ++number, "kelmora");
        const size_t length = prefix + static_cast<size_t>(text);
        if (at + length > kSize) at = 0;
        memcpy(base + at, line, length);
        at += length;
        benchmark::ClobberMemory();
    }
    munmap(map, kSize);
    close(file);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(RingLineFloor);

// --- spdlog --------------------------------------------------------------------------------------

std::shared_ptr<spdlog::logger> g_Spdlog;

void SetUpSpdlog(const benchmark::State&) {
    g_Spdlog = std::make_shared<spdlog::logger>(
        "zorn", std::make_shared<spdlog::sinks::basic_file_sink_mt>(Folder() + "/spdlog", true));
    g_Spdlog->set_pattern("%Y-%m-%d %H:%M:%S.%e [%P] %-13n %v");
    g_Spdlog->flush_on(spdlog::level::trace);
}

void LogLineSpdlog(benchmark::State& state) {
    int number = 0;
    for (auto _ : state) {
        g_Spdlog->info("CPerfMon::Stop      :   monitoring thread {} of {} terminated", ++number,
                       "kelmora");
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(LogLineSpdlog)->Setup(SetUpSpdlog);
BENCHMARK(LogLineSpdlog)->Setup(SetUpSpdlog)->Threads(4)->UseRealTime();

}  // namespace
