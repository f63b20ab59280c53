#include "autotexture/KvoTaskTexAutoSelBest.h"

#include "autotexture/QDlgTxtAutoSelBest.h"
#include "commands/KvoCommands.h"

namespace kvo {

namespace {

class CKvoTaskTexAutoSelBest : public CQvSideDialogTask<IKvoQvTaskTexAutoSelBest, QDlgTxtAutoSelBest> {
public:
    CKvoTaskTexAutoSelBest() { name = "TexAutoSelBest"; }
};

} // namespace

ref_ptr<IKvoQvTaskTexAutoSelBest> newQvTaskTexAutoSelBest()
{
    return ref_ptr<IKvoQvTaskTexAutoSelBest>(new CKvoTaskTexAutoSelBest());
}

long cmdOnTexAutoSelBest()
{
    ref_ptr<IKvoQvTaskTexAutoSelBest> task = newQvTaskTexAutoSelBest();
    return startProjectTask(task.get());
}

} // namespace kvo
