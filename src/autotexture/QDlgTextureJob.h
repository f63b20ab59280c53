#pragma once

#include <QDialog>

#include <memory>

#include "autotexture/KvoTexturePipeline.h"

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;

namespace kvo {

class KvoCameraFileRows;

// "Texture the Model": where the cameras come from (the photographs' own, or
// camera files to import first), the textured model to write, and the size
// of its atlases.
class QV_EXPORT QDlgTextureJob : public QDialog {
    Q_OBJECT
public:
    explicit QDlgTextureJob(QWidget* parent = nullptr);
    ~QDlgTextureJob() override;

    // 0: the cameras the photographs have; 1 + KvoCameraSource::Kind: import them from files.
    void setCameraChoice(int choice);
    int cameraChoice() const;
    void setCameraPath(const QString& path);
    void setListFile(const QString& path);
    void setOutput(const QString& path);
    void setAtlas(long size);
    void setColour(KvoJobColour colour);
    void setOverwrite(bool on);
    // The job the form describes.
    KvoTextureJob job() const;
    QPushButton* okButton() const { return m_ok; }

public slots:
    // OK: accepts when the form is complete, else says what is missing and stays open.
    void accept() override;
    void browseOutput();

private:
    void choiceChanged();

    QComboBox* m_cameras;
    std::unique_ptr<KvoCameraFileRows> m_files;
    QLineEdit* m_output;
    QComboBox* m_atlas;
    QComboBox* m_colour;
    QCheckBox* m_overwrite;
    QPushButton* m_ok;
};

// Texture > Texture the Model...: the dialog through the presenter, then the
// whole job on the open project with a progress dialog whose Cancel stops it
// (the texture meshes are then as they were), and its summary as a message.
// 0 done, -1 not started, or the job's code.
QV_EXPORT long cmdTextureModel();

} // namespace kvo
