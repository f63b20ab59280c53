#pragma once

#include <QDialog>

#include "scene/KvoExport.h"

class QLineEdit;
class QLabel;
class QPushButton;

namespace kvo {

// Asks where a new project goes: a folder and a name. The project file is
// folder/name.qvj; OK stays disabled until both make a usable path.
class QV_EXPORT QDlgProjectNew : public QDialog {
    Q_OBJECT
public:
    explicit QDlgProjectNew(const QString& path, QWidget* parent = nullptr);
    // The chosen project file path.
    QString projectPath() const;
    void setFolder(const QString& folder);
    void setProjectName(const QString& name);
    QString problem() const;

private slots:
    void browse();
    void validate();

private:
    QLineEdit* m_folder;
    QLineEdit* m_name;
    QLabel* m_message;
    QPushButton* m_ok;
};

} // namespace kvo
