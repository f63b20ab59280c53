#pragma once

#include <QWidget>

#include <vector>

#include "scene/KvoRecords.h"

class QCheckBox;
class QLabel;
class QRadioButton;
class QSlider;
class QTableWidget;

namespace kvo {

// "Control Point Mapping": the control points of the active image with their
// errors, Compute, Mapping (by plane, by the camera of the points, or by the
// 11 DLT parameters), OK and Cancel.
class QV_EXPORT QDlgTextureMapping : public QWidget {
    Q_OBJECT
public:
    enum Type { Plain, Projection, Optimized };

    explicit QDlgTextureMapping(QWidget* parent = nullptr);
    long imageId() const { return m_imageId; }
    long computeState() const { return m_computeState; }
    void setType(Type type);
    Type type() const;
    void setVertexSnap(bool on);
    bool isVertexSnap() const;
    void setRemoveErrorPoints(bool on);
    QTableWidget* table() const { return m_table; }

    // After a new pair: the table again, and the errors for the checked type.
    void refreshPoints();
    // "Compute": 0, or -1 with the reason shown.
    long onBtnComputer();
    // "Mapping": 0, or -1 / a code with the message shown.
    long onTexmapSum();
    void onBtnOK();
    void onBtnCancel();
    void deleteSelectedPoints();
    // 0 normal, 1 the 3-D view looks through the image's camera with the
    // photograph over the model, 2 the photograph hidden.
    long previewState() const { return m_previewState; }
    const ZebQVVCParam& camera() const { return m_camera; }
    const zebUI::_ZebVCMapParam_& previewFrame() const { return m_previewFrame; }
    // Selects the table rows of these control points.
    void selectPoints(const std::vector<int>& rows);
    void setPreviewState(long state);

signals:
    void finished();

private:
    void reloadTable();
    void showErrors(bool haveErrors);
    void onTypeChanged();

    long m_imageId = -1;
    long m_computeState = 0;
    double m_L[11] = {0};
    ZebQVVCParam m_camera;
    zebUI::_ZebVCMapParam_ m_frame, m_previewFrame;
    QRadioButton *m_plain, *m_projection, *m_optimized;
    QTableWidget* m_table;
    QLabel* m_coords[5];
    QCheckBox *m_removeErrors, *m_snap, *m_onlyUpdate, *m_selectedOnly, *m_tiled;
    QSlider* m_fov;
    QLabel* m_fovText;
    long m_previewState = 0;
    XPnt3d m_savedEye, m_savedCentre, m_savedUp;
    double m_savedFov = 30;
    // What Cancel puts back besides the texture-edit session: the image's
    // stored DLT parameters (absent when empty).
    QByteArray m_savedDltBlob;
};

} // namespace kvo
