#pragma once

#include "scene/KvoStore.h"

namespace kvo {

// Application-wide options kept in the user's settings (QSettings), so they
// survive restarts and are shared by every project.
QV_EXPORT ref_ptr<IKvoAppOptions> newKvoAppOptions();

} // namespace kvo
