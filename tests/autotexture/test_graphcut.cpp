// The graph-cut solver on problems small enough to enumerate: moves against
// the brute-force optimum, every way of giving costs against every other, the
// energy's parts, the grid's neighbour order and the error texts.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "autotexture/GCoptimization.h"

namespace {

using GC = GCoptimization;

// A problem as plain tables, with its own energy and enumeration.
struct Problem {
    int sites = 0, labels = 0;
    std::vector<int> data;                 // site * labels + label
    std::vector<std::array<int, 3>> pairs; // s1, s2, weight
    std::vector<int> smooth;               // label1 * labels + label2; the higher site's label first
    std::vector<std::pair<std::vector<int>, int>> labelCosts;

    int d(int s, int l) const { return data[size_t(s * labels + l)]; }
    int v(int l1, int l2) const { return smooth[size_t(l1 * labels + l2)]; }

    long long energy(const std::vector<int>& lab) const
    {
        long long e = 0;
        for (int s = 0; s < sites; ++s)
            e += d(s, lab[size_t(s)]);
        for (const auto& p : pairs) {
            const int hi = std::max(p[0], p[1]), lo = std::min(p[0], p[1]);
            e += (long long)p[2] * v(lab[size_t(hi)], lab[size_t(lo)]);
        }
        for (const auto& lc : labelCosts)
            for (int l : lc.first)
                if (std::find(lab.begin(), lab.end(), l) != lab.end()) {
                    e += lc.second;
                    break;
                }
        return e;
    }

    long long optimum() const
    {
        std::vector<int> lab(size_t(sites), 0);
        long long best = energy(lab);
        for (;;) {
            int s = 0;
            while (s < sites && ++lab[size_t(s)] == labels)
                lab[size_t(s++)] = 0;
            if (s == sites)
                return best;
            best = std::min(best, energy(lab));
        }
    }
};

enum class Metric { Potts, TruncatedLinear };

Problem randomProblem(std::mt19937& rng, int sites, int labels, Metric metric)
{
    Problem p;
    p.sites = sites;
    p.labels = labels;
    std::uniform_int_distribution<int> cost(0, 20), weight(1, 6);
    for (int i = 0; i < sites * labels; ++i)
        p.data.push_back(cost(rng));
    for (int a = 0; a < sites; ++a)
        for (int b = a + 1; b < sites; ++b)
            if (rng() % 3 == 0)
                p.pairs.push_back({a, b, weight(rng)});
    if (p.pairs.empty())
        p.pairs.push_back({0, sites - 1, weight(rng)});
    for (int a = 0; a < labels; ++a)
        for (int b = 0; b < labels; ++b)
            p.smooth.push_back(metric == Metric::Potts ? (a != b) : std::min(std::abs(a - b), 2) * 3);
    return p;
}

// Cost kinds, so that the same problem can be given every way.
enum class DataWay { Array, Fn, FnExtra, Functor, Entries, Sparse };
enum class SmoothWay { Array, Fn, FnExtra, Functor, Entries };

const Problem* g_problem = nullptr; // for the kinds without an extra argument

GC::EnergyTermType dataFn(GC::SiteID s, GC::LabelID l)
{
    return g_problem->d(s, l);
}
GC::EnergyTermType dataFnExtra(GC::SiteID s, GC::LabelID l, void* extra)
{
    return static_cast<const Problem*>(extra)->d(s, l);
}
GC::EnergyTermType smoothFn(GC::SiteID, GC::SiteID, GC::LabelID a, GC::LabelID b)
{
    return g_problem->v(a, b);
}
GC::EnergyTermType smoothFnExtra(GC::SiteID, GC::SiteID, GC::LabelID a, GC::LabelID b, void* extra)
{
    return static_cast<const Problem*>(extra)->v(a, b);
}
struct DataObject : GC::DataCostFunctor {
    const Problem* p;
    explicit DataObject(const Problem* p) : p(p) {}
    GC::EnergyTermType compute(GC::SiteID s, GC::LabelID l) override { return p->d(s, l); }
};
struct SmoothObject : GC::SmoothCostFunctor {
    const Problem* p;
    explicit SmoothObject(const Problem* p) : p(p) {}
    GC::EnergyTermType compute(GC::SiteID, GC::SiteID, GC::LabelID a, GC::LabelID b) override { return p->v(a, b); }
};

// A solver over a problem, holding whatever the chosen kinds need alive.
struct Solver {
    Problem p;
    DataObject dataObject{nullptr};
    SmoothObject smoothObject{nullptr};
    std::vector<GC::SparseDataCost> sparse;
    std::unique_ptr<GCoptimizationGeneralGraph> gc;

