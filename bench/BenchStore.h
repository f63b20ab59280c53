#pragma once

// What the benchmarks that run the library's stages on a generated project
// share: the program's start (widgets without a screen, Google Benchmark's
// arguments, a presenter that answers for nobody), making the scene, and
// closing the project before its scratch folder goes.

#include <QApplication>

#include <benchmark/benchmark.h>

#include <clocale>
#include <cstdio>
#include <memory>

#include "scene/KvoPresenter.h"
#include "scene/KvoStore.h"

namespace qvbench {

namespace detail {

// Set before the application object is made: the library's dialogs need
// widgets, and there is no screen.
struct NoScreen {
    NoScreen()
    {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
    }
};

} // namespace detail

class StageBenchProgram : detail::NoScreen {
public:
    StageBenchProgram(int& argc, char** argv) : m_app(argc, argv)
    {
        std::setlocale(LC_NUMERIC, "C");
        benchmark::Initialize(&argc, argv);
        m_argumentsOk = !benchmark::ReportUnrecognizedArguments(argc, argv);
        // A question the stages asked would wait for an answer nobody
        // gives: it is recorded, answered with its first button, and listed
        // at the end.
        m_presenter = kvo::ref_ptr<kvo::KvoRecordingPresenter>(new kvo::KvoRecordingPresenter);
        kvo::setPresenter(m_presenter);
        kvo::getMM()->closeProject();
    }
    ~StageBenchProgram() { kvo::setPresenter(nullptr); }

    bool argumentsOk() const { return m_argumentsOk; }

    // Makes the scene through Setup::make(); on failure says why, with the
    // program's name, and leaves setup empty.
    template <class Setup> bool makeScene(std::unique_ptr<Setup>& setup, const char* program)
    {
        setup = std::make_unique<Setup>();
        if (setup->make())
            return true;
        std::fprintf(stderr, "%s: cannot make the scene: %s\n", program, qPrintable(setup->error));
        setup.reset();
        return false;
    }

    void printQuestions(const char* who) const
    {
        for (const auto& r : m_presenter->records)
            std::printf("%s asked (%s) %s: %s\n", who, qPrintable(r.kind), qPrintable(r.title), qPrintable(r.text));
    }

private:
    QApplication m_app;
    bool m_argumentsOk = false;
    kvo::ref_ptr<kvo::KvoRecordingPresenter> m_presenter;
};

// Closes the open project, undoing a texture-edit session left open; the
// project lives in a scratch folder that goes next.
inline void closeBenchProject()
{
    kvo::IKvoMM* mm = kvo::getMM();
    if (mm->isTexEditOpen()) {
        mm->restoreTexEdit(nullptr);
        mm->closeTexEdit();
    }
    mm->closeProject();
}

} // namespace qvbench
