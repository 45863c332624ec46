#include "zornctl/system/file_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "zornctl/output/failure.h"

namespace zornctl {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kEvents = IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM;

}  // namespace

FileWatch::FileWatch(const std::string& path) {
    std::error_code error;
    const auto real = fs::weakly_canonical(fs::absolute(path, error), error);
    const auto directory = real.parent_path();
    if (error || !fs::is_directory(directory, error)) throw SystemFailure(path, ENOENT);
    m_Name = real.filename().native();
    m_Watch.Reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (m_Watch && inotify_add_watch(m_Watch.Get(), directory.c_str(), kEvents) < 0) {
        m_Watch.Reset();
    }
}

bool FileWatch::Wait(std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    for (;;) {
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (rest <= 0) return false;
        std::array<pollfd, 2> ready{{{m_Watch.Get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
        if (poll(ready.data(), ready.size(), static_cast<int>(rest)) < 0) continue;
        if (ready[1].revents != 0) throw ReaderGone{};
        if (ready[0].revents != 0 && TakeEvents()) return true;
    }
}

/// Takes all events that are there; whether one of them concerns the file, or some were lost.
bool FileWatch::TakeEvents() const {
    bool isConcerned = false;
    alignas(inotify_event) std::array<char, 65536> events;
    for (;;) {
        const ssize_t got = read(m_Watch.Get(), events.data(), events.size());
        if (got <= 0) return isConcerned;
        for (size_t at = 0; at < static_cast<size_t>(got);) {
            inotify_event event{};
            memcpy(&event, events.data() + at, sizeof event);
            const char* const name = events.data() + at + sizeof event;
            if ((event.mask & IN_Q_OVERFLOW) != 0) isConcerned = true;
            if (event.len > 0 && m_Name == name) isConcerned = true;
            at += sizeof event + event.len;
        }
    }
}

FileSignature SignatureOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return {};
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim.tv_sec,
            status.st_mtim.tv_nsec};
}

}  // namespace zornctl