    Solver(const Problem& problem, DataWay dw, SmoothWay sw) : p(problem)
    {
        dataObject.p = smoothObject.p = &p;
        g_problem = &p;
        gc.reset(new GCoptimizationGeneralGraph(p.sites, p.labels));
        switch (dw) {
        case DataWay::Array: gc->setDataCost(p.data.data()); break;
        case DataWay::Fn: gc->setDataCost(&dataFn); break;
        case DataWay::FnExtra: gc->setDataCost(&dataFnExtra, &p); break;
        case DataWay::Functor: gc->setDataCost(&dataObject); break;
        case DataWay::Entries:
            for (int s = 0; s < p.sites; ++s)
                for (int l = 0; l < p.labels; ++l)
                    gc->setDataCost(s, l, p.d(s, l));
            break;
        case DataWay::Sparse:
            for (int l = 0; l < p.labels; ++l) {
                sparse.clear();
                for (int s = 0; s < p.sites; ++s)
                    sparse.push_back({s, p.d(s, l)});
                gc->setDataCost(l, sparse.data(), GC::SiteID(sparse.size()));
            }
            break;
        }
        switch (sw) {
        case SmoothWay::Array: gc->setSmoothCost(p.smooth.data()); break;
        case SmoothWay::Fn: gc->setSmoothCost(&smoothFn); break;
        case SmoothWay::FnExtra: gc->setSmoothCost(&smoothFnExtra, &p); break;
        case SmoothWay::Functor: gc->setSmoothCost(&smoothObject); break;
        case SmoothWay::Entries:
            for (int a = 0; a < p.labels; ++a)
                for (int b = 0; b < p.labels; ++b)
                    gc->setSmoothCost(a, b, p.v(a, b));
            break;
        }
        for (const auto& pr : p.pairs)
            gc->setNeighbors(pr[0], pr[1], pr[2]);
        for (const auto& lc : p.labelCosts)
            gc->setLabelSubsetCost(lc.first.data(), GC::LabelID(lc.first.size()), lc.second);
    }
    explicit Solver(const Problem& problem) : Solver(problem, DataWay::Array, SmoothWay::Array) {}

    std::vector<int> labels() const
    {
        std::vector<int> lab(size_t(p.sites));
        for (int s = 0; s < p.sites; ++s)
            lab[size_t(s)] = gc->whatLabel(s);
        return lab;
    }
};

// Collects what the solver prints.
struct Lines {
    std::vector<std::string> all;
    std::function<void(const char*)> sink()
    {
        return [this](const char* line) { all.emplace_back(line); };
    }
    int count(const std::string& prefix) const
    {
        return int(
            std::count_if(all.begin(), all.end(), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; }));
    }
};

template <class F> std::string thrownBy(F f)
{
    try {
        f();
    } catch (const GCException& e) {
        return e.message;
    }
    return "(nothing thrown)";
}

} // namespace

// ---- moves against enumeration -------------------------------------------------------

TEST(GraphCut, ExpansionIsWithinTwiceTheOptimumForPottsAndExactWithTwoLabels)
{
    std::mt19937 rng(1);
    for (int round = 0; round < 300; ++round) {
        const int sites = 2 + round % 7, labels = 2 + round % 2;
        const Problem p = randomProblem(rng, sites, labels, Metric::Potts);
        Solver s(p);
        const long long initial = p.energy(s.labels());
        const GC::EnergyType e = round % 2 ? s.gc->expansion(-1) : s.gc->expansion(100);
        const long long opt = p.optimum();
        ASSERT_EQ(e, p.energy(s.labels())) << "round " << round;
        EXPECT_LE(e, initial);
        EXPECT_LE(e, 2 * opt) << "round " << round;
        if (labels == 2) {
            EXPECT_EQ(e, opt) << "round " << round;
        }
        // Converged: no single expansion lowers the energy any further.
        for (int l = 0; l < labels; ++l)
            EXPECT_FALSE(s.gc->alpha_expansion(l)) << "round " << round << " label " << l;
    }
}

TEST(GraphCut, ExpansionOnAMetricReachesALocalMinimumWithinItsBound)
{
    // Truncated linear, min(|a - b|, 2) * 3: the bound is 2 * max / min = 4.
    std::mt19937 rng(2);
    for (int round = 0; round < 150; ++round) {
        const Problem p = randomProblem(rng, 3 + round % 6, 3, Metric::TruncatedLinear);
        Solver s(p);
        const GC::EnergyType e = s.gc->expansion(-1);
        ASSERT_EQ(e, p.energy(s.labels()));
        EXPECT_LE(e, 4 * p.optimum());
    }
}

TEST(GraphCut, SwapNeverRaisesTheEnergyAndIsExactWithTwoLabels)
{
    std::mt19937 rng(3);
    for (int round = 0; round < 200; ++round) {
        const int labels = 2 + round % 2;
        const Problem p =
            randomProblem(rng, 2 + round % 7, labels, round % 4 < 2 ? Metric::Potts : Metric::TruncatedLinear);
        Solver s(p);
        const long long initial = p.energy(s.labels());
        const GC::EnergyType e = s.gc->swap(round % 3 ? -1 : 50);
        ASSERT_EQ(e, p.energy(s.labels())) << "round " << round;
        EXPECT_LE(e, initial);
        if (labels == 2) {
            EXPECT_EQ(e, p.optimum()) << "round " << round;
        }
        for (int a = 0; a < labels; ++a)
            for (int b = a + 1; b < labels; ++b)
                EXPECT_FALSE(s.gc->alpha_beta_swap(a, b));
    }
}

