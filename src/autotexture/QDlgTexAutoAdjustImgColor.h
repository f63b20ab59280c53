#pragma once

#include "autotexture/KvoColorAdjust.h"
#include "autotexture/KvoTexSessionUi.h"

class QPlainTextEdit;

namespace kvo {

// "Automatic Adjust Image Color": Apply evens out the colours of the mapped
// photographs (again from the state before the first Apply, so that a second
// Apply gives what the first did), OK keeps the result, Cancel goes back to
// the state the dialog began with.
class QV_EXPORT QDlgTexAutoAdjustImgColor : public QDlgTexSession {
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

private:
    QPlainTextEdit* m_report;
    bool m_hasResult = false;
    long m_lastResult = 0;
    KvoColorAdjustReport m_lastReport;
};

} // namespace kvo
