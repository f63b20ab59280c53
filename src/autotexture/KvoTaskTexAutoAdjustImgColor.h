#pragma once

// The colour adjustment session: a side dialog whose Apply evens out the
// colours of the photographs that texture the model, OK keeps the result and
// Cancel puts the pictures and texture meshes back as they were before the
// first Apply.

#include "tasks/KvoQvTask.h"

namespace kvo {

class QV_EXPORT IKvoTaskTexAutoAdjustImgColor : public IKvoQvTask {};

QV_EXPORT ref_ptr<IKvoTaskTexAutoAdjustImgColor> newQvTaskTexAutoAdjustImgColor();

// Ends the current task and starts the session. 0 when it started; -1
// without a viewer manager or when the current task refuses to end;
// kvoNoProject (-8170) without a project.
QV_EXPORT long cmdOnTexAutoAdjustImgColor();

} // namespace kvo