// Every data kind with every smooth kind gives the same moves, labelling and
// energy parts as the plain tables.
TEST(GraphCut, EveryCostKindGivesTheSameResult)
{
    std::mt19937 rng(4);
    const DataWay dataWays[] = {DataWay::Array,   DataWay::Fn,      DataWay::FnExtra,
                                DataWay::Functor, DataWay::Entries, DataWay::Sparse};
    const SmoothWay smoothWays[] = {SmoothWay::Array, SmoothWay::Fn, SmoothWay::FnExtra, SmoothWay::Functor,
                                    SmoothWay::Entries};
    for (int round = 0; round < 20; ++round) {
        const Problem p = randomProblem(rng, 8, 3, round % 2 ? Metric::Potts : Metric::TruncatedLinear);
        Solver ref(p);
        const GC::EnergyType eRef = ref.gc->expansion(10);
        Solver refSwap(p);
        const GC::EnergyType sRef = refSwap.gc->swap(10);
        for (DataWay dw : dataWays)
            for (SmoothWay sw : smoothWays) {
                Solver s(p, dw, sw);
                EXPECT_EQ(s.gc->expansion(10), eRef) << int(dw) << "/" << int(sw);
                EXPECT_EQ(s.labels(), ref.labels()) << int(dw) << "/" << int(sw);
                EXPECT_EQ(s.gc->giveDataEnergy(), ref.gc->giveDataEnergy());
                EXPECT_EQ(s.gc->giveSmoothEnergy(), ref.gc->giveSmoothEnergy());
                Solver t(p, dw, sw);
                EXPECT_EQ(t.gc->swap(10), sRef) << int(dw) << "/" << int(sw);
                EXPECT_EQ(t.labels(), refSwap.labels()) << int(dw) << "/" << int(sw);
            }
    }
}

// With Potts as the default smooth cost and no table given, the solver
// agrees with a Potts table.
TEST(GraphCut, PottsIsTheDefaultSmoothCost)
{
    std::mt19937 rng(5);
    const Problem p = randomProblem(rng, 8, 3, Metric::Potts);
    GCoptimizationGeneralGraph gc(p.sites, p.labels);
    std::vector<int> data = p.data;
    gc.setDataCost(data.data());
    for (const auto& pr : p.pairs)
        gc.setNeighbors(pr[0], pr[1], pr[2]);
    Solver ref(p);
    EXPECT_EQ(gc.expansion(5), ref.gc->expansion(5));
    for (int s = 0; s < p.sites; ++s)
        EXPECT_EQ(gc.whatLabel(s), ref.gc->whatLabel(s));
}

// ---- sparse data costs -----------------------------------------------------------------

// Over several buckets, full and partial, sparse costs read like a dense table
// in which a missing pair costs GCO_MAX_ENERGYTERM, and give the same moves.
TEST(GraphCut, SparseCostsMatchTheDenseTableTheyStandFor)
{
    std::mt19937 rng(6);
    const int sites = 1700, labels = 4, w = 50;
    std::vector<int> dense(size_t(sites * labels), GC::GCO_MAX_ENERGYTERM);
    std::vector<std::vector<GC::SparseDataCost>> sparse(labels);
    for (int l = 0; l < labels; ++l)
        for (int s = 0; s < sites; ++s) {
            // Label 0 everywhere; label 1 on a whole first bucket; others thinly.
            const bool present = l == 0 || (l == 1 && s < 512) || rng() % 3 == 0;
            if (!present)
                continue;
            const int c = int(rng() % 30);
            dense[size_t(s * labels + l)] = c;
            sparse[size_t(l)].push_back({s, c});
        }
    GCoptimizationGeneralGraph a(sites, labels), b(sites, labels);
    a.setDataCost(dense.data());
    for (int l = 0; l < labels; ++l)
        b.setDataCost(l, sparse[size_t(l)].data(), GC::SiteID(sparse[size_t(l)].size()));
    for (int s = 0; s < sites; ++s) {
        if ((s + 1) % w)
            a.setNeighbors(s, s + 1, 2), b.setNeighbors(s, s + 1, 2);
        if (s + w < sites)
            a.setNeighbors(s, s + w, 3), b.setNeighbors(s, s + w, 3);
    }
    // Random labels that each site lists, read back in scattered order.
    for (int s = 0; s < sites; ++s) {
        int l = int(rng() % labels);
        while (dense[size_t(s * labels + l)] == GC::GCO_MAX_ENERGYTERM)
            l = (l + 1) % labels;
        a.setLabel(s, l);
        b.setLabel(s, l);
    }
    EXPECT_EQ(a.giveDataEnergy(), b.giveDataEnergy());
    for (int s = 0; s < sites; ++s) {
        a.setLabel(s, 0);
        b.setLabel(s, 0);
    }
    EXPECT_EQ(a.expansion(4), b.expansion(4));
    for (int s = 0; s < sites; ++s)
        ASSERT_EQ(a.whatLabel(s), b.whatLabel(s)) << "site " << s;
}

