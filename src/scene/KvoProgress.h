#pragma once

#include <QString>

#include "scene/KvoExport.h"

namespace kvo {

// Progress of a long operation as nested ranges. A range takes a share of its
// parent; step() advances by a fraction of the current range.
class QV_EXPORT IKvoProgress {
public:
    virtual ~IKvoProgress() = default;
    virtual void pushRange(double share) = 0;
    virtual void popRange() = 0;
    virtual void setText(const QString& caption) = 0;
    virtual void step(double fraction) = 0;
    // Position of the whole operation, 0 to 1.
    virtual double getPosition() const = 0;
    virtual QString getText() const = 0;
};

// Scope guard: pushRange on construction, popRange on destruction. Null progress is fine.
class QV_EXPORT KvoPrgPush {
public:
    KvoPrgPush(IKvoProgress* progress, double share) : m_progress(progress)
    {
        if (m_progress)
            m_progress->pushRange(share);
    }
    ~KvoPrgPush()
    {
        if (m_progress)
            m_progress->popRange();
    }
    KvoPrgPush(const KvoPrgPush&) = delete;
    KvoPrgPush& operator=(const KvoPrgPush&) = delete;

private:
    IKvoProgress* m_progress;
};

// Null-safe helpers for callers that hold a progress that may be null.
inline void prgText(IKvoProgress* p, const QString& s)
{
    if (p)
        p->setText(s);
}
inline void prgStep(IKvoProgress* p, double fraction)
{
    if (p)
        p->step(fraction);
}

} // namespace kvo
