#include "autotexture/KvoTaskTexAutoAdjustImgColor.h"

#include "autotexture/QDlgTexAutoAdjustImgColor.h"
#include "commands/KvoCommands.h"

namespace kvo {

namespace {

class CKvoTaskTexAutoAdjustImgColor
    : public CQvSideDialogTask<IKvoTaskTexAutoAdjustImgColor, QDlgTexAutoAdjustImgColor> {
public:
    CKvoTaskTexAutoAdjustImgColor() { name = "TexAutoAdjustImgColor"; }

protected:
    void beforeDialogGoes() override
    {
        // Whatever ends the task keeps what the last Apply did; only Cancel
        // goes back, and it has done so before it ends the task.
        IKvoMM* mm = getMM();
        if (mm->isTexEditOpen()) {
            mm->commitTexEdit();
            mm->closeTexEdit();
        }
    }
};

} // namespace

ref_ptr<IKvoTaskTexAutoAdjustImgColor> newQvTaskTexAutoAdjustImgColor()
{
    return ref_ptr<IKvoTaskTexAutoAdjustImgColor>(new CKvoTaskTexAutoAdjustImgColor());
}

long cmdOnTexAutoAdjustImgColor()
{
    ref_ptr<IKvoTaskTexAutoAdjustImgColor> task = newQvTaskTexAutoAdjustImgColor();
    return startProjectTask(task.get());
}

} // namespace kvo
