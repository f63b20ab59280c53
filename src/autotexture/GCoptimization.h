#pragma once

// Multi-label energy minimisation by graph cuts: alpha-expansion and
// alpha-beta swap over a general or a 4-connected grid neighbourhood, with
// data, smooth and label costs, in 32-bit integers. The solver knows nothing
// of what its sites and labels stand for.
//
// E = sum of data(site, label) + sum over neighbour pairs of weight * smooth
//     + the costs of the label sets in use.
//
// Every failure throws GCException with a literal message; after one the
// object is not to be used again. Debug and progress lines go to a sink that
// is off until setDebugSink is called.

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "autotexture/GCException.h"
#include "scene/KvoExport.h"

class QV_EXPORT GCoptimization {
public:
    typedef int32_t EnergyTermType;
    typedef int32_t EnergyType;
    typedef int32_t SiteID;
    typedef int32_t LabelID;

    // The largest term accepted; it keeps sums of terms inside 32 bits for
    // problems of a realistic size. An absent sparse data cost reads as it.
    static constexpr EnergyTermType GCO_MAX_ENERGYTERM = 10000000;

    struct SparseDataCost {
        SiteID site;
        EnergyTermType cost;
    };
    typedef EnergyTermType (*DataCostFn)(SiteID s, LabelID l);
    typedef EnergyTermType (*DataCostFnExtra)(SiteID s, LabelID l, void* extra);
    typedef EnergyTermType (*SmoothCostFn)(SiteID s1, SiteID s2, LabelID l1, LabelID l2);
    typedef EnergyTermType (*SmoothCostFnExtra)(SiteID s1, SiteID s2, LabelID l1, LabelID l2, void* extra);
    class QV_EXPORT DataCostFunctor {
    public:
        virtual ~DataCostFunctor();
        virtual EnergyTermType compute(SiteID s, LabelID l) = 0;
    };
    class QV_EXPORT SmoothCostFunctor {
    public:
        virtual ~SmoothCostFunctor();
        virtual EnergyTermType compute(SiteID s1, SiteID s2, LabelID l1, LabelID l2) = 0;
    };

    virtual ~GCoptimization();
    GCoptimization(const GCoptimization&) = delete;
    GCoptimization& operator=(const GCoptimization&) = delete;

    // Alpha-expansion cycles: at most maxCycles, ending early on a cycle that
    // leaves the energy as it was; -1 for adaptive cycles. The final energy.
    EnergyType expansion(int maxCycles = -1);
    // One expansion move; true when it lowered the energy.
    bool alpha_expansion(LabelID alpha);
    // Alpha-beta swap cycles, while the energy falls; -1 for no ceiling.
    EnergyType swap(int maxCycles = -1);
    // One swap move between two labels; true when it lowered the energy.
    bool alpha_beta_swap(LabelID alpha, LabelID beta);

    // Data costs. A table is entry site * numLabels + label and stays the
    // caller's: it must outlive the solver's use of it. The entry-wise form
    // fills a table of the solver's own, zero at first.
    void setDataCost(EnergyTermType* dataArray);
    void setDataCost(DataCostFn fn);
    void setDataCost(DataCostFnExtra fn, void* extra);
    void setDataCost(DataCostFunctor* functor);
    void setDataCost(SiteID s, LabelID l, EnergyTermType e);
    // Sparse data costs of one label: sites strictly rising; the pairs are
    // copied. A site without a pair cannot take the label.
    void setDataCost(LabelID l, SparseDataCost* costs, SiteID count);

    // Smooth costs; Potts (1 where the labels differ) until one is set. A
    // table is entry label1 * numLabels + label2, the caller's as above.
    void setSmoothCost(EnergyTermType* smoothArray);
    void setSmoothCost(SmoothCostFn fn);
    void setSmoothCost(SmoothCostFnExtra fn, void* extra);
    void setSmoothCost(SmoothCostFunctor* functor);
    void setSmoothCost(LabelID l1, LabelID l2, EnergyTermType e);

    // Label costs: paid once when any site holds a label of the set.
    void setLabelCost(EnergyTermType cost);
    void setLabelCost(const EnergyTermType* costArray);
    void setLabelSubsetCost(const LabelID* labels, LabelID count, EnergyTermType cost);

    EnergyType computeEnergy();
    EnergyType giveDataEnergy();
    EnergyType giveSmoothEnergy();
    EnergyType giveLabelEnergy();

    SiteID numSites() const { return m_numSites; }
    LabelID numLabels() const { return m_numLabels; }
    LabelID whatLabel(SiteID s) const { return m_labeling[s]; }
    void whatLabel(SiteID start, SiteID count, LabelID* out) const;
    void setLabel(SiteID s, LabelID l);
    // A fixed order of the labels in a cycle; labels left out are not tried.
    void setLabelOrder(const LabelID* order, LabelID size);
    // Random order (shuffled with rand() before cycles) or the identity.
    void setLabelOrder(bool random);
    // 0 silent, 1 a line a cycle, 2 a line a move.
    void setVerbosity(int level) { m_verbosity = level; }
    void setDebugSink(std::function<void(const char*)> sink) { m_sink = std::move(sink); }

