#pragma once

// What the side dialogs of the automatic texturing share: they work inside a
// texture-edit session, show their result in the views and panels, and end
// their task from their OK and Cancel buttons.

#include <QDialog>

#include "scene/KvoProgress.h"

class QBoxLayout;
class QPushButton;

namespace kvo {

// The viewer manager's progress, or none without one.
QV_EXPORT IKvoProgress* texSessionProgress();

// The panels and views follow the texture meshes after they changed.
QV_EXPORT void refreshTexturedScene();

// Puts the texture meshes and their pictures back as they were when the open
// session began ("Recovering..."), and closes it; nothing without a session.
QV_EXPORT void recoverTexEditSession();

// Ends the current task and closes the task panel; clearHost also empties
// the dialog host at once (a Cancel does not wait for the task's end).
QV_EXPORT void endTaskAndClosePanel(bool clearHost);

// The frame of those dialogs: Apply, OK and Cancel under their own widgets.
// OK keeps what Apply did and ends the task; Cancel goes back to the state
// the session began with. Escape does nothing, since in the tool dock it
// would only hide the dialog and leave the task running with no way to end
// it; the host closing the dialog as the task ends is no Cancel.
class QV_EXPORT QDlgTexSession : public QDialog {
public:
    void clickedOK();
    void clickedCancel();

protected:
    QDlgTexSession(QWidget* parent, const QString& objectName, const QString& title);
    // The row of buttons at the end of layout; the dialog connects Apply.
    void addSessionButtons(QBoxLayout* layout);
    void keyPressEvent(QKeyEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

    QPushButton *m_ok = nullptr, *m_cancel = nullptr, *m_apply = nullptr;
};

} // namespace kvo
