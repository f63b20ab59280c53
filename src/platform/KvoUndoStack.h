#pragma once

#include <vector>

#include "scene/KvoStore.h"

namespace kvo {

// A bounded undo stack. Pushing drops whatever could have been redone.
class QV_EXPORT KvoUndoStack {
public:
    explicit KvoUndoStack(size_t limit = 50) : m_limit(limit) {}

    void push(const ref_ptr<IKvoUndo>& item);
    // False when there is nothing to undo, or the item could not be undone
    // (it is dropped then, since the scene no longer matches it).
    bool undo();
    bool redo();
    bool canUndo() const { return m_pos > 0; }
    bool canRedo() const { return m_pos < m_items.size(); }
    QString undoName() const { return canUndo() ? m_items[m_pos - 1]->getName() : QString(); }
    QString redoName() const { return canRedo() ? m_items[m_pos]->getName() : QString(); }
    void clear();
    size_t size() const { return m_items.size(); }

private:
    std::vector<ref_ptr<IKvoUndo>> m_items;
    size_t m_pos = 0; // items below m_pos are done
    size_t m_limit;
};

} // namespace kvo
