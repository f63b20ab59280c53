#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStringList>

#include <clocale>
#include <cstdio>
#include <functional>
#include <map>

#include "platform/KvoProjectReport.h"
#include "platform/KvoSampleScene.h"
#include "scene/KvoFile.h"
#include "scene/KvoStore.h"

using namespace kvo;

namespace {

void out(const QString& s)
{
    std::fputs(qPrintable(s + "\n"), stdout);
}
void err(const QString& s)
{
    std::fputs(qPrintable("quovara-cli: " + s + "\n"), stderr);
}

struct Command {
    QString usage;
    QString help;
    std::function<int(const QStringList&)> run;
};

int cmdNew(const QStringList& args)
{
    if (args.size() != 1) {
        err("usage: new PROJECT.qvj");
        return 2;
    }
    IKvoMM* mm = getMM();
    if (mm->newProject(args[0]) != kvoOk) {
        err(mm->getLastError());
        return 1;
    }
    ref_ptr<IKvoProject> project;
    out(QString("Created %1").arg(mm->getProject(project)->getFilePath()));
    return 0;
}

int openOrFail(const QString& path)
{
    IKvoMM* mm = getMM();
    if (mm->openProject(path) != kvoOk) {
        err(mm->getLastError());
        return 1;
    }
    return 0;
}

int cmdAddImage(const QStringList& args)
{
    if (args.size() < 2) {
        err("usage: add-image PROJECT.qvj IMAGE [IMAGE...]");
        return 2;
    }
    if (int rc = openOrFail(args[0]))
        return rc;
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    mm->getProject(project)->getImageDb(db);
    int failures = 0;
    for (int i = 1; i < args.size(); ++i) {
        long id = -1;
        if (db->addImage(args[i], id) != kvoOk) {
            err(QString("%1: not added (missing or not a readable image)").arg(args[i]));
            ++failures;
            continue;
        }
        out(QString("Added %1 as image %2").arg(args[i]).arg(id));
    }
    if (mm->saveProject() != kvoOk) {
        err(mm->getLastError());
        return 1;
    }
    return failures ? 1 : 0;
}

int cmdInfo(const QStringList& args)
{
    if (args.size() != 1) {
        err("usage: info PROJECT.qvj");
        return 2;
    }
    if (int rc = openOrFail(args[0]))
        return rc;
    out(describeProject(*getMM()));
    return 0;
}

int cmdDemo(const QStringList& args)
{
    QString dir = QDir::currentPath() + "/quovara-demo";
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == "--out" && i + 1 < args.size())
            dir = args[++i];
        else {
            err("usage: demo [--out DIR]");
            return 2;
        }
    }
    QDir().mkpath(dir);
    const QString project = QDir(dir).absoluteFilePath("sample.qvj");
    // The demo always starts from scratch.
    QFile::remove(project);
    QDir(QDir(dir).absoluteFilePath("sample_files")).removeRecursively();
    QString error;
    out("Creating a sample project...");
    if (buildSampleProject(project, dir, error) != kvoOk) {
        err(error);
        return 1;
    }
    getMM()->closeProject();
    out("Saved. Reopening it...");
    if (int rc = openOrFail(project))
        return rc;
    out(describeProject(*getMM()));
    return 0;
}

std::map<QString, Command>& commands()
{
    static std::map<QString, Command> table = {
        {"new", {"new PROJECT.qvj", "creates an empty project", cmdNew}},
        {"add-image", {"add-image PROJECT.qvj IMAGE...", "copies photographs into a project", cmdAddImage}},
        {"info", {"info PROJECT.qvj", "prints what a project holds", cmdInfo}},
        {"demo",
         {"demo [--out DIR]",
          "creates a sample project with a generated model and two photographs, saves, reopens and prints it",
          cmdDemo}},
    };
    return table;
}

void usage()
{
    out("Usage: quovara-cli COMMAND [ARGS]\n\nCommands:");
    for (auto& kv : commands())
        out(QString("  %1\n      %2").arg(kv.second.usage, -40).arg(kv.second.help));
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    QStringList args = app.arguments().mid(1);
    if (args.isEmpty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
        usage();
        return args.isEmpty() ? 2 : 0;
    }
    auto it = commands().find(args[0]);
    if (it == commands().end()) {
        err(QString("unknown command '%1'").arg(args[0]));
        usage();
        return 2;
    }
    int rc = it->second.run(args.mid(1));
    getMM()->closeProject();
    return rc;
}
