// Sub-commands that bring models and images into a project.

#include <QFileInfo>

#include "CliSupport.h"
#include "commands/KvoCommands.h"
#include "modelio/KvoImportCommands.h"
#include "modelio/QDlgImportMesh.h"
#include "platform/ZebViewerManImpl.h"
#include "scene/KvoPresenter.h"
#include "ui/QDlgImageTree.h"

using namespace kvo;

namespace qvcli {
namespace {

// The viewer manager of one headless command, with the progress bar; the
// presenter's answers come from flags and are dropped afterwards.
class Headless {
public:
    Headless()
    {
        m_vm = installViewerMan();
        m_vm->setProgress(&m_progress);
    }
    ~Headless()
    {
        m_progress.finish();
        m_vm->setProgress(nullptr);
        zebUI::setVM(nullptr);
        presenter().buttonAnswers.clear();
        presenter().dialogScript = nullptr;
    }
    KvoRecordingPresenter& presenter() { return *cliPresenter(); }
    void finishProgress() { m_progress.finish(); }

private:
    TerminalProgress m_progress;
    ref_ptr<CZebViewerMan> m_vm;
};

int cmdImportObj(const QStringList& args)
{
    QStringList plain;
    QString repair = "no";
    QString group;
    bool groupGiven = false;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == "--repair" && i + 1 < args.size()) {
            repair = args[++i].toLower();
            if (repair != "yes" && repair != "no")
                return 2;
        } else if (args[i] == "--image-group" && i + 1 < args.size()) {
            group = args[++i];
            groupGiven = true;
        } else if (args[i].startsWith("--")) {
            return 2;
        } else {
            plain << args[i];
        }
    }
    if (plain.size() != 2)
        return 2;
    if (int rc = openOrFail(plain[0]))
        return rc;
    IKvoMM* mm = getMM();
    long groupId = -1;
    if (groupGiven) {
        groupId = mm->getImageIdByName(group);
        if (groupId < 0) {
            err(QString("the project has no image named %1 to list the new images under").arg(group));
            return 1;
        }
    }

    Headless headless;
    KvoRecordingPresenter& p = headless.presenter();
    // The one question of the import is whether to repair; warnings take the default.
    p.buttonAnswers << (repair == "yes" ? QMessageBox::Yes : QMessageBox::No);
    p.dialogScript = [groupId](QDialog* dialog) {
        auto* tree = qobject_cast<QDlgImageTree*>(dialog);
        if (!tree || groupId < 0)
            return int(QDialog::Rejected);
        return tree->selectId(groupId) ? int(QDialog::Accepted) : int(QDialog::Rejected);
    };
    const long rc = cmdOnFileAddKvomodel(plain[1]);
    headless.finishProgress();
    const KvoObjImportReport& r = lastObjImportReport();
    if (rc == kvoNoProject) {
        err("no project is open");
        return 1;
    }
    if (rc == kvoModelExists) {
        err(QString("%1 already holds a model; nothing was imported").arg(plain[0]));
        return 1;
    }
    if (rc != 1) {
        // The presenter has written the reason; a failure without one still gets a line.
        if (r.error.isEmpty())
            err(QString("%1 was not imported").arg(plain[1]));
        return 1;
    }
    out(QString("Imported %1: %2 vertices, %3 triangles in %4 bare mesh(es), %5 group(s)")
            .arg(QFileInfo(plain[1]).fileName())
            .arg(r.vertices)
            .arg(r.triangles)
            .arg(r.bareMeshes)
            .arg(r.groups));
    if (!r.mtlName.isEmpty())
        out(QString("Material file %1%2").arg(r.mtlName, r.mtlMissing ? " was not found" : ""));
    for (const QString& image : r.images)
        out(QString("Image %1 with its texture mesh").arg(image));
    for (const QString& missing : r.missingPictures)
        out(QString("Picture not found: %1").arg(missing));
    for (const QString& failed : r.failedPictures)
        out(QString("Picture not used: %1").arg(failed));
    if (r.refusedFaces > 0) {
        if (r.repaired)
            out(QString("The mesh check refused %1 face(s); repaired, %2 face(s) could not be kept")
                    .arg(r.refusedFaces)
                    .arg(r.removedFaces));
        else
            out(QString("The mesh check refused %1 face(s); not repaired (--repair yes repairs them)")
                    .arg(r.refusedFaces));
    }
    if (groupGiven)
        out(QString("New images are listed under %1").arg(group));
    out(QString("Saved %1").arg(plain[0]));
    return 0;
}

int cmdImportProject(const QStringList& args)
{
    QStringList plain;
    QString which = "all";
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == "--ids" && i + 1 < args.size())
            which = args[++i];
        else if (args[i].startsWith("--"))
            return 2;
        else
            plain << args[i];
    }
    if (plain.size() != 2)
        return 2;
    QList<long> ids;
    if (which != "all")
        for (const QString& s : which.split(',', Qt::SkipEmptyParts)) {
            bool ok = false;
            const long id = s.toLong(&ok);
            if (!ok)
                return 2;
            ids << id;
        }
    if (int rc = openOrFail(plain[0]))
        return rc;
    Headless headless;
    std::vector<long> sourceIds, newIds;
    bool any = false;
    headless.presenter().dialogScript = [&](QDialog* dialog) {
        auto* d = qobject_cast<QDlgImportMesh*>(dialog);
        if (!d)
            return int(QDialog::Rejected);
        for (int r = 0; r < d->rowCount(); ++r)
            if (which == "all" || ids.contains(d->rowImageId(r))) {
                d->setRowChecked(r, true);
                sourceIds.push_back(d->rowImageId(r));
                any = true;
            }
        if (!d->isSameModel())
            out(d->messageText());
        if (!d->importChecked())
            return int(QDialog::Rejected);
        newIds = d->importedIds();
        return int(QDialog::Accepted);
    };
    if (cmdImportMesh(plain[1]) != 0) {
        headless.finishProgress();
        // The reason is on stderr already.
        return 1;
    }
    headless.finishProgress();
    if (!any) {
        err("no image of that project was chosen");
        return 1;
    }
    int failures = 0;
    for (size_t i = 0; i < sourceIds.size() && i < newIds.size(); ++i) {
        ref_ptr<IKvoMesh> mesh;
        getMM()->getTexMeshOfImage(mesh, newIds[i]);
        if (newIds[i] < 0) {
            ++failures;
            err(QString("image %1 was not imported").arg(sourceIds[i]));
        } else {
            out(QString("Image %1 imported as image %2%3")
                    .arg(sourceIds[i])
                    .arg(newIds[i])
                    .arg(mesh ? QString(" with its texture mesh") : QString()));
        }
    }
    if (int rc = saveOrFail())
        return rc;
    return failures ? 1 : 0;
}

Register rImportObj("import-obj",
                    {"import-obj PROJECT.qvj FILE.obj [--repair yes|no] [--image-group NAME]",
                     "imports a model from an OBJ file (with its MTL file and pictures) into a project that has no "
                     "model yet, and saves it; --repair answers the question about faces the mesh cannot hold "
                     "(default no), --image-group names the image the new images are listed under",
                     cmdImportObj});
Register rImportProject("import-project",
                        {"import-project PROJECT.qvj OTHER.qvj [--ids all|ID,ID...]",
                         "imports images of another project, with their texture meshes when both projects hold "
                         "the same model, and saves",
                         cmdImportProject});

} // namespace
} // namespace qvcli
