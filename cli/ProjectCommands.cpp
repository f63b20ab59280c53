// Sub-commands that create, fill and show projects.

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "CliSupport.h"
#include "platform/KvoProjectReport.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace qvcli {
namespace {

int cmdNew(const QStringList& args)
{
    if (args.size() != 1)
        return 2;
    IKvoMM* mm = getMM();
    if (mm->newProject(args[0]) != kvoOk) {
        err(mm->getLastError());
        return 1;
    }
    ref_ptr<IKvoProject> project;
    out(QString("Created %1").arg(mm->getProject(project)->getFilePath()));
    return 0;
}

int cmdAddImages(const QStringList& args)
{
    if (args.size() < 2)
        return 2;
    if (int rc = openOrFail(args[0]))
        return rc;
    ref_ptr<IKvoImageDb> db = imageDb();
    TerminalProgress progress;
    progress.setText("Adding images");
    int failures = 0;
    const int count = args.size() - 1;
    for (int i = 1; i < args.size(); ++i) {
        long id = -1;
        const long rc = db->addImage(args[i], id);
        progress.step(1.0 / count);
        if (rc != kvoOk) {
            progress.finish();
            err(QString("%1: not added (%2)")
                    .arg(args[i], QFileInfo::exists(args[i]) ? "not a readable image" : "no such file"));
            ++failures;
            continue;
        }
        progress.finish();
        out(QString("Added %1 as image %2").arg(args[i]).arg(id));
    }
    // Whatever was added is kept even when some files were refused.
    if (failures < count) {
        if (int rc = saveOrFail())
            return rc;
    }
    return failures ? 1 : 0;
}

int cmdInfo(const QStringList& args)
{
    if (args.size() != 1)
        return 2;
    if (int rc = openOrFail(args[0]))
        return rc;
    out(describeProject(*getMM()));
    return 0;
}

const char* kInfoHelp = "prints what a project holds: model, meshes, images and their mappings";

Register rNew("new", {"new PROJECT.qvj", "creates an empty project (an existing file is never replaced)", cmdNew});
Register rAdd("add-images",
              {"add-images PROJECT.qvj IMAGE...",
               "copies photographs into a project and saves it; files that cannot be read are reported and skipped",
               cmdAddImages});
Register rInfo("info", {"info PROJECT.qvj", kInfoHelp, cmdInfo});
Register rOpen("open", {"open PROJECT.qvj", kInfoHelp, cmdInfo});

} // namespace
} // namespace qvcli
