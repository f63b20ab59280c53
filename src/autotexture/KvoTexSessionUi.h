#pragma once

// What the side dialogs of the automatic texturing share: they work inside a
// texture-edit session, show their result in the views and panels, and end
// their task from their OK and Cancel buttons.

#include "scene/KvoProgress.h"

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

} // namespace kvo
