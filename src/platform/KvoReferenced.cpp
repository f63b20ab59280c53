#include "scene/KvoReferenced.h"

namespace kvo {

void KvoReferenced::destroy() const
{
    delete this;
}

} // namespace kvo
