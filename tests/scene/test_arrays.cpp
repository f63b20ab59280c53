#include <gtest/gtest.h>

#include <set>

#include "scene/KvoArray.h"

using namespace kvo;

namespace {

TEST(KvoArraySemantics, ReserveKeepsCountResizeChangesIt)
{
    ref_ptr<IntArray> a = newIntArray();
    a->append(7);
    a->reserve(100);
    EXPECT_EQ(a->getCount(), 1);
    EXPECT_EQ(a->getAt(0), 7);

    a->resize(4);
    ASSERT_EQ(a->getCount(), 4);
    EXPECT_EQ(a->getAt(0), 7);
    // Grown elements are value-initialised.
    EXPECT_EQ(a->getAt(3), 0);

    a->resize(2);
    EXPECT_EQ(a->getCount(), 2);
    a->resize(-5);
    EXPECT_EQ(a->getCount(), 0);
}

TEST(KvoArraySemantics, TwoReferencesSeeTheSameEdits)
{
    ref_ptr<Pnt3dArray> a = newPnt3dArray();
    ref_ptr<Pnt3dArray> b = a;
    a->append(XPnt3d(1, 2, 3));
    b->setAt(0, XPnt3d(4, 5, 6));
    b->append(XPnt3d(7, 8, 9));

    EXPECT_EQ(a.get(), b.get());
    ASSERT_EQ(a->getCount(), 2);
    EXPECT_EQ(a->getAt(0), XPnt3d(4, 5, 6));
    EXPECT_EQ(a->getAt(1), XPnt3d(7, 8, 9));
    EXPECT_EQ(a->refCount(), 2);
}

TEST(KvoArraySemantics, CloneIsIndependent)
{
    ref_ptr<DoubleArray> a = newDoubleArray();
    a->append(1.5);
    ref_ptr<DoubleArray> c = a->clone();
    c->setAt(0, 2.5);
    c->append(3.5);
    EXPECT_EQ(a->getCount(), 1);
    EXPECT_EQ(a->getAt(0), 1.5);
    EXPECT_EQ(c->getCount(), 2);
}

TEST(KvoArraySemantics, CloneOfReferenceElementsSharesTheElements)
{
    ref_ptr<IntArrayArray> outer = newIntArrayArray();
    ref_ptr<IntArray> inner = newIntArray();
    outer->append(inner);
    ref_ptr<IntArrayArray> copy = outer->clone();
    copy->getAt(0)->append(42);
    ASSERT_EQ(inner->getCount(), 1);
    EXPECT_EQ(inner->getAt(0), 42);
}

TEST(KvoArraySemantics, DataIsContiguous)
{
    ref_ptr<FloatArray> a = newFloatArray();
    for (int i = 0; i < 1000; ++i)
        a->append(float(i));
    const float* d = a->getData();
    for (long i = 0; i < a->getCount(); ++i)
        ASSERT_EQ(&d[i], &(*a)[i]);
    // Writes through the raw pointer are writes into the array.
    a->getData()[10] = -1.0f;
    EXPECT_EQ(a->getAt(10), -1.0f);
}

TEST(KvoArraySemantics, RemoveAtRejectsOutOfRange)
{
    ref_ptr<LongArray> a = newLongArray();
    for (long v : {10L, 20L, 30L})
        a->append(v);
    EXPECT_FALSE(a->removeAt(-1));
    EXPECT_FALSE(a->removeAt(3));
    EXPECT_EQ(a->getCount(), 3);

    EXPECT_TRUE(a->removeAt(1));
    ASSERT_EQ(a->getCount(), 2);
    EXPECT_EQ(a->getAt(0), 10);
    EXPECT_EQ(a->getAt(1), 30);
}

TEST(KvoArraySemantics, ArrayReleasesItsReferenceElements)
{
    ref_ptr<ByteArrayArray> outer = newByteArrayArray();
    ref_ptr<ByteArray> inner = newByteArray();
    outer->append(inner);
    EXPECT_EQ(inner->refCount(), 2);
    outer = nullptr;
    EXPECT_EQ(inner->refCount(), 1);
}

TEST(KvoArrayFactories, EveryFactoryHandsOutAnEmptyOwnedArray)
{
    EXPECT_EQ(newPnt2fArray()->getCount(), 0);
    EXPECT_EQ(newPnt2dArray()->getCount(), 0);
    EXPECT_EQ(newPnt3fArray()->getCount(), 0);
    EXPECT_EQ(newUIntArray()->getCount(), 0);
    EXPECT_EQ(newFloatArrayArray()->getCount(), 0);
    EXPECT_EQ(newMeshArray()->getCount(), 0);
    EXPECT_EQ(newImageArray()->getCount(), 0);
    EXPECT_EQ(newRingArray()->getCount(), 0);
    ref_ptr<PntPntArray> pp = newPntPntArray();
    EXPECT_EQ(pp->refCount(), 1);
    pp->resize(1);
    // A fresh pair is the empty pick: no image position, no model position.
    EXPECT_EQ(pp->getAt(0).flag, kPickedPointFlag);
    EXPECT_FALSE(pp->getAt(0).world.isValid());
    EXPECT_EQ(pp->getAt(0), POINT_POINT());
}

TEST(XTripOrder, NormalizeSortsTheCorners)
{
    XTrip<> t(9, 2, 5);
    t.normalize();
    EXPECT_EQ(t, XTrip<>(2, 5, 9));
    EXPECT_EQ(XTrip<>(5, 9, 2).normalized(), XTrip<>(2, 5, 9));
    EXPECT_EQ(XTrip<>(3, 3, 1).normalized(), XTrip<>(1, 3, 3));
}

TEST(XTripOrder, SetOfNormalisedTriplesCountsTrianglesOnce)
{
    const unsigned perms[6][3] = {{1, 2, 3}, {1, 3, 2}, {2, 1, 3}, {2, 3, 1}, {3, 1, 2}, {3, 2, 1}};
    std::set<XTrip<>> tris;
    for (const auto& p : perms)
        tris.insert(XTrip<>(p[0], p[1], p[2]).normalized());
    tris.insert(XTrip<>(4, 2, 1).normalized());
    EXPECT_EQ(tris.size(), 2u);

    // Without normalising, every permutation is a triangle of its own.
    std::set<XTrip<>> raw;
    for (const auto& p : perms)
        raw.insert(XTrip<>(p[0], p[1], p[2]));
    EXPECT_EQ(raw.size(), 6u);
}

TEST(XTripOrder, LessIsLexicographic)
{
    EXPECT_LT(XTrip<>(1, 5, 9), XTrip<>(2, 0, 0));
    EXPECT_LT(XTrip<>(1, 2, 9), XTrip<>(1, 3, 0));
    EXPECT_LT(XTrip<>(1, 2, 3), XTrip<>(1, 2, 4));
    EXPECT_FALSE(XTrip<>(1, 2, 3) < XTrip<>(1, 2, 3));
}

} // namespace
