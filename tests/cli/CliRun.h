#pragma once

// Runs the command-line tool as a user would, and keeps what it said.

#include <QProcess>
#include <QStringList>

namespace qvtest {

struct CliRun {
    int code;
    QString out;
    QString err;
};

// Exit code (-1 when the tool crashed or did not end in time), stdout and stderr.
inline CliRun cli(const QStringList& args, int timeoutMs = 300000)
{
    QProcess p;
    p.start(QUOVARA_CLI_PATH, args);
    p.waitForFinished(timeoutMs);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

} // namespace qvtest
