#include <QCoreApplication>
#include <QEvent>
#include <QWidget>

#include "support/ViewerSupport.h"
#include "tasks/KvoQvTask.h"

using namespace kvo;

namespace {

// Writes what happens to it into a shared log.
class LoggingTask : public CQvTaskImp<IKvoQvTask> {
public:
    LoggingTask(QString n, QStringList& log) : m_log(log) { name = n; }
    long onTaskStart() override
    {
        m_log << name + ".start";
        return startResult;
    }
    long onTaskEnd() override
    {
        m_log << name + ".end";
        return 0;
    }
    long onMouseDown(long view, long flags, long x, long y) override
    {
        m_log << QString("%1.down %2 %3 %4 %5").arg(name).arg(view).arg(flags, 0, 16).arg(x).arg(y);
        return view == 0 ? 0 : kvoNotHandled;
    }
    long onKeyDown(long, long key, long, long) override
    {
        // Return ends the task from inside its own handler, as dialogs' OK does.
        if (key == Qt::Key_Return)
            zebUI::getVM()->endCurrentTask();
        m_log << QString("%1.key %2").arg(name).arg(key);
        return 0;
    }
    long onPaint(long view) override
    {
        m_log << QString("%1.paint %2").arg(name).arg(view);
        return 0;
    }
    void setBusy(bool b) { busy = b; }
    long startResult = 0;

private:
    QStringList& m_log;
};

class PlainTask : public CQvTaskImp<IKvoQvTask> {
public:
    long onTaskStart() override { return 0; }
    long onTaskEnd() override { return 0; }
};

struct CountingListener : IKvoQvTaskEvent {
    explicit CountingListener(long a) : answer(a) {}
    long answer;
    int calls = 0;
};

class Hook : public IZebRender {
public:
    Hook(QString n, QStringList& log) : m_name(n), m_log(log) {}
    void getName(QString& out) const override { out = m_name; }
    long draw(long view, const ref_ptr<IZebViewer>& viewer) override
    {
        m_log << QString("%1.draw %2 %3").arg(m_name).arg(view).arg(viewer ? viewer->getViewIndex() : -1);
        return 0;
    }

private:
    QString m_name;
    QStringList& m_log;
};

using TaskFramework = qvtest::ViewerTest;

} // namespace

TEST(TaskDefaults, ATaskThatOverridesNothingHandlesNothing)
{
    ref_ptr<PlainTask> t(new PlainTask());
    EXPECT_EQ(t->onPaint(0), kvoNotHandled);
    for (long view : {0L, 1L}) {
        EXPECT_EQ(t->onMouseDown(view, kvoModCtrl | kvoButtonLeft, 5, 6), kvoNotHandled);
        EXPECT_EQ(t->onMouseUp(view, 0, 5, 6), kvoNotHandled);
        EXPECT_EQ(t->onMouseMove(view, 0, 5, 6), kvoNotHandled);
        EXPECT_EQ(t->onMouseDoubleClick(view, 0, 5, 6), kvoNotHandled);
        EXPECT_EQ(t->onMouseWheel(view, 0, 120, 5, 6), kvoNotHandled);
        EXPECT_EQ(t->onMouseEnter(view), kvoNotHandled);
        EXPECT_EQ(t->onMouseLeave(view), kvoNotHandled);
        EXPECT_EQ(t->onContextMenu(view, 0, 1, 1), kvoNotHandled);
        EXPECT_EQ(t->onKeyDown(view, 'Z', 0, 0), kvoNotHandled);
        EXPECT_EQ(t->onKeyUp(view, 'Z', 0, 0), kvoNotHandled);
    }
    EXPECT_TRUE(t->isTaskValid());
    EXPECT_FALSE(t->isTaskBusy());
    EXPECT_EQ(t->getTaskType(), 0);
    EXPECT_EQ(t->onTaskCommand(), 0);
    EXPECT_EQ(t->setName("Tool"), 0);
    QString n;
    t->getName(n);
    EXPECT_EQ(n, "Tool");
    t->setActiveViewID(1);
    EXPECT_EQ(t->getActiveViewID(), 1);
    EXPECT_FALSE(t->getViewRender(0)) << "no viewer manager is installed";
}

TEST(TaskDefaults, ListenerIdsAndRemoval)
{
    ref_ptr<PlainTask> t(new PlainTask());
    ref_ptr<LongArray> ids;
    EXPECT_EQ(t->addTaskEvent(nullptr), -1);
    EXPECT_EQ(t->removeTaskEvent(1), 1) << "an empty list answers 1";
    EXPECT_EQ(t->addTaskEvent(new CountingListener(0)), 1);
    EXPECT_EQ(t->addTaskEvent(new CountingListener(0)), 2);
    EXPECT_EQ(t->addTaskEvent(new CountingListener(0)), 3);
    EXPECT_EQ(t->removeTaskEvent(2), 2) << "answers the entries left";
    EXPECT_EQ(t->removeTaskEvent(7), 1);
    t->getTaskEventIds(ids);
    EXPECT_EQ(ids->vec(), (std::vector<long>{1, 3}));
    EXPECT_EQ(t->addTaskEvent(new CountingListener(0)), 4);
}

TEST(TaskDefaults, AListenerAnsweringMinusOneStopsTheWalk)
{
    KvoTaskEventList list;
    ref_ptr<CountingListener> a(new CountingListener(0)), b(new CountingListener(-1)), c(new CountingListener(0));
    list.add(a);
    list.add(b);
    list.add(c);
    auto call = [](CountingListener* l) {
        ++l->calls;
        return l->answer;
    };
    EXPECT_EQ(list.fire<CountingListener>(call), -1);
    EXPECT_EQ(a->calls, 1);
    EXPECT_EQ(b->calls, 1);
    EXPECT_EQ(c->calls, 0);
    b->answer = 0;
    EXPECT_EQ(list.fire<CountingListener>(call), 0);
    EXPECT_EQ(c->calls, 1);
}

