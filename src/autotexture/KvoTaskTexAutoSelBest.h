#pragma once

// The automatic best-texture session: a side dialog whose Apply gives every
// triangle of the model the photograph that sees it best, OK keeps the result
// and Cancel puts the texture meshes back as they were before the first Apply.

#include "tasks/KvoQvTask.h"

namespace kvo {

class QV_EXPORT IKvoQvTaskTexAutoSelBest : public IKvoQvTask {};

QV_EXPORT ref_ptr<IKvoQvTaskTexAutoSelBest> newQvTaskTexAutoSelBest();

// Ends the current task and starts the session. 0 when it started; -1
// without a viewer manager or when the current task refuses to end;
// kvoNoProject (-8170) without a project.
QV_EXPORT long cmdOnTexAutoSelBest();

} // namespace kvo
