#include "scene/ZebViewerMan.h"

namespace zebUI {

namespace {
kvo::ref_ptr<kvo::IZebViewerMan>& slot()
{
    static kvo::ref_ptr<kvo::IZebViewerMan> vm;
    return vm;
}
} // namespace

kvo::ref_ptr<kvo::IZebViewerMan> getVM()
{
    return slot();
}
void setVM(const kvo::ref_ptr<kvo::IZebViewerMan>& vm)
{
    slot() = vm;
}

} // namespace zebUI
