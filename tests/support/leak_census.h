#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What a process holds that must be given back: every test program compares it before and after
/// each test, `FakeHost::Run` before and after each body, and a difference is a failure that names
/// it.
///
/// Counted are
///  - open descriptors,
///  - mappings of files and shared mappings, except libraries and data below /usr and /lib,
///  - child processes, running or ended but not waited for; what is left running is killed.
///
/// Heap memory is left to LeakSanitizer, which the asan preset brings: there it looks after each
/// test and each body too, so the leak is charged to the one that made it. Anonymous private
/// mappings are not counted: they are malloc's arenas and the stacks that the C library keeps for
/// the next thread.
///
/// Thread-safety: one thread, while others neither open nor close.
class LeakCensus {
  public:
    /// Counts.
    LeakCensus();

    /// One line for each thing that is held now and was not then; empty if there is none. Children
    /// among them are killed and waited for.
    [[nodiscard]] std::vector<std::string> Leaks() const;

    /// Tells that the process keeps what it holds open as a descriptor or mapping of a path of that
    /// pattern (glob(7), where * matches slashes too), once it was needed: not a leak, from here on
    /// and in all later tests of the program.
    ///
    ///     LeakCensus::MayStay("/proc/*/statm");
    static void MayStay(std::string_view pattern);

  private:
    std::vector<std::string> m_Descriptors;
    std::vector<std::string> m_Mappings;
    std::vector<int> m_Children;
};
