#pragma once

#include <ctime>

/// How long `work` keeps a processor busy, in seconds of the calling thread: what else the machine does is
/// left out.
template <typename Work>
double ProcessorSecondsOf(Work work) {
    timespec begin{};
    timespec end{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &begin);
    work();
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
    return static_cast<double>(end.tv_sec - begin.tv_sec) +
           static_cast<double>(end.tv_nsec - begin.tv_nsec) * 1e-9;
}