    // The neighbours of a site with their weights; the arrays stay the solver's.
    virtual void giveNeighborInfo(SiteID site, SiteID* count, const SiteID** neighbors,
                                  const EnergyTermType** weights) = 0;

protected:
    GCoptimization(SiteID numSites, LabelID numLabels);
    virtual void finalizeNeighbors() = 0;
    // The neighbourhood as flat arrays for the inner loops: site s has
    // counts[s] neighbours at indexes + starts[s]; weights null means 1.
    void setNeighborTable(const SiteID* counts, const int64_t* starts, const SiteID* indexes,
                          const EnergyTermType* weights);

private:
    // The bound cost object and what releases it; the bound operations know its type.
    typedef std::unique_ptr<void, void (*)(void*)> CostPtr;
    struct MoveGraph;
    struct LabelCostRecord {
        EnergyTermType cost;
        bool active; // a site holds one of the labels
        int aux;     // variable of the running move; -1 none, -2 stays in use
        std::vector<LabelID> labels;
    };
    enum class DataKind { None, Array, Owned, Fn, FnExtra, Functor, Sparse };
    enum class SmoothKind { Potts, Array, Owned, Fn, FnExtra, Functor };

    typedef bool (GCoptimization::*SpecialCasesOp)(EnergyType& energy);
    typedef SiteID (GCoptimization::*ActiveSitesOp)(LabelID alpha, SiteID* out);
    typedef void (GCoptimization::*SetupExpansionOp)(SiteID n, LabelID alpha, MoveGraph& g, const SiteID* active);
    typedef void (GCoptimization::*SetupSwapOp)(SiteID n, LabelID alpha, LabelID beta, MoveGraph& g,
                                                const SiteID* active);
    typedef void (GCoptimization::*ApplyOp)(const MoveGraph& g, const SiteID* active, SiteID n, LabelID alpha,
                                            LabelID beta);
    typedef void (GCoptimization::*UpdateOp)();
    typedef EnergyType (GCoptimization::*EnergyOp)();

    template <class D> QV_GC_HIDDEN void bindData(D* cost, CostPtr owner, DataKind kind);
    template <class S> QV_GC_HIDDEN void bindSmooth(S* cost, CostPtr owner, SmoothKind kind);
    template <class D> QV_GC_HIDDEN bool solveSpecialCases(EnergyType& energy);
    template <class D> QV_GC_HIDDEN EnergyType solveGreedy();
    template <class D> QV_GC_HIDDEN SiteID queryActiveSitesExpansion(LabelID alpha, SiteID* out);
    template <class D>
    QV_GC_HIDDEN void setupDataCostsExpansion(SiteID n, LabelID alpha, MoveGraph& g, const SiteID* active);
    template <class D>
    QV_GC_HIDDEN void setupDataCostsSwap(SiteID n, LabelID alpha, LabelID beta, MoveGraph& g, const SiteID* active);
    template <class D>
    QV_GC_HIDDEN void applyNewLabeling(const MoveGraph& g, const SiteID* active, SiteID n, LabelID alpha, LabelID beta);
    template <class D> QV_GC_HIDDEN void updateLabelingDataCosts();
    template <class S> QV_GC_HIDDEN EnergyType giveSmoothEnergyOf();
    template <class S>
    QV_GC_HIDDEN void setupSmoothCostsExpansion(SiteID n, LabelID alpha, MoveGraph& g, const SiteID* active);
    template <class S>
    QV_GC_HIDDEN void setupSmoothCostsSwap(SiteID n, LabelID alpha, LabelID beta, MoveGraph& g, const SiteID* active);

    QV_GC_HIDDEN void addTerm2Checked(MoveGraph& g, int x, int y, EnergyTermType A, EnergyTermType B, EnergyTermType C,
                                      EnergyTermType D, EnergyTermType w);
    QV_GC_HIDDEN int64_t setupLabelCostsExpansion(SiteID n, LabelID alpha, MoveGraph& g, const SiteID* active);
    QV_GC_HIDDEN void updateLabelCostActivity();
    QV_GC_HIDDEN void updateLabelingInfo();
    QV_GC_HIDDEN void permuteLabelTable();
    QV_GC_HIDDEN EnergyType oneExpansionCycle();
    QV_GC_HIDDEN void say(const char* fmt, ...) const __attribute__((format(printf, 2, 3)));
    QV_GC_HIDDEN void printInitialEnergy(EnergyType total);
    QV_GC_HIDDEN void printCycle(int cycle, EnergyType total, const char* moves, double ms);
    QV_GC_HIDDEN void printMove(const char* head, int64_t vars, double ms);