TEST(GraphCut, AnAbsentSparsePairReadsTheLargestTerm)
{
    GCoptimizationGeneralGraph gc(3, 2);
    GC::SparseDataCost zero[] = {{0, 4}, {1, 5}, {2, 6}}, one[] = {{0, 1}, {2, 1}};
    gc.setDataCost(0, zero, 3);
    gc.setDataCost(1, one, 2);
    gc.setLabel(1, 1);
    EXPECT_EQ(gc.giveDataEnergy(), 4 + 10000000 + 6);
    // Without neighbours each site takes its cheapest label: site 1 cannot take 1.
    gc.setLabel(1, 0);
    EXPECT_EQ(gc.expansion(), 1 + 5 + 1);
    EXPECT_EQ(gc.whatLabel(0), 1);
    EXPECT_EQ(gc.whatLabel(1), 0);
    EXPECT_EQ(gc.whatLabel(2), 1);
}

// ---- energy bookkeeping ------------------------------------------------------------------

TEST(GraphCut, EnergyIsTheSumOfItsPartsAndCountsEachGivenPair)
{
    GCoptimizationGeneralGraph gc(3, 2);
    int data[] = {1, 2, 3, 4, 5, 6};
    // Asymmetric on purpose: the higher-numbered site's label indexes the row.
    int smooth[] = {0, 3, 7, 0};
    gc.setDataCost(data);
    gc.setSmoothCost(smooth);
    gc.setNeighbors(0, 1, 2);
    gc.setNeighbors(1, 0, 1); // the same pair from the other end: counted again
    gc.setNeighbors(1, 2, 5);
    const int cost[] = {10, 20};
    gc.setLabelCost(cost);
    gc.setLabel(1, 1);
    // Sites 0, 1, 2 on 0, 1, 0: data 1 + 4 + 5; pairs (1,0) twice with weights
    // 2 and 1 read smooth[1][0] = 7; (2,1) reads smooth[0][1] = 3.
    EXPECT_EQ(gc.giveDataEnergy(), 10);
    EXPECT_EQ(gc.giveSmoothEnergy(), 2 * 7 + 1 * 7 + 5 * 3);
    EXPECT_EQ(gc.giveLabelEnergy(), 30);
    EXPECT_EQ(gc.computeEnergy(), 10 + 36 + 30);
}

TEST(GraphCut, AllNeighboursAtOnceActLikeOneByOne)
{
    std::mt19937 rng(8);
    for (int round = 0; round < 20; ++round) {
        const Problem p = randomProblem(rng, 8, 3, Metric::Potts);
        Solver ref(p);
        GCoptimizationGeneralGraph gc(p.sites, p.labels);
        std::vector<int> data = p.data;
        gc.setDataCost(data.data());
        std::vector<std::vector<std::pair<int, int>>> lists(size_t(p.sites));
        for (const auto& pr : p.pairs) {
            lists[size_t(pr[0])].push_back({pr[1], pr[2]});
            lists[size_t(pr[1])].push_back({pr[0], pr[2]});
        }
        // The solver takes these arrays over and deletes them.
        GC::SiteID* counts = new GC::SiteID[p.sites];
        GC::SiteID** indexes = new GC::SiteID*[p.sites];
        GC::EnergyTermType** weights = new GC::EnergyTermType*[p.sites];
        for (int s = 0; s < p.sites; ++s) {
            counts[s] = GC::SiteID(lists[size_t(s)].size());
            indexes[s] = new GC::SiteID[size_t(counts[s])];
            weights[s] = new GC::EnergyTermType[size_t(counts[s])];
            for (int k = 0; k < counts[s]; ++k) {
                indexes[s][k] = lists[size_t(s)][size_t(k)].first;
                weights[s][k] = lists[size_t(s)][size_t(k)].second;
            }
        }
        gc.setAllNeighbors(counts, indexes, weights);
        EXPECT_EQ(gc.expansion(10), ref.gc->expansion(10));
        for (int s = 0; s < p.sites; ++s)
            EXPECT_EQ(gc.whatLabel(s), ref.gc->whatLabel(s));
    }
}

// ---- label costs -------------------------------------------------------------------------

