#pragma once

#include "autotexture/KvoBestImage.h"
#include "autotexture/KvoTexSessionUi.h"

class QGroupBox;
class QPlainTextEdit;
class QSlider;
class QSpinBox;

namespace kvo {

// "Automatic Select Best Texture": Apply, OK and Cancel over the texture
// meshes, with a texture-edit session as the way back. The panel of the
// group pipeline ("Auto-Select Best Texture", fragment size, Undo, Redo) is
// built but stays hidden: Apply always runs the whole-model selection.
class QV_EXPORT QDlgTxtAutoSelBest : public QDlgTexSession {
    Q_OBJECT
public:
    explicit QDlgTxtAutoSelBest(QWidget* parent = nullptr);

    long getSelectMode() const { return m_selectMode; }
    bool hasResult() const { return m_hasResult; }
    // What the last Apply's selection answered and reported (0 and empty before any).
    long lastResult() const { return m_lastResult; }
    const KvoBestImageReport& lastReport() const { return m_lastReport; }
    QStringList tipLines() const;

public slots:
    void clickedApplyBestTexture();
    void buttonClicked();

private:
    QPlainTextEdit* m_tips;
    QGroupBox* m_groupPanel;
    QSlider* m_fragmentSlider;
    QSpinBox* m_fragmentSpin;
    QPushButton *m_min, *m_max, *m_undo, *m_redo;
    bool m_hasResult = false;
    long m_selectMode = 1;
    long m_lastResult = 0;
    KvoBestImageReport m_lastReport;
};

} // namespace kvo