TEST_F(TaskFramework, ANewTaskEndsTheOldOneFirstAndABusyTaskRefuses)
{
    QStringList log;
    ref_ptr<LoggingTask> a(new LoggingTask("A", log)), b(new LoggingTask("B", log)), c(new LoggingTask("C", log));
    EXPECT_EQ(vm->startTask(a.get()), 0);
    EXPECT_EQ(vm->getCurrentTask(), a.get());
    EXPECT_EQ(vm->startTask(b.get()), 0);
    EXPECT_EQ(log, (QStringList{"A.start", "A.end", "B.start"}));
    b->setBusy(true);
    EXPECT_EQ(vm->endCurrentTask(), kvoTaskRefused);
    EXPECT_LT(vm->startTask(c.get()), 0);
    EXPECT_EQ(vm->getCurrentTask(), b.get()) << "a refusal keeps the task and starts nothing";
    EXPECT_EQ(log.size(), 3);
    b->setBusy(false);
    EXPECT_EQ(vm->endCurrentTask(), 0);
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_EQ(vm->endCurrentTask(), 0) << "nothing current is not an error";
    EXPECT_EQ(log.last(), "B.end");
    // A task that fails to start is not left current.
    c->startResult = -1;
    EXPECT_EQ(vm->startTask(c.get()), -1);
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
}

TEST_F(TaskFramework, EventsReachTheTaskAndUnhandledOnesComeBack)
{
    QStringList log;
    EXPECT_EQ(vm->mouseDown(0, 0, 1, 2), kvoNotHandled) << "no task: the view navigates";
    ref_ptr<LoggingTask> a(new LoggingTask("A", log));
    vm->startTask(a.get());
    const long word = kvoModifierWord(Qt::ControlModifier | Qt::ShiftModifier, Qt::LeftButton);
    EXPECT_EQ(word, kvoModCtrl | kvoModShift | kvoButtonLeft);
    EXPECT_EQ(vm->mouseDown(0, word, 10, 20), 0);
    EXPECT_EQ(vm->mouseDown(1, word, 10, 20), kvoNotHandled);
    EXPECT_EQ(vm->mouseMove(0, 0, 1, 1), kvoNotHandled);
    EXPECT_TRUE(log.contains("A.down 0 60000001 10 20"));

    ref_ptr<Hook> h1(new Hook("h1", log)), h2(new Hook("h2", log)), img(new Hook("img", log));
    const long id1 = vm->addRender(h1);
    const long id2 = vm->addRender(h2);
    EXPECT_NE(id1, id2);
    ref_ptr<IZebImageViewer> iv;
    vm->getImageViewer(iv)->addRender(img);
    log.clear();
    vm->paint(0);
    vm->paint(1);
    EXPECT_EQ(log, (QStringList{"A.paint 0", "h1.draw 0 0", "h2.draw 0 0", "A.paint 1", "img.draw 1 1"}));
    vm->removeRender(id1);
    EXPECT_EQ(vm->addRender(h1), id2 + 1) << "ids are not reused";
    log.clear();
    vm->paint(0);
    EXPECT_EQ(log, (QStringList{"A.paint 0", "h2.draw 0 0", "h1.draw 0 0"}));

    // A task may end itself from inside its own handler.
    a.reset();
    EXPECT_EQ(vm->keyDown(0, Qt::Key_Return, 0, 0), 0);
    EXPECT_EQ(vm->getCurrentTask(), nullptr);
    EXPECT_TRUE(log.contains("A.end"));
    EXPECT_EQ(log.last(), QString("A.key %1").arg(int(Qt::Key_Return)));
}

namespace {
class FollowingDialog : public QWidget, public IKvoImageViewFollower {
public:
    int refreshed = 0;
    void refreshForShownImage() override { ++refreshed; }
};
} // namespace

TEST_F(TaskFramework, ImageHooksFollowTheShownImageAndSkipClosedDialogs)
{
    auto* live = new FollowingDialog();
    auto* gone = new FollowingDialog();
    ref_ptr<IZebImgEvent> hook(new CKvoQvImgViewEventImp(live, gone, nullptr));
    const long id = vm->imageViewer()->addImgEvent(hook);
    delete gone;
    vm->imageViewer()->showImage(3, 100, 50);
    vm->imageViewer()->showImage(3, 100, 50);
    EXPECT_EQ(live->refreshed, 1) << "told once per change of image";
    vm->imageViewer()->removeImgEvent(id);
    vm->imageViewer()->showImage(4, 100, 50);
    EXPECT_EQ(live->refreshed, 1);
    delete live;
}

TEST_F(TaskFramework, DialogHostsAttachAndClear)
{
    IZebDialogHost* host = vm->getDialogHost();
    QPointer<QWidget> panel = new QWidget();
    panel->setAttribute(Qt::WA_DeleteOnClose);
    QWidget* seen = nullptr;
    QObject::connect(vm->dialogHost(), &CZebDialogHost::attachedChanged, [&](QWidget* w) { seen = w; });
    host->attach(panel);
    EXPECT_EQ(host->getAttached(), panel.data());
    EXPECT_EQ(seen, panel.data());
    host->clear();
    EXPECT_EQ(host->getAttached(), nullptr);
    EXPECT_EQ(seen, nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(panel.isNull()) << "a cleared panel dialog closes and deletes itself";
    EXPECT_NE(vm->getSecondDialogHost(), host);
}