TEST(GraphCut, LabelCostsArePaidOnceAndCanEmptyALabel)
{
    std::mt19937 rng(9);
    for (int round = 0; round < 200; ++round) {
        Problem p = randomProblem(rng, 2 + round % 7, 3, Metric::Potts);
        std::uniform_int_distribution<int> cost(0, 40);
        if (round % 2) {
            for (int l = 0; l < 3; ++l)
                p.labelCosts.push_back({{l}, cost(rng)});
        } else {
            p.labelCosts.push_back({{0, 2}, cost(rng)});
            p.labelCosts.push_back({{1}, cost(rng)});
            p.labelCosts.push_back({{1, 2}, cost(rng)});
        }
        Solver s(p);
        const long long initial = p.energy(s.labels());
        const GC::EnergyType e = s.gc->expansion(round % 3 ? -1 : 20);
        ASSERT_EQ(e, p.energy(s.labels())) << "round " << round;
        EXPECT_EQ(s.gc->giveLabelEnergy(), e - s.gc->giveDataEnergy() - s.gc->giveSmoothEnergy());
        EXPECT_LE(e, initial);
        for (int l = 0; l < 3; ++l)
            EXPECT_FALSE(s.gc->alpha_expansion(l)) << "round " << round;
    }
}

TEST(GraphCut, ALabelWhoseCostOutweighsItsGainIsGivenUp)
{
    // Three sites in a chain; label 1 saves each site 2 but costs 10.
    GCoptimizationGeneralGraph gc(3, 2);
    int data[] = {5, 3, 5, 3, 5, 3};
    gc.setDataCost(data);
    gc.setNeighbors(0, 1);
    gc.setNeighbors(1, 2);
    const int dear[] = {0, 10};
    gc.setLabelCost(dear);
    EXPECT_EQ(gc.expansion(), 15);
    for (int s = 0; s < 3; ++s)
        EXPECT_EQ(gc.whatLabel(s), 0);
    // Cheaper, it pays: all three move together, saving 6 for 4.
    GCoptimizationGeneralGraph cheap(3, 2);
    cheap.setDataCost(data);
    cheap.setNeighbors(0, 1);
    cheap.setNeighbors(1, 2);
    const int low[] = {0, 4};
    cheap.setLabelCost(low);
    const GC::LabelID one = 1;
    cheap.setLabelSubsetCost(&one, 1, 4); // the same set again only overwrites
    EXPECT_EQ(cheap.expansion(), 9 + 4);
    EXPECT_EQ(cheap.giveLabelEnergy(), 4);
    // A new set at cost 0 records nothing.
    const GC::LabelID both[] = {0, 1};
    cheap.setLabelSubsetCost(both, 2, 0);
    EXPECT_EQ(cheap.computeEnergy(), 13);
}

TEST(GraphCut, WithoutNeighboursLabelCostsOpenLabelsGreedily)
{
    // Label 0 serves everyone for 30 + 0; label 2 serves sites 2 and 3 much
    // better and opens; label 1 would save 1 for a cost of 5 and stays shut.
    GCoptimizationGeneralGraph gc(4, 3);
    int data[] = {5, 4, 20, 5, 4, 20, 9, 9, 0, 9, 9, 0};
    gc.setDataCost(data);
    const int cost[] = {2, 5, 3};
    gc.setLabelCost(cost);
    Lines lines;
    gc.setDebugSink(lines.sink());
    gc.setVerbosity(1);
    EXPECT_EQ(gc.expansion(), 5 + 5 + 0 + 0 + 2 + 3);
    EXPECT_EQ(lines.count("gco>> starting greedy algorithm (1 cycle only)"), 1);
    const int want[] = {0, 0, 2, 2};
    for (int s = 0; s < 4; ++s)
        EXPECT_EQ(gc.whatLabel(s), want[s]);
}

TEST(GraphCut, WithoutAnyCostButLabelCostsTheCheapestLabelTakesAll)
{
    GCoptimizationGeneralGraph gc(5, 3);
    const int cost[] = {7, 2, 4};
    gc.setLabelCost(cost);
    EXPECT_EQ(gc.expansion(), 2);
    for (int s = 0; s < 5; ++s)
        EXPECT_EQ(gc.whatLabel(s), 1);
    GCoptimizationGeneralGraph none(5, 3);
    EXPECT_EQ(none.expansion(), 0);
}

// ---- special cases, cycles and ties ----------------------------------------------------------

TEST(GraphCut, OneSiteWithoutNeighboursTakesTheCheaperLabelTheFirstOnATie)
{
    GCoptimizationGeneralGraph a(1, 2);
    int cheaperSecond[] = {4, 3};
    a.setDataCost(cheaperSecond);
    EXPECT_EQ(a.expansion(), 3);
    EXPECT_EQ(a.whatLabel(0), 1);
    GCoptimizationGeneralGraph b(1, 2);
    int tie[] = {3, 3};
    b.setDataCost(tie);
    b.setLabel(0, 1);
    EXPECT_EQ(b.swap(), 3);
    EXPECT_EQ(b.whatLabel(0), 0);
}

