#include "CliSupport.h"

#include <QDir>

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "scene/KvoStore.h"

namespace qvcli {

void out(const QString& s)
{
    std::fputs(qPrintable(s + "\n"), stdout);
}

void err(const QString& s)
{
    std::fputs(qPrintable("quovara-cli: " + s + "\n"), stderr);
}

std::map<QString, Command>& commands()
{
    static std::map<QString, Command> table;
    return table;
}

Register::Register(const QString& name, Command command)
{
    commands()[name] = std::move(command);
}

int CliPresenter::showMessage(QWidget* parent, const kvo::KvoMessage& message)
{
    const QString line = message.title.isEmpty() ? message.text : message.title + ": " + message.text;
    err(QString(line).replace('\n', ' '));
    if (message.icon == QMessageBox::Warning || message.icon == QMessageBox::Critical)
        m_warnings << message.text;
    return KvoRecordingPresenter::showMessage(parent, message);
}

QStringList CliPresenter::takeWarnings()
{
    QStringList out;
    out.swap(m_warnings);
    return out;
}

CliPresenter* cliPresenter()
{
    static kvo::ref_ptr<CliPresenter> presenter(new CliPresenter());
    return presenter.get();
}

bool parsePoint(const QString& text, XPnt3d& out)
{
    const QStringList parts = text.trimmed().split(',');
    if (parts.size() != 3)
        return false;
    bool ok[3];
    out = XPnt3d(parts[0].toDouble(&ok[0]), parts[1].toDouble(&ok[1]), parts[2].toDouble(&ok[2]));
    return ok[0] && ok[1] && ok[2];
}

kvo::ref_ptr<kvo::IKvoImageDb> imageDb()
{
    kvo::ref_ptr<kvo::IKvoProject> project;
    kvo::ref_ptr<kvo::IKvoImageDb> db;
    if (kvo::getMM()->getProject(project))
        project->getImageDb(db);
    return db;
}

long findImage(const QString& key, kvo::ref_ptr<kvo::IKvoImageInfo>* infoOut)
{
    kvo::ref_ptr<kvo::IKvoImageDb> db = imageDb();
    kvo::ref_ptr<kvo::IKvoImageInfo> info;
    bool isId = false;
    long id = key.toLong(&isId);
    if (!isId)
        id = kvo::getMM()->getImageIdByName(key);
    if (!db || id < 0 || !db->getImageInfo(info, id) || !info) {
        err(QString("%1: no such image in the project").arg(key));
        return -1;
    }
    if (infoOut)
        *infoOut = info;
    return id;
}

int openOrFail(const QString& path)
{
    kvo::IKvoMM* mm = kvo::getMM();
    TerminalProgress progress;
    if (mm->openProject(path, &progress) != kvo::kvoOk) {
        progress.finish();
        err(mm->getLastError());
        return 1;
    }
    return 0;
}

int saveOrFail()
{
    kvo::IKvoMM* mm = kvo::getMM();
    TerminalProgress progress;
    if (mm->saveProject(&progress) != kvo::kvoOk) {
        progress.finish();
        err(mm->getLastError());
        return 1;
    }
    return 0;
}

TerminalProgress::TerminalProgress() : m_tty(isatty(STDERR_FILENO) == 1)
{
    if (m_tty)
        setListener([this](double position, const QString& caption) { draw(position, caption); });
}

TerminalProgress::~TerminalProgress()
{
    finish();
}

void TerminalProgress::finish()
{
    std::lock_guard<std::mutex> lock(m_drawMutex);
    if (m_drawn) {
        // Wipe the bar so the next line starts clean.
        std::fputs("\r\033[K", stderr);
        std::fflush(stderr);
        m_drawn = false;
    }
    m_lastPermille = -1;
}

void TerminalProgress::draw(double position, const QString& caption)
{
    std::lock_guard<std::mutex> lock(m_drawMutex);
    const int permille = int(position * 1000.0 + 0.5);
    if (permille == m_lastPermille && caption == m_lastCaption)
        return;
    m_lastPermille = permille;
    m_lastCaption = caption;
    constexpr int width = 30;
    const int filled = std::min(width, std::max(0, permille * width / 1000));
    QString bar = QString(filled, '#') + QString(width - filled, '-');
    QString text = QString("\r\033[K[%1] %2% %3").arg(bar).arg(permille / 10.0, 5, 'f', 1).arg(caption.left(40));
    std::fputs(qPrintable(text), stderr);
    std::fflush(stderr);
    m_drawn = true;
}

int sampleAndOutArguments(const QStringList& args, QString& sample, QString& dir)
{
    dir = QDir::currentPath() + "/quovara-demo";
    sample = QUOVARA_SAMPLE_DIR;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == "--out" && i + 1 < args.size())
            dir = args[++i];
        else if (args[i] == "--sample" && i + 1 < args.size())
            sample = args[++i];
        else
            return 2;
    }
    if (!QDir().mkpath(dir)) {
        err(QString("cannot create %1").arg(dir));
        return 1;
    }
    dir = QDir(dir).absolutePath();
    sample = QDir(sample).absolutePath();
    return 0;
}

} // namespace qvcli