    SiteID m_numSites;
    LabelID m_numLabels;
    std::vector<LabelID> m_labeling;
    std::vector<int32_t> m_lookupSiteVar;
    std::vector<LabelID> m_labelTable;
    int m_stepsThisCycle = 0;
    int m_stepsThisCycleTotal = 0;
    bool m_randomLabelOrder = false;
    std::vector<EnergyTermType> m_labelingDataCosts;
    std::vector<SiteID> m_labelCounts;
    std::vector<SiteID> m_activeLabelCounts;
    std::vector<LabelCostRecord> m_labelCosts;
    std::vector<std::vector<int>> m_labelCostsByLabel;
    bool m_labelingInfoDirty = true;
    int m_verbosity = 0;
    std::function<void(const char*)> m_sink;

    DataKind m_dataKind = DataKind::None;
    SmoothKind m_smoothKind = SmoothKind::Potts;
    CostPtr m_dataCost{nullptr, nullptr};
    CostPtr m_smoothCost{nullptr, nullptr};
    void* m_dataObj = nullptr;
    void* m_smoothObj = nullptr;
    int64_t m_beforeExpansionEnergy = 0;

    const SiteID* m_numNeighbors = nullptr;
    const int64_t* m_nbStart = nullptr;
    const SiteID* m_nbIndex = nullptr;
    const EnergyTermType* m_nbWeight = nullptr;
    int64_t m_numNeighborsTotal = 0;

    SpecialCasesOp m_solveSpecialCases = nullptr;
    ActiveSitesOp m_queryActiveSitesExpansion = nullptr;
    SetupExpansionOp m_setupDataCostsExpansion = nullptr;
    SetupExpansionOp m_setupSmoothCostsExpansion = nullptr;
    SetupSwapOp m_setupDataCostsSwap = nullptr;
    SetupSwapOp m_setupSmoothCostsSwap = nullptr;
    ApplyOp m_applyNewLabeling = nullptr;
    UpdateOp m_updateLabelingDataCosts = nullptr;
    EnergyOp m_giveSmoothEnergy = nullptr;
};

// Any neighbourhood: pairs are given one by one (or all at once) before the
// first solve.
class QV_EXPORT GCoptimizationGeneralGraph : public GCoptimization {
public:
    GCoptimizationGeneralGraph(SiteID numSites, LabelID numLabels);
    ~GCoptimizationGeneralGraph() override;

    // s2 becomes a neighbour of s1 and s1 of s2, both with this weight. A
    // pair given twice counts twice.
    void setNeighbors(SiteID s1, SiteID s2, EnergyTermType weight = 1);
    // The whole neighbourhood at once: site s has counts[s] neighbours in
    // indexes[s] with weights[s]. The solver takes the arrays over; they must
    // come from new[] (the outer ones and each inner one), and it deletes them.
    void setAllNeighbors(SiteID* counts, SiteID** indexes, EnergyTermType** weights);

    void giveNeighborInfo(SiteID site, SiteID* count, const SiteID** neighbors,
                          const EnergyTermType** weights) override;

protected:
    void finalizeNeighbors() override;

private:
    struct Pair {
        SiteID from, to;
        EnergyTermType weight;
    };
    std::vector<Pair> m_pending; // both directions of every pair set so far
    std::vector<SiteID> m_counts;
    std::vector<int64_t> m_starts;
    std::vector<SiteID> m_neighborsIndexes;
    std::vector<EnergyTermType> m_neighborsWeights;
    bool m_needToFinishSettingNeighbors = true;
    bool m_neighborsMayBeSet = true;
};

// A width x height image grid, 4-connected, site s at row s / width. The
// neighbours of a site come in a fixed order: -1, +1, -width, +width inside;
// the top and bottom rows list +1, -1 first; what does not exist is left out.
class QV_EXPORT GCoptimizationGridGraph : public GCoptimization {
public:
    GCoptimizationGridGraph(SiteID width, SiteID height, LabelID numLabels);
    ~GCoptimizationGridGraph() override;

    // Weights of the pairs (s, s + 1) in horizontal[s] and (s, s + width) in
    // vertical[s]; copied. Without them every pair weighs 1.
    void setNeighborWeights(const EnergyTermType* horizontal, const EnergyTermType* vertical);

    void giveNeighborInfo(SiteID site, SiteID* count, const SiteID** neighbors,
                          const EnergyTermType** weights) override;

protected:
    void finalizeNeighbors() override {}

private:
    SiteID m_width, m_height;
    EnergyTermType m_unityWeights[4] = {1, 1, 1, 1};
    bool m_weightedGraph = false;
    std::vector<SiteID> m_counts;
    std::vector<int64_t> m_starts;
    std::vector<SiteID> m_neighbors; // four slots a site
    std::vector<EnergyTermType> m_neighborsWeights;
};