TEST(GraphCut, EqualCostsEndAfterOneCycleWithNothingMoved)
{
    GCoptimizationGeneralGraph gc(4, 3);
    std::vector<int> data(12, 2);
    gc.setDataCost(data.data());
    for (int s = 0; s + 1 < 4; ++s)
        gc.setNeighbors(s, s + 1);
    Lines lines;
    gc.setDebugSink(lines.sink());
    gc.setVerbosity(1);
    EXPECT_EQ(gc.expansion(10), 8);
    EXPECT_EQ(lines.count("gco>> after cycle"), 1);
    for (int s = 0; s < 4; ++s)
        EXPECT_EQ(gc.whatLabel(s), 0);
}

// The cut leaves a site whose two choices cost the same on the source side,
// so in a move that lowers the energy elsewhere it takes alpha: with a smooth
// table of ones the tied site ends on the last of its cheapest labels tried.
TEST(GraphCut, ATiedSiteTakesAlphaWhenTheMoveIsApplied)
{
    GCoptimizationGeneralGraph gc(2, 3);
    int data[] = {5, 3, 3, 5, 5, 1};
    int ones[] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    gc.setDataCost(data);
    gc.setSmoothCost(ones);
    gc.setNeighbors(0, 1);
    EXPECT_EQ(gc.expansion(5), 3 + 1 + 1);
    EXPECT_EQ(gc.whatLabel(0), 2);
    EXPECT_EQ(gc.whatLabel(1), 2);
    // A move with nothing but ties is not applied: the comparison is strict.
    GCoptimizationGeneralGraph still(2, 3);
    int flat[] = {3, 3, 3, 3, 3, 3};
    still.setDataCost(flat);
    still.setSmoothCost(ones);
    still.setNeighbors(0, 1);
    EXPECT_FALSE(still.alpha_expansion(1));
    EXPECT_EQ(still.whatLabel(0), 0);
}

TEST(GraphCut, CycleCountIsACeiling)
{
    // Find a problem that needs at least three cycles, then allow two.
    std::mt19937 rng(10);
    for (int round = 0; round < 2000; ++round) {
        const Problem p = randomProblem(rng, 8, 3, Metric::TruncatedLinear);
        Solver full(p);
        Lines lines;
        full.gc->setDebugSink(lines.sink());
        full.gc->setVerbosity(1);
        full.gc->expansion(100);
        if (lines.count("gco>> after cycle") < 4) // three that change and one that does not
            continue;
        std::string second;
        for (const std::string& l : lines.all)
            if (l.rfind("gco>> after cycle  2:", 0) == 0)
                second = l.substr(0, l.find(" ("));
        Solver capped(p);
        Lines cappedLines;
        capped.gc->setDebugSink(cappedLines.sink());
        capped.gc->setVerbosity(1);
        const GC::EnergyType e = capped.gc->expansion(2);
        EXPECT_EQ(cappedLines.count("gco>> after cycle"), 2);
        EXPECT_EQ(second, "gco>> after cycle  2: \tE=" + std::to_string(e));
        return;
    }
    FAIL() << "no problem needed three cycles";
}

TEST(GraphCut, LabelOrderLimitsTheLabelsTried)
{
    std::mt19937 rng(12);
    const Problem p = randomProblem(rng, 8, 3, Metric::Potts);
    Solver s(p);
    const GC::LabelID order[] = {0, 2};
    s.gc->setLabelOrder(order, 2);
    s.gc->expansion(10);
    for (int site = 0; site < p.sites; ++site)
        EXPECT_NE(s.gc->whatLabel(site), 1);
    EXPECT_FALSE(s.gc->alpha_expansion(-1)); // a disabled slot's move fails

    // A shuffled order still ends in a local minimum.
    std::srand(5);
    Solver r(p);
    r.gc->setLabelOrder(true);
    const GC::EnergyType e = r.gc->expansion(-1);
    EXPECT_EQ(e, p.energy(r.labels()));
    for (int l = 0; l < 3; ++l)
        EXPECT_FALSE(r.gc->alpha_expansion(l));
}

TEST(GraphCut, DebugLinesGoToTheSinkOnly)
{
    std::mt19937 rng(13);
    const Problem p = randomProblem(rng, 6, 3, Metric::Potts);
    Solver quiet(p);
    Lines lines;
    quiet.gc->setDebugSink(lines.sink());
    quiet.gc->expansion(1);
    // At verbosity 0 only the slot numbers of a standard cycle come through.
    EXPECT_EQ(lines.all, (std::vector<std::string>{"0\n", "1\n", "2\n"}));

    Solver chatty(p);
    Lines more;
    chatty.gc->setDebugSink(more.sink());
    chatty.gc->setVerbosity(2);
    chatty.gc->expansion(1);
    EXPECT_EQ(more.count("gco>> starting alpha-expansion w/ standard cycles"), 1);
    EXPECT_EQ(more.count("gco>> initial energy: \tE="), 1);
    EXPECT_EQ(more.count("gco>>   after expansion("), 2); // label 0 has nothing to move
    EXPECT_EQ(more.count("gco>> after cycle  1: \tE="), 1);
}

