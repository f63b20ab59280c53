#pragma once

// The one error type of the graph-cut solver and its flow graph. The message
// is always a string literal, so the object can be copied freely and outlives
// any solver.

#include <exception>

#include "scene/KvoExport.h"

// Private helpers of the solver's exported classes: bound inside the library,
// so that calls to them are direct and can be inlined.
#define QV_GC_HIDDEN __attribute__((visibility("hidden")))

class QV_EXPORT GCException : public std::exception {
public:
    explicit GCException(const char* msg) : message(msg) {}
    ~GCException() override;
    const char* what() const noexcept override { return message; }

    // Prints the message as "\n%s\n" on the standard output. The library is
    // embedded in a host that must stay alive, so this only prints: whoever
    // catches decides what happens next.
    void Report() const;

    const char* message;
};
