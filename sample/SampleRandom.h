#pragma once

#include <cstdint>

namespace qvsample {

// A small generator with the same output on every platform and standard
// library (the standard distributions are not specified that far).
class SampleRandom {
public:
    explicit SampleRandom(uint64_t seed) : m_state(seed * 0x9E3779B97F4A7C15ull + 0x632BE59BD9B4E019ull) {}
    uint64_t next()
    {
        // splitmix64
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    uint32_t next32() { return uint32_t(next() >> 32); }
    // Uniform in [lo, hi).
    double uniform(double lo, double hi) { return lo + (hi - lo) * double(next() >> 11) * (1.0 / 9007199254740992.0); }
    // Uniform integer in [0, n).
    uint32_t below(uint32_t n) { return uint32_t((uint64_t(next32()) * n) >> 32); }

private:
    uint64_t m_state;
};

} // namespace qvsample
