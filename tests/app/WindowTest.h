#pragma once

// The main window shown in-process over a fresh viewer manager, and its menu
// entries found by their text.

#include <QAction>
#include <QApplication>
#include <QDockWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPushButton>

#include <memory>

#include "MainWindow.h"
#include "support/ViewerSupport.h"

namespace qvtest {

class WindowTest : public ViewerTest {
protected:
    void SetUp() override
    {
        ViewerTest::SetUp();
        window.reset(new quovara::MainWindow(vm));
        window->resize(1200, 800);
        window->show();
        QApplication::processEvents();
    }
    void TearDown() override
    {
        window.reset();
        ViewerTest::TearDown();
    }
    // The menu entry with this text (ampersands left out), or null.
    QAction* action(const QString& text) const
    {
        for (QAction* menu : window->menuBar()->actions())
            for (QAction* a : menu->menu()->actions())
                if (a->text().remove('&') == text)
                    return a;
        return nullptr;
    }
    // The dock that holds the current tool's dialog.
    QDockWidget* toolDock() const
    {
        for (QDockWidget* d : window->findChildren<QDockWidget*>())
            if (d->windowTitle() == "Tool")
                return d;
        return nullptr;
    }
    // The push button of a dialog with this text, or null.
    static QPushButton* button(QWidget* dialog, const QString& text)
    {
        for (QPushButton* b : dialog->findChildren<QPushButton*>())
            if (b->text() == text)
                return b;
        return nullptr;
    }
    std::unique_ptr<quovara::MainWindow> window;
};

} // namespace qvtest
