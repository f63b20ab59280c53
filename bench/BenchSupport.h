#pragma once

// What the benchmarks share: wall-clock seconds, and the process's memory as
// the kernel reports it.

#include <malloc.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace qvbench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point t0)
{
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

// A line of /proc/self/status ("VmHWM", "VmRSS") in kB; -1 when missing.
inline long statusKb(const char* key)
{
    std::ifstream in("/proc/self/status");
    std::string line;
    const size_t n = std::strlen(key);
    while (std::getline(in, line))
        if (line.compare(0, n, key) == 0 && line.size() > n && line[n] == ':')
            return std::atol(line.c_str() + n + 1);
    return -1;
}

inline double statusMB(const char* key)
{
    const long kb = statusKb(key);
    return kb < 0 ? 0.0 : double(kb) / 1024.0;
}

// Starts the peak resident size afresh (the high-water mark falls back to the
// present resident set), so that a benchmark's peak is its own and not the
// setup's. The heap freed so far is handed back first: otherwise it stays
// resident and the new peak starts above it. False where the kernel does not
// allow the reset; the peak is then the process's so far.
inline bool resetPeakMemory()
{
    malloc_trim(0);
    std::ofstream f("/proc/self/clear_refs");
    return bool(f << "5") && bool(f.flush());
}

} // namespace qvbench
