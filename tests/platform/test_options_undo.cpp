#include <QSettings>

#include "platform/KvoAppOptionsImpl.h"
#include "platform/KvoUndoStack.h"
#include "support/TestSupport.h"

using namespace kvo;

TEST(AppOptions, ValuesPersistAndStayInRange)
{
    ref_ptr<IKvoAppOptions> a = newKvoAppOptions();
    a->setBrushRadius(17);
    a->setBrushColor(KvoColor4b(1, 2, 3, 4));
    a->setFeatherHardness(250);
    a->setFeatherSize(-3);
    a->setImageEditor("/usr/bin/krita");
    // A second options object reads the same settings.
    ref_ptr<IKvoAppOptions> b = newKvoAppOptions();
    EXPECT_EQ(b->getBrushRadius(), 17);
    EXPECT_EQ(b->getBrushColor(), KvoColor4b(1, 2, 3, 4));
    EXPECT_EQ(b->getFeatherHardness(), 100);
    EXPECT_EQ(b->getFeatherSize(), 0);
    EXPECT_EQ(b->getImageEditor(), "/usr/bin/krita");
    b->setImageEditor("gimp");
    auto table = b->getColorTable();
    ASSERT_GE(table->getCount(), 16);
    for (long i = 0; i + 1 < table->getCount(); ++i)
        EXPECT_NE(table->getAt(i), table->getAt(i + 1));
}

namespace {
// Adds or subtracts its amount on a shared counter; can be made to fail.
struct Step : IKvoUndo {
    Step(int& v, int d) : value(v), delta(d) {}
    QString getName() const override { return QString("add %1").arg(delta); }
    bool undo() override
    {
        if (broken)
            return false;
        value -= delta;
        return true;
    }
    bool redo() override
    {
        value += delta;
        return true;
    }
    int& value;
    int delta;
    bool broken = false;
};
} // namespace

TEST(UndoStack, UndoRedoAndANewStepDropsTheRedoTail)
{
    int v = 0;
    KvoUndoStack stack(3);
    EXPECT_FALSE(stack.undo());
    for (int d : {1, 10, 100, 1000}) {
        v += d;
        stack.push(ref_ptr<IKvoUndo>(new Step(v, d)));
    }
    EXPECT_EQ(stack.size(), 3u) << "the oldest step goes past the limit";
    EXPECT_EQ(stack.undoName(), "add 1000");
    EXPECT_TRUE(stack.undo());
    EXPECT_TRUE(stack.undo());
    EXPECT_EQ(v, 11);
    EXPECT_TRUE(stack.redo());
    EXPECT_EQ(v, 111);
    stack.push(ref_ptr<IKvoUndo>(new Step(v, 5)));
    v += 5;
    EXPECT_FALSE(stack.canRedo());
    EXPECT_TRUE(stack.undo());
    EXPECT_TRUE(stack.undo());
    EXPECT_TRUE(stack.undo());
    EXPECT_FALSE(stack.canUndo()) << "only three steps were kept";
    EXPECT_EQ(v, 1);
}

TEST(UndoStack, AStepThatCannotBeUndoneIsDroppedWithAllBefore)
{
    int v = 0;
    KvoUndoStack stack;
    ref_ptr<Step> a(new Step(v, 1)), b(new Step(v, 2));
    stack.push(a);
    stack.push(b);
    v = 3;
    b->broken = true;
    EXPECT_FALSE(stack.undo());
    EXPECT_FALSE(stack.canUndo());
    EXPECT_EQ(v, 3);
}
