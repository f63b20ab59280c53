#include <gtest/gtest.h>

#include <vector>

#include "platform/KvoProgressImpl.h"

using namespace kvo;

namespace {

// Shares and fractions below are powers of two, so positions compare exactly.

TEST(KvoProgressRanges, StepsAdvanceByFractionsOfTheCurrentRange)
{
    CKvoProgress p;
    EXPECT_EQ(p.getPosition(), 0.0);
    p.step(0.25);
    EXPECT_EQ(p.getPosition(), 0.25);
    p.pushRange(0.5); // [0.25, 0.75]
    p.step(0.5);
    EXPECT_EQ(p.getPosition(), 0.5);
    p.step(0.25);
    EXPECT_EQ(p.getPosition(), 0.625);
    p.popRange();
    EXPECT_EQ(p.getPosition(), 0.75);
}

TEST(KvoProgressRanges, NestedRangesLandExactly)
{
    CKvoProgress p;
    p.pushRange(0.5); // [0, 0.5]
    {
        p.pushRange(0.5); // [0, 0.25]
        p.step(0.25);
        EXPECT_EQ(p.getPosition(), 0.0625);
        p.pushRange(0.5); // [0.0625, 0.1875]
        p.step(0.5);
        EXPECT_EQ(p.getPosition(), 0.125);
        p.popRange();
        EXPECT_EQ(p.getPosition(), 0.1875);
        EXPECT_EQ(p.depth(), 2);
        p.popRange();
        // The middle stage reported only part of its work; the parent still
        // stands at the end of the middle share.
        EXPECT_EQ(p.getPosition(), 0.25);
    }
    p.pushRange(0.25); // [0.25, 0.375]
    p.popRange();
    EXPECT_EQ(p.getPosition(), 0.375);
    p.popRange();
    EXPECT_EQ(p.getPosition(), 0.5);
    EXPECT_EQ(p.depth(), 0);
    p.pushRange(0.5); // [0.5, 1]
    p.popRange();
    EXPECT_EQ(p.getPosition(), 1.0);
}

TEST(KvoProgressRanges, StepsStayInsideTheirRange)
{
    CKvoProgress p;
    p.pushRange(0.5);
    p.step(3);
    EXPECT_EQ(p.getPosition(), 0.5);
    p.step(-1); // no going back
    EXPECT_EQ(p.getPosition(), 0.5);
    p.popRange();
    p.step(10);
    EXPECT_EQ(p.getPosition(), 1.0);
}

TEST(KvoProgressRanges, ChildCannotOutgrowItsParent)
{
    CKvoProgress p;
    p.pushRange(0.5); // [0, 0.5]
    p.step(0.5);      // 0.25
    p.pushRange(1);   // wants [0.25, 0.75], gets [0.25, 0.5]
    p.step(1);
    EXPECT_EQ(p.getPosition(), 0.5);
    p.popRange();
    p.popRange();
    EXPECT_EQ(p.getPosition(), 0.5);
}

TEST(KvoProgressRanges, UnbalancedPopIsIgnored)
{
    CKvoProgress p;
    p.step(0.5);
    p.popRange();
    EXPECT_EQ(p.getPosition(), 0.5);
    p.pushRange(0.25); // [0.5, 0.75]
    p.popRange();
    p.popRange();
    EXPECT_EQ(p.getPosition(), 0.75);
}

TEST(KvoProgressGuard, ScopeGuardPushesAndPops)
{
    CKvoProgress p;
    {
        KvoPrgPush outer(&p, 0.5);
        {
            KvoPrgPush inner(&p, 0.5);
            prgStep(&p, 0.5);
            EXPECT_EQ(p.getPosition(), 0.125);
            EXPECT_EQ(p.depth(), 2);
        }
        EXPECT_EQ(p.getPosition(), 0.25);
    }
    EXPECT_EQ(p.getPosition(), 0.5);
    EXPECT_EQ(p.depth(), 0);
}

TEST(KvoProgressGuard, NullProgressDoesNothing)
{
    IKvoProgress* none = nullptr;
    {
        KvoPrgPush guard(none, 0.5);
        prgStep(none, 0.5);
        prgText(none, "ignored");
    }
    SUCCEED();
}

TEST(KvoProgressListener, SeesEveryChangeWithTheCaption)
{
    CKvoProgress p;
    std::vector<std::pair<double, QString>> seen;
    p.setListener([&](double pos, const QString& caption) { seen.emplace_back(pos, caption); });
    p.setText("Loading");
    EXPECT_EQ(p.getText(), "Loading");
    {
        KvoPrgPush guard(&p, 0.5);
        p.step(0.5);
    }
    p.setText("Saving");
    p.step(0.25);

    const std::vector<std::pair<double, QString>> expected = {
        {0.0, "Loading"}, {0.25, "Loading"}, {0.5, "Loading"}, {0.5, "Saving"}, {0.75, "Saving"}};
    EXPECT_EQ(seen, expected);

    p.setListener(nullptr);
    p.step(0.5);
    EXPECT_EQ(seen.size(), expected.size());
}

TEST(KvoProgressListener, ResetStartsOver)
{
    CKvoProgress p;
    p.setText("x");
    p.pushRange(0.5);
    p.step(1);
    p.reset();
    EXPECT_EQ(p.getPosition(), 0.0);
    EXPECT_EQ(p.depth(), 0);
    EXPECT_TRUE(p.getText().isEmpty());
}

} // namespace
