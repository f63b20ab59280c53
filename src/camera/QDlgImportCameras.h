#pragma once

#include <QDialog>

#include <memory>

#include "camera/KvoCameraImport.h"

class QComboBox;
class QGridLayout;
class QLabel;
class QLineEdit;
class QPushButton;

namespace kvo {

// The rows of a form that say where camera files are: the folder or bundle
// file, and Bundler's image list, each with its Browse button. The widgets
// belong to the form.
class QV_EXPORT KvoCameraFileRows {
public:
    KvoCameraFileRows(QWidget* form, QGridLayout* grid, int firstRow);
    // The labels for files of this kind; only the live rows take input.
    void setKind(KvoCameraSource::Kind kind, bool live = true);
    void setPath(const QString& path);
    void setListFile(const QString& path);
    KvoCameraSource source() const;

private:
    void browsePath();
    void browseList();

    QWidget* m_form;
    KvoCameraSource::Kind m_kind = KvoCameraSource::Colmap;
    QLabel* m_pathLabel;
    QLineEdit* m_path;
    QPushButton* m_pathButton;
    QLabel* m_listLabel;
    QLineEdit* m_list;
    QPushButton* m_listButton;
};

// "Import Cameras": the kind of camera files and where they are.
class QV_EXPORT QDlgImportCameras : public QDialog {
    Q_OBJECT
public:
    explicit QDlgImportCameras(QWidget* parent = nullptr);
    ~QDlgImportCameras() override;

    void setKind(KvoCameraSource::Kind kind);
    KvoCameraSource::Kind kind() const;
    void setPath(const QString& path);
    void setListFile(const QString& path);
    KvoCameraSource source() const;
    QPushButton* okButton() const { return m_ok; }

public slots:
    // OK: accepts when the files are there, else says what is missing and stays open.
    void accept() override;

private:
    QComboBox* m_kind;
    std::unique_ptr<KvoCameraFileRows> m_files;
    QPushButton* m_ok;
};

// What is missing for the source to be read, for a message; empty when nothing is.
QV_EXPORT QString cameraSourceProblem(const KvoCameraSource& source);

} // namespace kvo
