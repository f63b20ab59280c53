#include "platform/KvoProgressImpl.h"

#include <algorithm>

namespace kvo {

CKvoProgress::Range CKvoProgress::currentLocked() const
{
    return m_ranges.empty() ? Range{0.0, 1.0} : m_ranges.back();
}

void CKvoProgress::pushRange(double share)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Range parent = currentLocked();
    share = std::clamp(share, 0.0, 1.0);
    // A child cannot reach past its parent, whatever shares the caller adds up.
    double end = std::min(parent.end, m_position + share * (parent.end - parent.start));
    m_ranges.push_back(Range{m_position, std::max(m_position, end)});
}

void CKvoProgress::popRange()
{
    double position;
    QString caption;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_ranges.empty())
            return;
        m_position = m_ranges.back().end;
        m_ranges.pop_back();
        position = m_position;
        caption = m_caption;
    }
    notify(position, caption);
}

void CKvoProgress::setText(const QString& caption)
{
    double position;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_caption = caption;
        position = m_position;
    }
    notify(position, caption);
}

void CKvoProgress::step(double fraction)
{
    double position;
    QString caption;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        Range r = currentLocked();
        // Progress never runs backwards, nor out of the stage that reports it.
        if (fraction > 0)
            m_position = std::min(r.end, m_position + fraction * (r.end - r.start));
        position = m_position;
        caption = m_caption;
    }
    notify(position, caption);
}

double CKvoProgress::getPosition() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_position;
}

QString CKvoProgress::getText() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_caption;
}

void CKvoProgress::setListener(Listener listener)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_listener = std::move(listener);
}

void CKvoProgress::reset()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_ranges.clear();
        m_position = 0;
        m_caption.clear();
    }
    notify(0.0, QString());
}

int CKvoProgress::depth() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return int(m_ranges.size());
}

void CKvoProgress::notify(double position, const QString& caption) const
{
    Listener listener;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        listener = m_listener;
    }
    if (listener)
        listener(position, caption);
}

} // namespace kvo
