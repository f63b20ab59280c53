#pragma once

// Symbols of the quovara shared library are hidden unless marked: the library
// exports its interface explicitly so that hosts link against a stable surface.
#if defined(QUOVARA_BUILDING_LIBRARY)
#define QV_EXPORT __attribute__((visibility("default")))
#else
#define QV_EXPORT __attribute__((visibility("default")))
#endif
