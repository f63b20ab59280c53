#include "platform/KvoUndoStack.h"

namespace kvo {

void KvoUndoStack::push(const ref_ptr<IKvoUndo>& item)
{
    if (!item)
        return;
    m_items.resize(m_pos);
    m_items.push_back(item);
    if (m_limit > 0 && m_items.size() > m_limit)
        m_items.erase(m_items.begin(), m_items.begin() + long(m_items.size() - m_limit));
    m_pos = m_items.size();
}

bool KvoUndoStack::undo()
{
    if (!canUndo())
        return false;
    ref_ptr<IKvoUndo> item = m_items[m_pos - 1];
    if (!item->undo()) {
        // The scene moved on: this step and all before it no longer apply.
        m_items.erase(m_items.begin(), m_items.begin() + long(m_pos));
        m_pos = 0;
        return false;
    }
    --m_pos;
    return true;
}

bool KvoUndoStack::redo()
{
    if (!canRedo())
        return false;
    ref_ptr<IKvoUndo> item = m_items[m_pos];
    if (!item->redo()) {
        m_items.resize(m_pos);
        return false;
    }
    ++m_pos;
    return true;
}

void KvoUndoStack::clear()
{
    m_items.clear();
    m_pos = 0;
}

} // namespace kvo
