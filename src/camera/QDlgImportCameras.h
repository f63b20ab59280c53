#pragma once

#include <QDialog>

#include "camera/KvoCameraImport.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;

namespace kvo {

// "Import Cameras": the kind of camera files and where they are.
class QV_EXPORT QDlgImportCameras : public QDialog {
    Q_OBJECT
public:
    explicit QDlgImportCameras(QWidget* parent = nullptr);

    void setKind(KvoCameraSource::Kind kind);
    KvoCameraSource::Kind kind() const;
    void setPath(const QString& path);
    void setListFile(const QString& path);
    KvoCameraSource source() const;
    QPushButton* okButton() const { return m_ok; }

public slots:
    // OK: accepts when the files are there, else says what is missing and stays open.
    void accept() override;
    void browsePath();
    void browseList();

private:
    void kindChanged();

    QComboBox* m_kind;
    QLabel* m_pathLabel;
    QLineEdit* m_path;
    QLabel* m_listLabel;
    QLineEdit* m_list;
    QPushButton* m_listButton;
    QPushButton* m_ok;
};

// Shared by the forms that ask where cameras are. A bundle file (setting
// listGuess to the image list found beside it or one folder up, when there is
// one) or a folder, through the presenter; empty when the user gave up.
QV_EXPORT QString browseCameraSource(QWidget* parent, bool bundler, const QString& current, QString* listGuess);
QV_EXPORT QString browseImageList(QWidget* parent, const QString& current);
// What is missing for the source to be read, for a message; empty when nothing is.
QV_EXPORT QString cameraSourceProblem(const KvoCameraSource& source);

} // namespace kvo
