#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <clocale>

namespace {
void setDefaultEnv(const char* name, const QByteArray& value)
{
    if (qgetenv(name).isEmpty())
        qputenv(name, value);
}
} // namespace

// Every test program runs headless, keeps its files and settings below the
// build folder (never the user's), and uses the C numeric locale. This is set
// here rather than by ctest so that running a test program by hand behaves the same.
int main(int argc, char** argv)
{
    setDefaultEnv("QT_QPA_PLATFORM", "offscreen");
    setDefaultEnv("QUOVARA_WORK_DIR", QUOVARA_TEST_WORK_DIR);
    setDefaultEnv("XDG_CONFIG_HOME", QUOVARA_TEST_WORK_DIR "/config");
    setDefaultEnv("XDG_RUNTIME_DIR", QUOVARA_TEST_WORK_DIR "/runtime");
    // Qt insists on a private runtime folder.
    const QString runtime = QString::fromLocal8Bit(qgetenv("XDG_RUNTIME_DIR"));
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
