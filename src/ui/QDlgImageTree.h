#pragma once

#include <QDialog>

#include "scene/KvoExport.h"

class QTreeWidget;

namespace kvo {

// Lists the project's images with their size and mapping; the chosen id is
// selectedId() after accept.
class QV_EXPORT QDlgImageTree : public QDialog {
    Q_OBJECT
public:
    explicit QDlgImageTree(QWidget* parent = nullptr);
    long selectedId() const;
    // Selects an image by id; false when the list has no such image.
    bool selectId(long id);
    int imageCount() const;

private:
    QTreeWidget* m_tree;
};

// About the program (mode 0) or its keyboard and mouse shortcuts (mode 1).
class QV_EXPORT QDlgAbout : public QDialog {
    Q_OBJECT
public:
    QDlgAbout(QWidget* parent, int mode);
    int mode() const { return m_mode; }

private:
    int m_mode;
};

} // namespace kvo
