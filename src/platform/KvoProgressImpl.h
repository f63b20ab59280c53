#pragma once

#include <functional>
#include <mutex>
#include <vector>

#include "scene/KvoExport.h"
#include "scene/KvoProgress.h"

namespace kvo {

// Progress over nested ranges. The whole operation is [0, 1]; pushRange opens
// a part of the current range that starts at the current position, and
// popRange jumps to that part's end, so a stage that reports too few steps
// still leaves its parent exactly where the next stage begins.
// Steps may come from worker threads; the listener runs outside the lock.
class QV_EXPORT CKvoProgress : public IKvoProgress {
public:
    using Listener = std::function<void(double position, const QString& caption)>;

    CKvoProgress() = default;

    void pushRange(double share) override;
    void popRange() override;
    void setText(const QString& caption) override;
    void step(double fraction) override;
    double getPosition() const override;
    QString getText() const override;

    // Called after every change of position or caption.
    void setListener(Listener listener);
    // Back to position 0 with no open range and no caption.
    void reset();
    // Number of ranges open below the whole operation.
    int depth() const;

private:
    struct Range {
        double start;
        double end;
    };
    Range currentLocked() const;
    void notify(double position, const QString& caption) const;

    mutable std::mutex m_mutex;
    std::vector<Range> m_ranges;
    double m_position = 0;
    QString m_caption;
    Listener m_listener;
};

} // namespace kvo
