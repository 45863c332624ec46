#include "support/leak_census.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/host_namespaces.h"
#include "support/leak_listener.h"
#include "support/libc_fault.h"

namespace fs = std::filesystem;

/// Only there with the address sanitizer; prints what it finds and gives nonzero if there is some.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();

namespace {

/// The kernel's /proc, also on a fake host.
std::string Proc() {
    std::error_code error;
    return fs::exists(fs::path{kKernelProc} / "self", error) ? kKernelProc : "/proc";
}

std::vector<std::string>& PatternsThatMayStay() {
    static std::vector<std::string> s_Patterns;
    return s_Patterns;
}

bool MayStayOpen(const std::string& path) {
    const auto& patterns = PatternsThatMayStay();
    return std::any_of(patterns.begin(), patterns.end(), [&path](const std::string& pattern) {
        return fnmatch(pattern.c_str(), path.c_str(), 0) == 0;
    });
}

/// "5: /path" for each descriptor but the one that reads the folder.
std::vector<std::string> ReadDescriptors() {
    std::vector<std::string> found;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator{Proc() + "/self/fd", error}) {
        const std::string target = fs::read_symlink(entry.path(), error).native();
        const bool isReader = target.find("/proc/") != target.npos && target.ends_with("/fd");
        if (!error && !isReader) found.push_back(entry.path().filename().native() + ": " + target);
    }
    return found;
}

/// What the loader and the C library map on their own account.
bool IsOfTheSystem(std::string_view path) {
    for (const char* prefix : {"/usr/", "/lib", "[", "/etc/ld.so"}) {
        if (path.starts_with(prefix)) return true;
    }
    return false;
}

/// One line of /proc/self/maps: range, rights, offset, device, inode, path.
std::string ReadMapping(const std::string& line, const std::string& program) {
    std::istringstream fields{line};
    std::string range, rights, offset, device, inode, path;
    fields >> range >> rights >> offset >> device >> inode >> std::ws;
    std::getline(fields, path);
    const bool isShared = rights.ends_with('s');
    if (path.empty() && !isShared) return {};
    if (IsOfTheSystem(path) || path == program) return {};
    return path + " at " + range.substr(0, range.find('-'));
}

std::vector<std::string> ReadMappings() {
    std::error_code error;
    const std::string program = fs::read_symlink(Proc() + "/self/exe", error).native();
    std::vector<std::string> found;
    std::ifstream maps{Proc() + "/self/maps"};
    for (std::string line; std::getline(maps, line);) {
        if (std::string mapping = ReadMapping(line, program); !mapping.empty()) {
            found.push_back(std::move(mapping));
        }
    }
    return found;
}

/// The parent in a line of /proc/PID/stat, behind the name in brackets and the state.
int ParentOf(const fs::path& process) {
    std::ifstream file{process / "stat"};
    std::string line;
    std::getline(file, line);
    const auto name = line.rfind(") ");
    if (name == line.npos) return 0;
    std::istringstream rest{line.substr(name + 2)};
    char state = 0;
    int parent = 0;
    rest >> state >> parent;
    return parent;
}

bool HasChildren() {
    siginfo_t info{};
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

std::vector<int> ReadChildren() {
    std::vector<int> found;
    if (!HasChildren()) return found;
    const int self = LibcFault::Real<&::getpid>();
    std::error_code error;
    for (const auto& entry : fs::directory_iterator{Proc(), error}) {
        const std::string name = entry.path().filename();
        const bool isProcess = std::isdigit(static_cast<unsigned char>(name[0])) != 0;
        if (isProcess && ParentOf(entry.path()) == self) found.push_back(std::stoi(name));
    }
    return found;
}

std::string Describe(int child) {
    std::ifstream file{Proc() + "/" + std::to_string(child) + "/comm"};
    std::string name;
    std::getline(file, name);
    siginfo_t info{};
    (void)waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT);
    return "process " + std::to_string(child) + " (" + name +
           (info.si_pid == child ? "), ended but not waited for" : "), still running");
}

/// Whether LeakSanitizer finds memory lost. Told once: it would name the same memory each time.
bool HasLostMemory() {
    static bool s_IsTold = false;
    if (s_IsTold || __lsan_do_recoverable_leak_check == nullptr) return false;
    s_IsTold = __lsan_do_recoverable_leak_check() != 0;
    return s_IsTold;
}

template <typename T>
std::vector<T> Added(std::vector<T> before, std::vector<T> now) {
    std::sort(before.begin(), before.end());
    std::sort(now.begin(), now.end());
    std::vector<T> added;
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                        std::back_inserter(added));
    return added;
}

}  // namespace

LeakCensus::LeakCensus() {
    const LibcFault::Off off;
    m_Descriptors = ReadDescriptors();
    m_Mappings = ReadMappings();
    m_Children = ReadChildren();
}

std::vector<std::string> LeakCensus::Leaks() const {
    const LibcFault::Off off;
    std::vector<std::string> leaks;
    for (const std::string& line : Added(m_Descriptors, ReadDescriptors())) {
        if (!MayStayOpen(line.substr(line.find(": ") + 2))) leaks.push_back("descriptor " + line);
    }
    for (const std::string& line : Added(m_Mappings, ReadMappings())) {
        if (!MayStayOpen(line.substr(0, line.rfind(" at ")))) leaks.push_back("mapping of " + line);
    }
    for (const int child : Added(m_Children, ReadChildren())) {
        leaks.push_back(Describe(child));
        (void)LibcFault::Real<&::kill>(child, SIGKILL);
        (void)LibcFault::Real<&::waitpid>(child, static_cast<int*>(nullptr), 0);
    }
    if (HasLostMemory()) leaks.push_back("memory: see what LeakSanitizer has printed");
    return leaks;
}

void LeakCensus::MayStay(std::string_view pattern) {
    PatternsThatMayStay().emplace_back(pattern);
}

std::string DescribeLeaks(const LeakCensus& before, const std::string& what) {
    std::string text;
    for (const std::string& leak : before.Leaks()) text += "\n  " + leak;
    return text.empty() ? text : what + " left behind:" + text;
}

void UseProcFolder(const std::string& path) {
    Proc() = path;
}

void LeakListener::OnTestStart(const testing::TestInfo&) {
    m_Before.emplace();
}

void LeakListener::OnTestEnd(const testing::TestInfo& info) {
    const std::string text = DescribeLeaks(*m_Before, "The test");
    if (!text.empty()) ADD_FAILURE_AT(info.file(), info.line()) << text;
    m_Before.reset();
}
