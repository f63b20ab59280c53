#include "mapping/KvoCtrlPointFile.h"

#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>

#include "commands/KvoCommands.h"
#include "scene/KvoPresenter.h"
#include "scene/KvoStore.h"

namespace kvo {

namespace {

QString tr(const char* s)
{
    return QCoreApplication::translate("CtrlPointFile", s);
}

ref_ptr<IKvoImageInfo> record(long imageId)
{
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    ref_ptr<IKvoImageInfo> info;
    if (getMM()->getProject(project) && project->getImageDb(db))
        db->getImageInfo(info, imageId);
    return info;
}

const char kHeader[] = "    U          V          X           Y            Z   \n";

} // namespace

long exportCtrlPointFile(long imageId, const QString& path, QString& message)
{
    ref_ptr<IKvoImageInfo> info = record(imageId);
    if (!info) {
        message = tr("Please active a mesh!");
        return -1;
    }
    const long n = std::min(info->getCtrlImagePntCount(), info->getCtrlWorldPntCount());
    if (n <= 0) {
        message = tr("There is no control points!");
        return -1;
    }
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        message = tr("Cannot open file!");
        return -1;
    }
    QByteArray out(kHeader);
    for (long i = 0; i < n; ++i) {
        XPnt2d uv;
        XPnt3d w;
        info->getCtrlImagePnt(uv, i);
        info->getCtrlWorldPnt(w, i);
        // "%f" in the C locale, whatever the user's.
        out += QString::asprintf("%f   %f   %f   %f   %f\n", uv.x, uv.y, w.x, w.y, w.z).toLatin1();
    }
    if (f.write(out) != out.size()) {
        message = tr("Cannot open file!");
        return -1;
    }
    message = tr("Succeed to export %1 control points!").arg(n);
    return 0;
}

long importCtrlPointFile(long imageId, const QString& path, QString& message, long* skippedOut)
{
    ref_ptr<IKvoImageInfo> info = record(imageId);
    if (!info) {
        message = tr("Please active a mesh!");
        return -1;
    }
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        message = tr("Cannot open file!");
        return -1;
    }
    const QList<QByteArray> lines = f.readAll().split('\n');
    long added = 0, skipped = 0;
    // The first line is the header, whatever it holds. Files from other
    // systems end lines with CR LF: the CR is a separator like the others.
    for (int k = 1; k < lines.size(); ++k) {
        QByteArray line = lines[k];
        line.replace('\r', ' ');
        if (line.trimmed().isEmpty())
            continue;
        const QList<QByteArray> tokens = line.split(' ');
        QList<double> numbers;
        for (QByteArray token : tokens)
            for (const QByteArray& part : token.replace('\t', ',').split(','))
                if (!part.isEmpty())
                    numbers << part.toDouble(); // text reads as 0, as atof gives it
        if (numbers.size() != 5 || numbers[0] < 0 || numbers[0] > 1 || numbers[1] < 0 || numbers[1] > 1) {
            ++skipped;
            continue;
        }
        info->addCtrlImagePnt(XPnt2d(numbers[0], numbers[1]));
        info->addCtrlWorldPnt(XPnt3d(numbers[2], numbers[3], numbers[4]));
        ++added;
    }
    if (added)
        getMM()->setDirty(true);
    if (skippedOut)
        *skippedOut = skipped;
    message = tr("Succeed to add %1 control points!").arg(added);
    if (skipped)
        message += "\n" + tr("%1 lines were skipped: not five numbers, or U or V outside 0 to 1.").arg(skipped);
    return 0;
}

long exportCtrlPointsQt(long imageId)
{
    const QString title = tr("Export Control Points");
    if (!record(imageId)) {
        msgWarningTitled(title, tr("Please active a mesh!"));
        return -1;
    }
    const QString path =
        getPresenter()->getSaveFileName(nullptr, tr("Control Points File"), QString(), tr("Text File(*.txt *.TXT)"));
    if (path.isEmpty())
        return -1;
    QString message;
    const long rc = exportCtrlPointFile(imageId, path, message);
    if (rc == 0)
        msgSucceedQt(message);
    else
        msgWarningTitled(title, message);
    return rc;
}

long importCtrlPointsQt(long imageId)
{
    const QString title = tr("Import Control Points");
    if (!record(imageId)) {
        msgWarningTitled(title, tr("Please active a mesh!"));
        return -1;
    }
    const QString path =
        getPresenter()->getOpenFileName(nullptr, tr("Control Points File"), QString(), tr("Text File(*.txt *.TXT)"));
    if (path.isEmpty())
        return -1;
    QString message;
    const long rc = importCtrlPointFile(imageId, path, message);
    if (rc == 0)
        msgSucceedQt(message);
    else
        msgWarningTitled(title, message);
    return rc;
}

} // namespace kvo