// ---- grid ----------------------------------------------------------------------------

namespace {
std::vector<int> neighboursOf(GCoptimizationGridGraph& g, int s)
{
    GC::SiteID n = 0;
    const GC::SiteID* nb = nullptr;
    const GC::EnergyTermType* w = nullptr;
    g.giveNeighborInfo(s, &n, &nb, &w);
    return std::vector<int>(nb, nb + n);
}
} // namespace

TEST(GraphCut, GridNeighboursComeInTheirFixedOrder)
{
    GCoptimizationGridGraph g(4, 3, 2);                            // sites 0..11, row = s / 4
    EXPECT_EQ(neighboursOf(g, 5), (std::vector<int>{4, 6, 1, 9})); // inside: -1, +1, -w, +w
    EXPECT_EQ(neighboursOf(g, 4), (std::vector<int>{5, 0, 8}));    // left edge
    EXPECT_EQ(neighboursOf(g, 7), (std::vector<int>{6, 3, 11}));   // right edge
    EXPECT_EQ(neighboursOf(g, 1), (std::vector<int>{2, 0, 5}));    // top edge: +1, -1, +w
    EXPECT_EQ(neighboursOf(g, 9), (std::vector<int>{10, 8, 5}));   // bottom edge: +1, -1, -w
    EXPECT_EQ(neighboursOf(g, 0), (std::vector<int>{1, 4}));       // corners
    EXPECT_EQ(neighboursOf(g, 3), (std::vector<int>{2, 7}));
    EXPECT_EQ(neighboursOf(g, 8), (std::vector<int>{9, 4}));
    EXPECT_EQ(neighboursOf(g, 11), (std::vector<int>{10, 7}));
    GCoptimizationGridGraph column(1, 3, 2), row(3, 1, 2);
    EXPECT_EQ(neighboursOf(column, 1), (std::vector<int>{0, 2}));
    EXPECT_EQ(neighboursOf(row, 1), (std::vector<int>{2, 0}));
}

// A weighted grid is the general graph with the same pairs.
TEST(GraphCut, AWeightedGridSolvesLikeTheGeneralGraphOfItsPairs)
{
    std::mt19937 rng(14);
    const int w = 7, h = 5, labels = 3, n = w * h;
    std::vector<int> data(static_cast<size_t>(n * labels)), horizontal(static_cast<size_t>(n)),
        vertical(static_cast<size_t>(n));
    for (int& d : data)
        d = int(rng() % 20);
    for (int s = 0; s < n; ++s) {
        horizontal[size_t(s)] = 1 + int(rng() % 5);
        vertical[size_t(s)] = 1 + int(rng() % 5);
    }
    GCoptimizationGridGraph grid(w, h, labels);
    GCoptimizationGeneralGraph general(n, labels);
    grid.setDataCost(data.data());
    general.setDataCost(data.data());
    grid.setNeighborWeights(horizontal.data(), vertical.data());
    for (int s = 0; s < n; ++s) {
        if (s % w + 1 < w)
            general.setNeighbors(s, s + 1, horizontal[size_t(s)]);
        if (s + w < n)
            general.setNeighbors(s, s + w, vertical[size_t(s)]);
    }
    for (int s = 0; s < n; ++s) {
        grid.setLabel(s, s % labels);
        general.setLabel(s, s % labels);
    }
    EXPECT_EQ(grid.computeEnergy(), general.computeEnergy());
    EXPECT_EQ(grid.expansion(10), general.expansion(10));
    for (int s = 0; s < n; ++s)
        EXPECT_EQ(grid.whatLabel(s), general.whatLabel(s));
}

// ---- errors ----------------------------------------------------------------------------

