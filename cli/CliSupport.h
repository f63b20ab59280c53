#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <mutex>

#include "platform/KvoProgressImpl.h"
#include "scene/KvoPresenter.h"
#include "scene/KvoStore.h"
#include "scene/KvoTypes.h"

namespace qvcli {

void out(const QString& s);
// One line on stderr, prefixed with the program's name.
void err(const QString& s);

// A sub-command. run gets the arguments after the command's name and answers
// the exit code: 0 done, 1 failed (with a one-line reason on stderr), 2 misuse.
struct Command {
    QString usage;
    QString help;
    std::function<int(const QStringList&)> run;
};

std::map<QString, Command>& commands();

// Each file of sub-commands registers its rows with a static instance.
struct Register {
    Register(const QString& name, Command command);
};

// "x,y,z" as a point; false for anything else.
bool parsePoint(const QString& text, XPnt3d& out);

// [--sample DIR] [--out DIR] of the commands that work on a generated scene:
// the bundled sample and ./quovara-demo unless given, both absolute, the
// output folder made. 0, or the exit code (the reason on stderr).
int sampleAndOutArguments(const QStringList& args, QString& sample, QString& out);

// The open project's image database (null without a project).
kvo::ref_ptr<kvo::IKvoImageDb> imageDb();
// The image of the open project named by id or by name, with its record;
// -1 (and the reason on stderr) when there is none.
long findImage(const QString& key, kvo::ref_ptr<kvo::IKvoImageInfo>* info = nullptr);

// The project at path is opened, or the reason is on stderr and the answer is 1.
int openOrFail(const QString& path);
// Saves the open project; 1 with the reason on stderr when that fails.
int saveOrFail();

// No boxes without a screen: messages go to stderr as one line each and are
// answered with their default; commands read what was said to decide their exit.
class CliPresenter : public kvo::KvoRecordingPresenter {
public:
    int showMessage(QWidget* parent, const kvo::KvoMessage& message) override;
    // Warnings and errors shown since the last call.
    QStringList takeWarnings();

private:
    QStringList m_warnings;
};
CliPresenter* cliPresenter();

// Progress drawn as a bar on stderr, only when stderr is a terminal:
// scripts and pipes get clean output.
class TerminalProgress : public kvo::CKvoProgress {
public:
    TerminalProgress();
    ~TerminalProgress() override;
    void finish();

private:
    void draw(double position, const QString& caption);
    bool m_tty;
    std::mutex m_drawMutex; // steps may come from worker threads
    int m_lastPermille = -1;
    QString m_lastCaption;
    bool m_drawn = false;
};

} // namespace qvcli
