#pragma once

#include <QDialog>

#include "autotexture/KvoColorAdjust.h"

class QPlainTextEdit;
class QPushButton;

namespace kvo {

// "Automatic Adjust Image Color": Apply evens out the colours of the mapped
// photographs (again from the state before the first Apply, so that a second
// Apply gives what the first did), OK keeps the result, Cancel goes back to
// the state the dialog began with.
class QV_EXPORT QDlgTexAutoAdjustImgColor : public QDialog {
    Q_OBJECT
public:
    explicit QDlgTexAutoAdjustImgColor(QWidget* parent = nullptr);

    bool hasResult() const { return m_hasResult; }
    // What the last Apply answered and reported (0 and empty before any).
    long lastResult() const { return m_lastResult; }
    const KvoColorAdjustReport& lastReport() const { return m_lastReport; }
    QStringList reportLines() const;

public slots:
    void clickedApply();
    void clickedOK();
    void clickedCancel();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    QPlainTextEdit* m_report;
    QPushButton *m_ok, *m_cancel, *m_apply;
    bool m_hasResult = false;
    long m_lastResult = 0;
    KvoColorAdjustReport m_lastReport;
};

} // namespace kvo