TEST(GraphCut, ErrorsThrowTheirTexts)
{
    EXPECT_EQ(thrownBy([] { GCoptimizationGeneralGraph(0, 1); }), "Number of labels must be >= 2");
    EXPECT_EQ(thrownBy([] { GCoptimizationGeneralGraph(0, 2); }), "Number of sites must be >= 1");
    EXPECT_EQ(thrownBy([] { GCoptimizationGridGraph(0, 5, 1); }), "Number of labels must be >= 2");
    EXPECT_EQ(thrownBy([] { GCoptimizationGridGraph(3, 0, 2); }), "Number of sites must be >= 1");

    const std::string already = "Already set up neighborhood system.";
    EXPECT_EQ(thrownBy([&] {
                  GCoptimizationGeneralGraph gc(3, 2);
                  gc.setNeighbors(0, 1);
                  gc.expansion(1);
                  gc.setNeighbors(1, 2);
              }),
              already);
    EXPECT_EQ(thrownBy([&] {
                  GCoptimizationGeneralGraph gc(2, 2);
                  gc.setNeighbors(0, 1);
                  gc.setAllNeighbors(
                      new GC::SiteID[2]{0, 0}, new GC::SiteID* [2] {}, new GC::EnergyTermType* [2] {});
              }),
              already);

    // Terms above the limit, each in the move that meets it first.
    auto twoSites = [](int* data, int* smooth, int weight) {
        GCoptimizationGeneralGraph gc(2, 2);
        gc.setDataCost(data);
        if (smooth)
            gc.setSmoothCost(smooth);
        gc.setNeighbors(0, 1, weight);
        gc.expansion(1);
    };
    int big[] = {0, 10000001, 0, 0}, fine[] = {0, 5, 5, 0};
    EXPECT_EQ(thrownBy([&] { twoSites(big, nullptr, 1); }),
              "Data cost term was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.");
    int smoothBig[] = {0, 10000001, 10000001, 0};
    EXPECT_EQ(thrownBy([&] { twoSites(fine, smoothBig, 1); }),
              "Smooth cost term was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.");
    EXPECT_EQ(thrownBy([&] { twoSites(fine, nullptr, 10000001); }),
              "Smoothness weight was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.");
    EXPECT_EQ(thrownBy([] {
                  GCoptimizationGeneralGraph gc(1, 2);
                  int data[] = {10000001, 10000002};
                  gc.setDataCost(data);
                  gc.expansion();
              }),
              "Data cost was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.");

    // Not a metric (0 to 2 costs more than through 1): the unweighted terms
    // are reported before the throw.
    Lines lines;
    EXPECT_EQ(thrownBy([&] {
                  GCoptimizationGeneralGraph gc(2, 3);
                  int smooth[] = {0, 1, 5, 1, 0, 1, 5, 1, 0};
                  gc.setSmoothCost(smooth);
                  gc.setDebugSink(lines.sink());
                  gc.setNeighbors(0, 1);
                  gc.setLabel(1, 2);
                  gc.alpha_expansion(1);
              }),
              "Non-submodular expansion term detected; smooth costs must be a metric for expansion");
    EXPECT_EQ(lines.all, (std::vector<std::string>{"-E-0-1-1-5-addterm2_checked\n"}));

    // A table of ones, the diagonal too, is accepted.
    int ones[] = {1, 1, 1, 1};
    EXPECT_EQ(thrownBy([&] { twoSites(fine, ones, 1); }), "(nothing thrown)");

    GC::SparseDataCost outside[] = {{0, 1}, {3, 1}}, unsorted[] = {{1, 1}, {1, 2}};
    EXPECT_EQ(thrownBy([&] {
                  GCoptimizationGeneralGraph gc(3, 2);
                  gc.setDataCost(0, outside, 2);
              }),
              "Invalid site id given for sparse data cost; must be within range.");
    EXPECT_EQ(thrownBy([&] {
                  GCoptimizationGeneralGraph gc(3, 2);
                  gc.setDataCost(0, unsorted, 2);
              }),
              "Sparse data costs must be sorted in increasing order of SiteID");
    EXPECT_EQ(thrownBy([&] {
                  GCoptimizationGeneralGraph gc(3, 2);
                  gc.setDataCost(0, 1, 1);
                  gc.setDataCost(0, outside, 1);
              }),
              "Cannot apply sparse data costs after dense data costs have been used.");

    const GC::LabelID wrong[] = {0, 2};
    EXPECT_EQ(thrownBy([] { GCoptimizationGeneralGraph(2, 2).setLabelCost(-1); }), "Label costs must be non-negative.");
    EXPECT_EQ(thrownBy([] { GCoptimizationGeneralGraph(2, 2).setLabelCost(10000001); }),
              "Label cost was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.");
    EXPECT_EQ(thrownBy([&] { GCoptimizationGeneralGraph(2, 2).setLabelSubsetCost(wrong, 2, 1); }),
              "Invalid label id was found in label subset list.");
    EXPECT_EQ(thrownBy([&] { GCoptimizationGeneralGraph(2, 2).setLabelOrder(wrong, 3); }),
              "setLabelOrder receieved too many labels");
    EXPECT_EQ(thrownBy([&] { GCoptimizationGeneralGraph(2, 2).setLabelOrder(wrong, 2); }),
              "Invalid label id in setLabelOrder");
    EXPECT_EQ(thrownBy([] {
                  GCoptimizationGeneralGraph gc(2, 2);
                  gc.setNeighbors(0, 1);
                  gc.setLabelCost(1);
                  gc.swap();
              }),
              "Label costs only implemented for alpha-expansion.");
}

TEST(GraphCut, ReportPrintsTheMessageAndReturns)
{
    testing::internal::CaptureStdout();
    GCException("Not enough memory!").Report();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nNot enough memory!\n");
}
