#include "platform/process.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "platform/directory_stream.h"
#include "platform/open_file.h"

namespace {

constexpr const char* kProcPath = "/proc";

std::string ProcPath(pid_t pid, const char* file) {
    return kProcPath + ("/" + std::to_string(pid)) + "/" + file;
}

/// The process whose folder of /proc has that name; 0 if it is none's.
pid_t ProcessNumber(const char* name) {
    return static_cast<pid_t>(std::clamp(strtol(name, nullptr, 10), 0L, long{INT_MAX}));
}

}  // namespace

bool ReadProcFileLine(pid_t pid, const char* file, std::string& out) {
    const UniqueFile stream = OpenFile(ProcPath(pid, file).c_str(), "r");
    if (!stream) return false;
    out.clear();
    for (int byte = getc(stream.get()); byte != EOF && byte != '\n'; byte = getc(stream.get())) {
        out += static_cast<char>(byte);
    }
    return true;
}

bool GetProcessName(std::string& out, pid_t pid) {
    return ReadProcFileLine(pid, "comm", out);
}

bool GetProcessPath(std::string& out, pid_t pid) {
    std::array<char, 4096> path;
    const ssize_t length = readlink(ProcPath(pid, "exe").c_str(), path.data(), path.size());
    if (length <= 0) return false;
    out.assign(path.data(), static_cast<size_t>(length));
    return true;
}

bool GetProcessNameAndPath(pid_t pid, std::string& name, std::string& path) {
    const bool hasName = GetProcessName(name, pid);
    const bool hasPath = GetProcessPath(path, pid);
    return hasName && hasPath;
}

bool FindProcessByName(pid_t* pid, const std::string& name) {
    *pid = -1;
    DirectoryStream processes = DirectoryStream::Open(kProcPath);
    std::string other;
    while (const char* entry = processes.Next()) {
        const pid_t number = ProcessNumber(entry);
        if (number == 0 || !GetProcessName(other, number) || other != name) continue;
        *pid = number;
        return true;
    }
    return false;
}

bool ReadProcStatusField(pid_t pid, uint64_t* value, const char* key) {
    return GetProcStatusField(pid, value, key, 0);
}

bool GetProcessMemory(pid_t pid, uint64_t* size, uint64_t* peak, uint64_t* swap, uint64_t* reserved,
                      uint64_t* data) {
    *size = *peak = *swap = *reserved = *data = 0;
    uint64_t libraries = 0;
    ReadProcStatusField(pid, peak, "VmPeak:");
    ReadProcStatusField(pid, size, "VmSize:");
    ReadProcStatusField(pid, swap, "VmSwap:");
    ReadProcStatusField(pid, &libraries, "VmLib:");
    *data = *size - libraries;
    return *peak != 0 && *size != 0;
}

int QueryProcessFlag(uintptr_t /*ignored*/, int* flag) {
    *flag = 1;
    return 0;
}
