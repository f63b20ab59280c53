#include "autotexture/GCoptimization.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <numeric>
#include <type_traits>

#include "autotexture/KvoMaxFlow.h"

GCException::~GCException() = default;

void GCException::Report() const
{
    std::printf("\n%s\n", message);
    std::fflush(stdout);
}

GCoptimization::DataCostFunctor::~DataCostFunctor() = default;
GCoptimization::SmoothCostFunctor::~SmoothCostFunctor() = default;

namespace {

using Term = GCoptimization::EnergyTermType;
using SiteID = GCoptimization::SiteID;
using LabelID = GCoptimization::LabelID;
using Clock = std::chrono::steady_clock;

constexpr Term kMaxTerm = GCoptimization::GCO_MAX_ENERGYTERM;
// The weights of an unweighted grid site: at most four neighbours.
const Term kUnitWeights[4] = {1, 1, 1, 1};

const char* const kDataTermTooLarge = "Data cost term was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.";
const char* const kSmoothTermTooLarge =
    "Smooth cost term was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.";
const char* const kWeightTooLarge = "Smoothness weight was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.";
const char* const kNotEnoughMemory = "Not enough memory.";
const char* const kAlreadySetUp = "Already set up neighborhood system.";

double msSince(Clock::time_point t0)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

template <class T> void deleteAs(void* p)
{
    delete static_cast<T*>(p);
}

// ---- data cost kinds: each answers compute(site, label) inline -------------

struct DataNone {
    Term compute(SiteID, LabelID) const { return 0; }
};

struct DataArray {
    const Term* table;
    LabelID numLabels;
    Term compute(SiteID s, LabelID l) const { return table[int64_t(s) * numLabels + l]; }
};

struct DataOwned : DataArray {
    std::vector<Term> storage;
};

struct DataFn {
    GCoptimization::DataCostFn fn;
    Term compute(SiteID s, LabelID l) const { return fn(s, l); }
};

struct DataFnExtra {
    GCoptimization::DataCostFnExtra fn;
    void* extra;
    Term compute(SiteID s, LabelID l) const { return fn(s, l, extra); }
};

struct DataFunctor {
    GCoptimization::DataCostFunctor* functor;
    Term compute(SiteID s, LabelID l) const { return functor->compute(s, l); }
};

// Per label the (site, cost) pairs in rising site order, cut into buckets of
// 512 consecutive site numbers. Lookups come mostly in rising site order
// within one label, so each bucket remembers where the last one ended.
struct DataSparse {
    static constexpr int kBucketBits = 9;
    static constexpr int kBucketSize = 1 << kBucketBits;
    struct Bucket {
        int32_t begin, end, predict;
    };

    int32_t numBuckets;
    std::vector<std::vector<GCoptimization::SparseDataCost>> pairs;
    std::vector<std::vector<Bucket>> buckets;

    DataSparse(SiteID numSites, LabelID numLabels)
        : numBuckets(int32_t((int64_t(numSites) + kBucketSize - 1) / kBucketSize)), pairs(size_t(numLabels)),
          buckets(size_t(numLabels))
    {
    }

    void set(LabelID l, const GCoptimization::SparseDataCost* costs, SiteID count)
    {
        pairs[size_t(l)].assign(costs, costs + count);
        std::vector<Bucket>& bk = buckets[size_t(l)];
        bk.assign(size_t(numBuckets), Bucket{0, 0, 0});
        int32_t k = 0;
        for (int32_t b = 0; b < numBuckets; ++b) {
            const int64_t limit = int64_t(b + 1) * kBucketSize;
            bk[size_t(b)].begin = bk[size_t(b)].predict = k;
            while (k < count && costs[k].site < limit)
                ++k;
            bk[size_t(b)].end = k;
        }
    }

    Term compute(SiteID s, LabelID l)
    {
        std::vector<Bucket>& bk = buckets[size_t(l)];
        if (bk.empty())
            return kMaxTerm;
        Bucket& b = bk[size_t(s >> kBucketBits)];
        if (b.begin == b.end)
            return kMaxTerm;
        const GCoptimization::SparseDataCost* p = pairs[size_t(l)].data();
        const int32_t k = b.predict;
        if (k < b.end) {
            if (p[k].site == s) {
                b.predict = k + 1;
                return p[k].cost;
            }
            if (p[k].site > s && (k == b.begin || p[k - 1].site < s))
                return kMaxTerm;
        }
        if (b.end - b.begin == kBucketSize)
            return p[b.begin + (s & (kBucketSize - 1))].cost;
        int32_t lo = b.begin, hi = b.end;
        while (hi - lo > 8) {
            const int32_t mid = lo + (hi - lo) / 2;
            if (p[mid].site < s)
                lo = mid + 1;
            else
                hi = mid;
        }
        while (lo < hi && p[lo].site < s)
            ++lo;
        b.predict = lo;
        if (lo < b.end && p[lo].site == s) {
            b.predict = lo + 1;
            return p[lo].cost;
        }
        return kMaxTerm;
    }
};

// ---- smooth cost kinds ------------------------------------------------------

struct SmoothPotts {
    Term compute(SiteID, SiteID, LabelID l1, LabelID l2) const { return l1 != l2 ? 1 : 0; }
};

struct SmoothArray {
    const Term* table;
    LabelID numLabels;
    Term compute(SiteID, SiteID, LabelID l1, LabelID l2) const { return table[int64_t(l1) * numLabels + l2]; }
};

struct SmoothOwned : SmoothArray {
    std::vector<Term> storage;
};

struct SmoothFn {
    GCoptimization::SmoothCostFn fn;
    Term compute(SiteID s1, SiteID s2, LabelID l1, LabelID l2) const { return fn(s1, s2, l1, l2); }
};

struct SmoothFnExtra {
    GCoptimization::SmoothCostFnExtra fn;
    void* extra;
    Term compute(SiteID s1, SiteID s2, LabelID l1, LabelID l2) const { return fn(s1, s2, l1, l2, extra); }
};

struct SmoothFunctor {
    GCoptimization::SmoothCostFunctor* functor;
    Term compute(SiteID s1, SiteID s2, LabelID l1, LabelID l2) const { return functor->compute(s1, s2, l1, l2); }
};

// A zero table of the solver's own behind an array cost, for costs given
// entry by entry.
template <class Owned> Owned* newOwnedTable(size_t entries, LabelID numLabels)
{
    Owned* t = new Owned;
    try {
        t->storage.assign(entries, 0);
    } catch (const std::bad_alloc&) {
        delete t;
        throw GCException(kNotEnoughMemory);
    }
    t->table = t->storage.data();
    t->numLabels = numLabels;
    return t;
}

// Both step counters are 0 outside a run of cycles, however the run ends.
struct StepReset {
    int& steps;
    int& total;
    ~StepReset() { steps = total = 0; }
};

} // namespace

// ---- the energy of one move as a flow graph ---------------------------------

// Binary variables, 0 on the source side of the cut and 1 on the sink side.
// The minimum cut plus the constant is the least energy of the move.
struct GCoptimization::MoveGraph {
    kvo::KvoMaxFlow graph;
    int64_t constant = 0;

    MoveGraph(int nodes, int edges) : graph(nodes, edges) {}
    int addVariables(int n) { return graph.addNode(n); }
    // e0 when x is 0, e1 when x is 1.
    void term1(int x, Term e0, Term e1)
    {
        if (e0 | e1)
            graph.addTWeights(x, e1, e0);
    }
    // E(0,0) = A, E(0,1) = B, E(1,0) = C, E(1,1) = D with A + D <= B + C:
    // A + (D - A)[x=1] + (B - A)[x=0,y=1] + (C - D)[x=1,y=0]. A negative arc
    // part is moved into the unary terms, which the other arc can afford since
    // their sum is B + C - A - D >= 0.
    void term2(int x, int y, Term A, Term B, Term C, Term D)
    {
        constant += A;
        Term ux = D - A, uy = 0, b = B - A, c = C - D;
        if (b < 0) {
            uy += b;
            ux -= b;
            c += b;
            b = 0;
        } else if (c < 0) {
            ux += c;
            uy -= c;
            b += c;
            c = 0;
        }
        if (ux)
            graph.addTWeights(x, ux, 0);
        if (uy)
            graph.addTWeights(y, uy, 0);
        if (b | c)
            graph.addEdge(x, y, b, c);
    }
    int64_t minimize() { return constant + graph.maxflow(); }
    // Nodes that neither tree reaches count as the source side.
    int value(int x) const { return graph.whatSegment(x, kvo::KvoMaxFlow::Source) == kvo::KvoMaxFlow::Source ? 0 : 1; }
};

// ---- construction and binding -----------------------------------------------

GCoptimization::GCoptimization(SiteID numSites, LabelID numLabels) : m_numSites(numSites), m_numLabels(numLabels)
{
    if (numLabels < 2)
        throw GCException("Number of labels must be >= 2");
    if (numSites < 1)
        throw GCException("Number of sites must be >= 1");
    try {
        m_labeling.assign(size_t(numSites), 0);
        m_lookupSiteVar.assign(size_t(numSites), -1);
        m_labelTable.resize(size_t(numLabels));
        std::iota(m_labelTable.begin(), m_labelTable.end(), 0);
        m_labelingDataCosts.assign(size_t(numSites), 0);
        m_labelCounts.assign(size_t(numLabels), 0);
        m_activeLabelCounts.assign(size_t(numLabels), 0);
        m_labelCostsByLabel.resize(size_t(numLabels));
        DataNone* d = new DataNone;
        bindData(d, CostPtr(d, &deleteAs<DataNone>), DataKind::None);
        SmoothPotts* p = new SmoothPotts;
        bindSmooth(p, CostPtr(p, &deleteAs<SmoothPotts>), SmoothKind::Potts);
    } catch (const std::bad_alloc&) {
        throw GCException(kNotEnoughMemory);
    }
}

GCoptimization::~GCoptimization() = default;

template <class D> void GCoptimization::bindData(D* cost, CostPtr owner, DataKind kind)
{
    m_dataCost = std::move(owner);
    m_dataObj = cost;
    m_dataKind = kind;
    m_solveSpecialCases = &GCoptimization::solveSpecialCases<D>;
    m_queryActiveSitesExpansion = &GCoptimization::queryActiveSitesExpansion<D>;
    m_setupDataCostsExpansion = &GCoptimization::setupDataCostsExpansion<D>;
    m_setupDataCostsSwap = &GCoptimization::setupDataCostsSwap<D>;
    m_applyNewLabeling = &GCoptimization::applyNewLabeling<D>;
    m_updateLabelingDataCosts = &GCoptimization::updateLabelingDataCosts<D>;
    m_labelingInfoDirty = true;
}

template <class S> void GCoptimization::bindSmooth(S* cost, CostPtr owner, SmoothKind kind)
{
    m_smoothCost = std::move(owner);
    m_smoothObj = cost;
    m_smoothKind = kind;
    m_giveSmoothEnergy = &GCoptimization::giveSmoothEnergyOf<S>;
    m_setupSmoothCostsExpansion = &GCoptimization::setupSmoothCostsExpansion<S>;
    m_setupSmoothCostsSwap = &GCoptimization::setupSmoothCostsSwap<S>;
}

void GCoptimization::setNeighborTable(const SiteID* counts, const int64_t* starts, const SiteID* indexes,
                                      const EnergyTermType* weights)
{
    m_numNeighbors = counts;
    m_nbStart = starts;
    m_nbIndex = indexes;
    m_nbWeight = weights;
    m_numNeighborsTotal = 0;
    for (SiteID s = 0; s < m_numSites; ++s)
        m_numNeighborsTotal += counts[s];
}

// ---- costs ------------------------------------------------------------------

void GCoptimization::setDataCost(EnergyTermType* dataArray)
{
    DataArray* d = new DataArray{dataArray, m_numLabels};
    bindData(d, CostPtr(d, &deleteAs<DataArray>), DataKind::Array);
}

void GCoptimization::setDataCost(DataCostFn fn)
{
    DataFn* d = new DataFn{fn};
    bindData(d, CostPtr(d, &deleteAs<DataFn>), DataKind::Fn);
}

void GCoptimization::setDataCost(DataCostFnExtra fn, void* extra)
{
    DataFnExtra* d = new DataFnExtra{fn, extra};
    bindData(d, CostPtr(d, &deleteAs<DataFnExtra>), DataKind::FnExtra);
}

void GCoptimization::setDataCost(DataCostFunctor* functor)
{
    DataFunctor* d = new DataFunctor{functor};
    bindData(d, CostPtr(d, &deleteAs<DataFunctor>), DataKind::Functor);
}

void GCoptimization::setDataCost(SiteID s, LabelID l, EnergyTermType e)
{
    if (m_dataKind != DataKind::Owned) {
        DataOwned* d = newOwnedTable<DataOwned>(size_t(m_numSites) * size_t(m_numLabels), m_numLabels);
        bindData<DataArray>(d, CostPtr(d, &deleteAs<DataOwned>), DataKind::Owned);
    }
    DataOwned* d = static_cast<DataOwned*>(static_cast<DataArray*>(m_dataObj));
    d->storage[size_t(s) * size_t(m_numLabels) + size_t(l)] = e;
    m_labelingInfoDirty = true;
}

void GCoptimization::setDataCost(LabelID l, SparseDataCost* costs, SiteID count)
{
    if (m_dataKind != DataKind::None && m_dataKind != DataKind::Sparse)
        throw GCException("Cannot apply sparse data costs after dense data costs have been used.");
    for (SiteID i = 0; i < count; ++i) {
        if (costs[i].site < 0 || costs[i].site >= m_numSites)
            throw GCException("Invalid site id given for sparse data cost; must be within range.");
        if (i > 0 && costs[i].site <= costs[i - 1].site)
            throw GCException("Sparse data costs must be sorted in increasing order of SiteID");
    }
    try {
        if (m_dataKind != DataKind::Sparse) {
            DataSparse* d = new DataSparse(m_numSites, m_numLabels);
            bindData(d, CostPtr(d, &deleteAs<DataSparse>), DataKind::Sparse);
        }
        static_cast<DataSparse*>(m_dataObj)->set(l, costs, count);
    } catch (const std::bad_alloc&) {
        throw GCException(kNotEnoughMemory);
    }
    m_labelingInfoDirty = true;
}

void GCoptimization::setSmoothCost(EnergyTermType* smoothArray)
{
    SmoothArray* c = new SmoothArray{smoothArray, m_numLabels};
    bindSmooth(c, CostPtr(c, &deleteAs<SmoothArray>), SmoothKind::Array);
}

void GCoptimization::setSmoothCost(SmoothCostFn fn)
{
    SmoothFn* c = new SmoothFn{fn};
    bindSmooth(c, CostPtr(c, &deleteAs<SmoothFn>), SmoothKind::Fn);
}

void GCoptimization::setSmoothCost(SmoothCostFnExtra fn, void* extra)
{
    SmoothFnExtra* c = new SmoothFnExtra{fn, extra};
    bindSmooth(c, CostPtr(c, &deleteAs<SmoothFnExtra>), SmoothKind::FnExtra);
}

void GCoptimization::setSmoothCost(SmoothCostFunctor* functor)
{
    SmoothFunctor* c = new SmoothFunctor{functor};
    bindSmooth(c, CostPtr(c, &deleteAs<SmoothFunctor>), SmoothKind::Functor);
}

void GCoptimization::setSmoothCost(LabelID l1, LabelID l2, EnergyTermType e)
{
    if (m_smoothKind != SmoothKind::Owned) {
        SmoothOwned* c = newOwnedTable<SmoothOwned>(size_t(m_numLabels) * size_t(m_numLabels), m_numLabels);
        bindSmooth<SmoothArray>(c, CostPtr(c, &deleteAs<SmoothOwned>), SmoothKind::Owned);
    }
    SmoothOwned* c = static_cast<SmoothOwned*>(static_cast<SmoothArray*>(m_smoothObj));
    c->storage[size_t(l1) * size_t(m_numLabels) + size_t(l2)] = e;
}

void GCoptimization::setLabelCost(EnergyTermType cost)
{
    for (LabelID l = 0; l < m_numLabels; ++l)
        setLabelSubsetCost(&l, 1, cost);
}

void GCoptimization::setLabelCost(const EnergyTermType* costArray)
{
    for (LabelID l = 0; l < m_numLabels; ++l)
        setLabelSubsetCost(&l, 1, costArray[l]);
}

void GCoptimization::setLabelSubsetCost(const LabelID* labels, LabelID count, EnergyTermType cost)
{
    if (cost < 0)
        throw GCException("Label costs must be non-negative.");
    if (cost > kMaxTerm)
        throw GCException("Label cost was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.");
    for (LabelID i = 0; i < count; ++i)
        if (labels[i] < 0 || labels[i] >= m_numLabels)
            throw GCException("Invalid label id was found in label subset list.");
    std::vector<LabelID> set(labels, labels + count);
    std::sort(set.begin(), set.end());
    set.erase(std::unique(set.begin(), set.end()), set.end());
    m_labelingInfoDirty = true;
    for (LabelCostRecord& r : m_labelCosts)
        if (r.labels == set) {
            r.cost = cost;
            return;
        }
    if (cost == 0)
        return;
    const int index = int(m_labelCosts.size());
    m_labelCosts.push_back({cost, false, -1, set});
    for (LabelID l : set)
        m_labelCostsByLabel[size_t(l)].push_back(index);
}

// ---- labelling ----------------------------------------------------------------

void GCoptimization::whatLabel(SiteID start, SiteID count, LabelID* out) const
{
    std::copy(m_labeling.begin() + start, m_labeling.begin() + start + count, out);
}

void GCoptimization::setLabel(SiteID s, LabelID l)
{
    m_labeling[size_t(s)] = l;
    m_labelingInfoDirty = true;
}

void GCoptimization::setLabelOrder(bool random)
{
    m_randomLabelOrder = random;
    std::iota(m_labelTable.begin(), m_labelTable.end(), 0);
}

void GCoptimization::setLabelOrder(const LabelID* order, LabelID size)
{
    if (size > m_numLabels)
        throw GCException("setLabelOrder receieved too many labels");
    for (LabelID i = 0; i < size; ++i)
        if (order[i] < 0 || order[i] >= m_numLabels)
            throw GCException("Invalid label id in setLabelOrder");
    m_randomLabelOrder = false;
    std::fill(m_labelTable.begin(), m_labelTable.end(), -1);
    std::copy(order, order + size, m_labelTable.begin());
}

void GCoptimization::permuteLabelTable()
{
    if (!m_randomLabelOrder)
        return;
    for (LabelID i = 0; i < m_numLabels; ++i) {
        const LabelID j = i + LabelID(std::rand() % (m_numLabels - i));
        std::swap(m_labelTable[size_t(i)], m_labelTable[size_t(j)]);
    }
}

template <class D> void GCoptimization::updateLabelingDataCosts()
{
    D& dc = *static_cast<D*>(m_dataObj);
    const LabelID* lab = m_labeling.data();
    Term* cost = m_labelingDataCosts.data();
    for (SiteID s = 0; s < m_numSites; ++s)
        cost[s] = dc.compute(s, lab[s]);
}

void GCoptimization::updateLabelCostActivity()
{
    for (LabelCostRecord& r : m_labelCosts) {
        r.active = false;
        for (LabelID l : r.labels)
            if (m_labelCounts[size_t(l)] > 0) {
                r.active = true;
                break;
            }
    }
}

void GCoptimization::updateLabelingInfo()
{
    if (!m_labelingInfoDirty)
        return;
    m_labelingInfoDirty = false;
    (this->*m_updateLabelingDataCosts)();
    std::fill(m_labelCounts.begin(), m_labelCounts.end(), 0);
    for (LabelID l : m_labeling)
        ++m_labelCounts[size_t(l)];
    if (!m_labelCosts.empty())
        updateLabelCostActivity();
}

// ---- energy -------------------------------------------------------------------

GCoptimization::EnergyType GCoptimization::giveDataEnergy()
{
    updateLabelingInfo();
    int64_t e = 0;
    for (Term c : m_labelingDataCosts)
        e += c;
    return EnergyType(e);
}

template <class S> GCoptimization::EnergyType GCoptimization::giveSmoothEnergyOf()
{
    S& sc = *static_cast<S*>(m_smoothObj);
    const LabelID* lab = m_labeling.data();
    int64_t e = 0;
    for (SiteID s = 0; s < m_numSites; ++s) {
        const SiteID count = m_numNeighbors[s];
        const int64_t start = m_nbStart[s];
        const SiteID* nb = m_nbIndex + start;
        const Term* w = m_nbWeight ? m_nbWeight + start : kUnitWeights;
        for (SiteID k = 0; k < count; ++k) {
            const SiteID q = nb[k];
            if (q < s)
                e += int64_t(w[k]) * sc.compute(s, q, lab[s], lab[q]);
        }
    }
    return EnergyType(e);
}

GCoptimization::EnergyType GCoptimization::giveSmoothEnergy()
{
    finalizeNeighbors();
    return (this->*m_giveSmoothEnergy)();
}

GCoptimization::EnergyType GCoptimization::giveLabelEnergy()
{
    updateLabelingInfo();
    int64_t e = 0;
    for (const LabelCostRecord& r : m_labelCosts)
        if (r.active)
            e += r.cost;
    return EnergyType(e);
}

GCoptimization::EnergyType GCoptimization::computeEnergy()
{
    const int64_t data = giveDataEnergy();
    const int64_t smooth = giveSmoothEnergy();
    const int64_t label = giveLabelEnergy();
    return EnergyType(data + smooth + label);
}

// ---- special cases ---------------------------------------------------------------

// Without neighbours the sites are independent: each takes its cheapest label,
// or with label costs of single labels the greedy opening of labels decides.
// Without data costs either, only label costs matter: one label for all.
template <class D> bool GCoptimization::solveSpecialCases(EnergyType& energy)
{
    finalizeNeighbors();
    if (m_numNeighborsTotal != 0)
        return false;
    if (!std::is_same<D, DataNone>::value) {
        if (m_labelCosts.empty()) {
            D& dc = *static_cast<D*>(m_dataObj);
            std::vector<Term> best;
            try {
                best.resize(size_t(m_numSites));
            } catch (const std::bad_alloc&) {
                throw GCException(kNotEnoughMemory);
            }
            LabelID* lab = m_labeling.data();
            // Label by label, so that sparse lookups run along rising sites.
            for (SiteID s = 0; s < m_numSites; ++s) {
                best[size_t(s)] = dc.compute(s, 0);
                lab[s] = 0;
            }
            for (LabelID l = 1; l < m_numLabels; ++l)
                for (SiteID s = 0; s < m_numSites; ++s) {
                    const Term c = dc.compute(s, l);
                    if (c < best[size_t(s)]) {
                        best[size_t(s)] = c;
                        lab[s] = l;
                    }
                }
            int64_t sum = 0;
            for (Term c : best) {
                if (c > kMaxTerm)
                    throw GCException("Data cost was larger than GCO_MAX_ENERGYTERM; danger of integer overflow.");
                sum += c;
            }
            m_labelingInfoDirty = true;
            updateLabelingInfo();
            energy = EnergyType(sum);
            return true;
        }
        for (const LabelCostRecord& r : m_labelCosts)
            if (r.labels.size() != 1)
                return false;
        energy = solveGreedy<D>();
        return true;
    }
    if (!m_labelCosts.empty()) {
        int64_t bestCost = int64_t(m_numLabels) * kMaxTerm;
        LabelID bestLabel = -1;
        for (LabelID l = 0; l < m_numLabels; ++l) {
            int64_t c = 0;
            for (int k : m_labelCostsByLabel[size_t(l)])
                c += m_labelCosts[size_t(k)].cost;
            if (c < bestCost) {
                bestCost = c;
                bestLabel = l;
            }
        }
        if (bestLabel >= 0) {
            std::fill(m_labeling.begin(), m_labeling.end(), bestLabel);
            m_labelingInfoDirty = true;
        }
    }
    energy = computeEnergy();
    return true;
}

// Opens labels one at a time: first the one that serves all sites most
// cheaply, then, while opening another lowers the energy, the one that lowers
// it most, moving to it the sites that it serves better.
template <class D> GCoptimization::EnergyType GCoptimization::solveGreedy()
{
    if (m_verbosity >= 1)
        say("gco>> %s\n", "starting greedy algorithm (1 cycle only)");
    D& dc = *static_cast<D*>(m_dataObj);
    std::vector<int64_t> labelCost(size_t(m_numLabels), 0);
    for (const LabelCostRecord& r : m_labelCosts)
        labelCost[size_t(r.labels[0])] += r.cost;

    int64_t best = INT64_MAX;
    LabelID first = 0;
    for (LabelID l = 0; l < m_numLabels; ++l) {
        int64_t sum = labelCost[size_t(l)];
        for (SiteID s = 0; s < m_numSites && sum < best; ++s)
            sum += dc.compute(s, l);
        if (sum < best) {
            best = sum;
            first = l;
        }
    }
    std::vector<Term> current(static_cast<size_t>(m_numSites));
    LabelID* lab = m_labeling.data();
    for (SiteID s = 0; s < m_numSites; ++s) {
        lab[s] = first;
        current[size_t(s)] = dc.compute(s, first);
    }
    std::vector<char> open(size_t(m_numLabels), 0);
    open[size_t(first)] = 1;
    for (LabelID opened = 1; opened < m_numLabels; ++opened) {
        int64_t bestGain = 0;
        LabelID pick = -1;
        for (LabelID l = 0; l < m_numLabels; ++l) {
            if (open[size_t(l)])
                continue;
            int64_t gain = labelCost[size_t(l)];
            for (SiteID s = 0; s < m_numSites; ++s) {
                const Term d = dc.compute(s, l) - current[size_t(s)];
                if (d < 0)
                    gain += d;
            }
            if (pick < 0 || gain < bestGain) {
                bestGain = gain;
                pick = l;
            }
        }
        if (pick < 0 || bestGain >= 0)
            break;
        open[size_t(pick)] = 1;
        for (SiteID s = 0; s < m_numSites; ++s) {
            const Term c = dc.compute(s, pick);
            if (c < current[size_t(s)]) {
                current[size_t(s)] = c;
                lab[s] = pick;
            }
        }
    }
    m_labelingInfoDirty = true;
    return computeEnergy();
}

// ---- one expansion move --------------------------------------------------------------

template <class D> SiteID GCoptimization::queryActiveSitesExpansion(LabelID alpha, SiteID* out)
{
    const LabelID* lab = m_labeling.data();
    SiteID n = 0;
    if constexpr (std::is_same<D, DataSparse>::value) {
        // Only the sites that list alpha can take it.
        for (const SparseDataCost& c : static_cast<D*>(m_dataObj)->pairs[size_t(alpha)])
            if (lab[c.site] != alpha)
                out[n++] = c.site;
    } else {
        for (SiteID s = 0; s < m_numSites; ++s)
            if (lab[s] != alpha)
                out[n++] = s;
    }
    return n;
}

template <class D>
void GCoptimization::setupDataCostsExpansion(SiteID n, LabelID alpha, MoveGraph& g, const SiteID* active)
{
    D& dc = *static_cast<D*>(m_dataObj);
    const Term* current = m_labelingDataCosts.data();
    int64_t before = 0;
    for (SiteID i = 0; i < n; ++i) {
        const SiteID s = active[i];
        const Term ea = dc.compute(s, alpha), ec = current[s];
        if (ea > kMaxTerm || ec > kMaxTerm)
            throw GCException(kDataTermTooLarge);
        g.term1(i, ea, ec);
        before += ec;
    }
    m_beforeExpansionEnergy += before;
}

void GCoptimization::addTerm2Checked(MoveGraph& g, int x, int y, EnergyTermType A, EnergyTermType B, EnergyTermType C,
                                     EnergyTermType D, EnergyTermType w)
{
    if (A + D > B + C)
        say("-E-%d-%d-%d-%d-addterm2_checked\n", A, B, C, D);
    if (A > kMaxTerm || B > kMaxTerm || C > kMaxTerm || D > kMaxTerm)
        throw GCException(kSmoothTermTooLarge);
    if (w > kMaxTerm)
        throw GCException(kWeightTooLarge);
    if (A + D > B + C)
        throw GCException("Non-submodular expansion term detected; smooth costs must be a metric for expansion");
    g.term2(x, y, A * w, B * w, C * w, D * w);
}

template <class S>
void GCoptimization::setupSmoothCostsExpansion(SiteID n, LabelID alpha, MoveGraph& g, const SiteID* active)
{
    S& sc = *static_cast<S*>(m_smoothObj);
    const LabelID* lab = m_labeling.data();
    const int32_t* var = m_lookupSiteVar.data();
    int64_t before = 0;
    for (SiteID i = n - 1; i >= 0; --i) {
        const SiteID s = active[i];
        const LabelID lp = lab[s];
        const SiteID count = m_numNeighbors[s];
        const int64_t start = m_nbStart[s];
        const SiteID* nb = m_nbIndex + start;
        const Term* w = m_nbWeight ? m_nbWeight + start : kUnitWeights;
        // The terms towards fixed neighbours add up to one unary term.
        Term u0 = 0, u1 = 0;
        for (SiteID k = 0; k < count; ++k) {
            const SiteID q = nb[k];
            const Term wk = w[k];
            const LabelID lq = lab[q];
            const int32_t vq = var[q];
            if (vq < 0) {
                const Term e0 = sc.compute(s, q, alpha, lq), e1 = sc.compute(s, q, lp, lq);
                if (e0 > kMaxTerm || e1 > kMaxTerm)
                    throw GCException(kSmoothTermTooLarge);
                if (wk > kMaxTerm)
                    throw GCException(kWeightTooLarge);
                u0 += wk * e0;
                u1 += wk * e1;
            } else if (q < s) {
                const Term d = sc.compute(s, q, lp, lq);
                addTerm2Checked(g, i, vq, sc.compute(s, q, alpha, alpha), sc.compute(s, q, alpha, lq),
                                sc.compute(s, q, lp, alpha), d, wk);
                before += int64_t(wk) * d;
            }
        }
        g.term1(i, u0, u1);
        before += u1;
    }
    m_beforeExpansionEnergy += before;
}

// A label-cost record is paid after the move unless every site holding one of
// its labels leaves it for alpha. Records that alpha belongs to, or (with
// sparse costs) that keep sites outside the move, stay paid and need no
// variable; the others get one, tied to each of their sites.
int64_t GCoptimization::setupLabelCostsExpansion(SiteID n, LabelID alpha, MoveGraph& g, const SiteID* active)
{
    const LabelID* lab = m_labeling.data();
    for (LabelCostRecord& r : m_labelCosts)
        r.aux = -1;
    for (int k : m_labelCostsByLabel[size_t(alpha)])
        m_labelCosts[size_t(k)].aux = -2;
    if (m_dataKind == DataKind::Sparse) {
        std::fill(m_activeLabelCounts.begin(), m_activeLabelCounts.end(), 0);
        for (SiteID i = 0; i < n; ++i)
            ++m_activeLabelCounts[size_t(lab[active[i]])];
        for (LabelID l = 0; l < m_numLabels; ++l)
            if (l != alpha && m_activeLabelCounts[size_t(l)] < m_labelCounts[size_t(l)])
                for (int k : m_labelCostsByLabel[size_t(l)])
                    m_labelCosts[size_t(k)].aux = -2;
    }
    int64_t constant = 0;
    if (m_labelCounts[size_t(alpha)] == 0)
        for (int k : m_labelCostsByLabel[size_t(alpha)])
            if (!m_labelCosts[size_t(k)].active)
                constant += m_labelCosts[size_t(k)].cost;
    int64_t before = 0;
    for (SiteID i = 0; i < n; ++i)
        for (int k : m_labelCostsByLabel[size_t(lab[active[i]])]) {
            LabelCostRecord& r = m_labelCosts[size_t(k)];
            if (r.aux == -2)
                continue;
            if (r.aux == -1) {
                r.aux = g.addVariables(1);
                g.term1(r.aux, 0, r.cost);
                before += r.cost;
            }
            g.term2(i, r.aux, 0, 0, r.cost, 0);
        }
    m_beforeExpansionEnergy += before;
    return constant;
}

template <class D>
void GCoptimization::applyNewLabeling(const MoveGraph& g, const SiteID* active, SiteID n, LabelID alpha, LabelID beta)
{
    D& dc = *static_cast<D*>(m_dataObj);
    LabelID* lab = m_labeling.data();
    Term* cost = m_labelingDataCosts.data();
    for (SiteID i = 0; i < n; ++i) {
        const SiteID s = active[i];
        const LabelID to = g.value(i) == 0 ? alpha : (beta < 0 ? lab[s] : beta);
        if (to == lab[s])
            continue;
        --m_labelCounts[size_t(lab[s])];
        ++m_labelCounts[size_t(to)];
        lab[s] = to;
        cost[s] = dc.compute(s, to);
    }
}

namespace {
// Sites of a move get their variable numbers for the move's length only.
struct LookupReset {
    std::vector<int32_t>& lookup;
    const SiteID* active;
    SiteID n;
    ~LookupReset()
    {
        for (SiteID i = 0; i < n; ++i)
            lookup[size_t(active[i])] = -1;
    }
};

std::vector<SiteID> newSiteList(SiteID n)
{
    try {
        return std::vector<SiteID>(size_t(n));
    } catch (const std::bad_alloc&) {
        throw GCException("Not enough memory!");
    }
}

int clampHint(int64_t v)
{
    return int(std::max<int64_t>(16, std::min<int64_t>(v, INT_MAX / 2)));
}
} // namespace

bool GCoptimization::alpha_expansion(LabelID alpha)
{
    if (alpha < 0)
        return false;
    finalizeNeighbors();
    if (m_stepsThisCycleTotal == 0)
        m_labelingInfoDirty = true;
    updateLabelingInfo();
    const Clock::time_point t0 = Clock::now();

    std::vector<SiteID> active = newSiteList(m_numSites);
    const SiteID n = (this->*m_queryActiveSitesExpansion)(alpha, active.data());
    if (n == 0)
        return false;
    LookupReset reset{m_lookupSiteVar, active.data(), n};
    for (SiteID i = 0; i < n; ++i)
        m_lookupSiteVar[size_t(active[i])] = i;

    const int64_t labelCostCount = int64_t(m_labelCosts.size());
    MoveGraph g(clampHint(n + labelCostCount),
                clampHint(m_numNeighborsTotal + (labelCostCount ? n + labelCostCount : 0)));
    g.addVariables(n);
    m_beforeExpansionEnergy = 0;
    (this->*m_setupDataCostsExpansion)(n, alpha, g, active.data());
    (this->*m_setupSmoothCostsExpansion)(n, alpha, g, active.data());
    const int64_t labelConstant = labelCostCount ? setupLabelCostsExpansion(n, alpha, g, active.data()) : 0;

    const int64_t after = labelConstant + g.minimize();
    const bool lowered = after < m_beforeExpansionEnergy;
    if (lowered) {
        (this->*m_applyNewLabeling)(g, active.data(), n, alpha, -1);
        if (labelCostCount)
            updateLabelCostActivity();
    }
    if (m_verbosity >= 2) {
        char head[64];
        std::snprintf(head, sizeof head, "gco>>   after expansion(%d):", alpha);
        printMove(head, g.graph.nodeCount(), msSince(t0));
    }
    return lowered;
}

// ---- one swap move -----------------------------------------------------------------

template <class D>
void GCoptimization::setupDataCostsSwap(SiteID n, LabelID alpha, LabelID beta, MoveGraph& g, const SiteID* active)
{
    D& dc = *static_cast<D*>(m_dataObj);
    const Term* current = m_labelingDataCosts.data();
    int64_t before = 0;
    for (SiteID i = 0; i < n; ++i) {
        const SiteID s = active[i];
        const Term ea = dc.compute(s, alpha), eb = dc.compute(s, beta);
        if (ea > kMaxTerm || eb > kMaxTerm)
            throw GCException(kDataTermTooLarge);
        g.term1(i, ea, eb);
        before += current[s];
    }
    m_beforeExpansionEnergy += before;
}

template <class S>
void GCoptimization::setupSmoothCostsSwap(SiteID n, LabelID alpha, LabelID beta, MoveGraph& g, const SiteID* active)
{
    S& sc = *static_cast<S*>(m_smoothObj);
    const LabelID* lab = m_labeling.data();
    const int32_t* var = m_lookupSiteVar.data();
    int64_t before = 0;
    for (SiteID i = n - 1; i >= 0; --i) {
        const SiteID s = active[i];
        const LabelID lp = lab[s];
        const SiteID count = m_numNeighbors[s];
        const int64_t start = m_nbStart[s];
        const SiteID* nb = m_nbIndex + start;
        const Term* w = m_nbWeight ? m_nbWeight + start : kUnitWeights;
        Term u0 = 0, u1 = 0;
        for (SiteID k = 0; k < count; ++k) {
            const SiteID q = nb[k];
            const Term wk = w[k];
            const LabelID lq = lab[q];
            const int32_t vq = var[q];
            if (vq < 0) {
                const Term e0 = sc.compute(s, q, alpha, lq), e1 = sc.compute(s, q, beta, lq),
                           ec = sc.compute(s, q, lp, lq);
                if (e0 > kMaxTerm || e1 > kMaxTerm || ec > kMaxTerm)
                    throw GCException(kSmoothTermTooLarge);
                if (wk > kMaxTerm)
                    throw GCException(kWeightTooLarge);
                u0 += wk * e0;
                u1 += wk * e1;
                before += int64_t(wk) * ec;
            } else if (q < s) {
                addTerm2Checked(g, i, vq, sc.compute(s, q, alpha, alpha), sc.compute(s, q, alpha, beta),
                                sc.compute(s, q, beta, alpha), sc.compute(s, q, beta, beta), wk);
                before += int64_t(wk) * sc.compute(s, q, lp, lq);
            }
        }
        g.term1(i, u0, u1);
    }
    m_beforeExpansionEnergy += before;
}

bool GCoptimization::alpha_beta_swap(LabelID alpha, LabelID beta)
{
    if (!m_labelCosts.empty())
        throw GCException("Label costs only implemented for alpha-expansion.");
    if (alpha < 0 || beta < 0 || alpha == beta)
        return false;
    finalizeNeighbors();
    if (m_stepsThisCycleTotal == 0)
        m_labelingInfoDirty = true;
    updateLabelingInfo();
    const Clock::time_point t0 = Clock::now();

    std::vector<SiteID> active = newSiteList(m_labelCounts[size_t(alpha)] + m_labelCounts[size_t(beta)]);
    SiteID n = 0;
    for (SiteID s = 0; s < m_numSites; ++s)
        if (m_labeling[size_t(s)] == alpha || m_labeling[size_t(s)] == beta)
            active[size_t(n++)] = s;
    if (n == 0)
        return false;
    LookupReset reset{m_lookupSiteVar, active.data(), n};
    for (SiteID i = 0; i < n; ++i)
        m_lookupSiteVar[size_t(active[i])] = i;

    MoveGraph g(clampHint(n), clampHint(m_numNeighborsTotal));
    g.addVariables(n);
    m_beforeExpansionEnergy = 0;
    (this->*m_setupDataCostsSwap)(n, alpha, beta, g, active.data());
    (this->*m_setupSmoothCostsSwap)(n, alpha, beta, g, active.data());
    const bool lowered = g.minimize() < m_beforeExpansionEnergy;
    if (lowered)
        (this->*m_applyNewLabeling)(g, active.data(), n, alpha, beta);
    if (m_verbosity >= 2) {
        char head[64];
        std::snprintf(head, sizeof head, "gco>>   after swap(%d,%d):", alpha, beta);
        printMove(head, n, msSince(t0));
    }
    return lowered;
}

// ---- cycles --------------------------------------------------------------------------

GCoptimization::EnergyType GCoptimization::oneExpansionCycle()
{
    permuteLabelTable();
    m_stepsThisCycleTotal = m_numLabels;
    m_stepsThisCycle = 0;
    for (LabelID slot = 0; slot < m_numLabels; ++slot) {
        say("%d\n", slot);
        alpha_expansion(m_labelTable[size_t(slot)]);
        ++m_stepsThisCycle;
    }
    return computeEnergy();
}

GCoptimization::EnergyType GCoptimization::expansion(int maxCycles)
{
    StepReset reset{m_stepsThisCycle, m_stepsThisCycleTotal};
    EnergyType energy = 0;
    if ((this->*m_solveSpecialCases)(energy))
        return energy;
    permuteLabelTable();
    m_labelingInfoDirty = true;
    updateLabelingInfo();

    if (maxCycles != -1) {
        if (m_verbosity >= 1)
            say("gco>> %s\n", "starting alpha-expansion w/ standard cycles");
        energy = computeEnergy();
        printInitialEnergy(energy);
        for (int cycle = 1; cycle <= maxCycles; ++cycle) {
            const EnergyType old = energy;
            const Clock::time_point t0 = Clock::now();
            energy = oneExpansionCycle();
            printCycle(cycle, energy, "expansions(s)", msSince(t0));
            if (energy == old)
                break;
            permuteLabelTable();
        }
        return energy;
    }

    if (m_verbosity >= 1) {
        say("gco>> %s\n", "starting alpha-expansion w/ adaptive cycles");
        printInitialEnergy(computeEnergy());
    }
    // Labels that helped in a pass go round again on their own, as long as
    // they are few enough; when a pass helps nothing, the level below resumes
    // where it stopped.
    std::vector<LabelID> queueSizes(1, m_numLabels);
    LabelID next = 0;
    for (int cycle = 1; !queueSizes.empty(); ++cycle) {
        const Clock::time_point t0 = Clock::now();
        LabelID queueSize = queueSizes.back();
        m_stepsThisCycle = 0;
        m_stepsThisCycleTotal = queueSize - next;
        const LabelID start = next;
        do {
            if (alpha_expansion(m_labelTable[size_t(next)])) {
                ++next;
            } else {
                --queueSize;
                std::swap(m_labelTable[size_t(next)], m_labelTable[size_t(queueSize)]);
            }
            ++m_stepsThisCycle;
        } while (next < queueSize);
        if (next == start) {
            next = queueSizes.back();
            queueSizes.pop_back();
        } else {
            next = 0;
            if (queueSize < queueSizes.back() / 2)
                queueSizes.push_back(queueSize);
        }
        if (m_verbosity >= 1)
            printCycle(cycle, computeEnergy(), "expansions(s)", msSince(t0));
    }
    return computeEnergy();
}

GCoptimization::EnergyType GCoptimization::swap(int maxCycles)
{
    StepReset reset{m_stepsThisCycle, m_stepsThisCycleTotal};
    EnergyType energy = 0;
    if ((this->*m_solveSpecialCases)(energy))
        return energy;
    permuteLabelTable();
    m_labelingInfoDirty = true;
    updateLabelingInfo();
    if (m_verbosity >= 1)
        say("gco>> %s\n", "starting alpha/beta-swap");
    if (maxCycles == -1)
        maxCycles = GCO_MAX_ENERGYTERM;
    energy = computeEnergy();
    printInitialEnergy(energy);
    for (int cycle = 1; cycle <= maxCycles; ++cycle) {
        const EnergyType old = energy;
        const Clock::time_point t0 = Clock::now();
        permuteLabelTable();
        m_stepsThisCycleTotal = int(int64_t(m_numLabels) * (m_numLabels - 1) / 2);
        m_stepsThisCycle = 0;
        for (LabelID i = 0; i < m_numLabels; ++i)
            for (LabelID j = m_numLabels - 1; j >= 0; --j) {
                const LabelID alpha = m_labelTable[size_t(i)], beta = m_labelTable[size_t(j)];
                if (alpha < 0 || beta < 0 || alpha >= beta)
                    continue;
                alpha_beta_swap(alpha, beta);
                ++m_stepsThisCycle;
            }
        energy = computeEnergy();
        printCycle(cycle, energy, "swaps(s)", msSince(t0));
        if (energy >= old)
            break;
    }
    return energy;
}

// ---- debug lines ---------------------------------------------------------------------

void GCoptimization::say(const char* fmt, ...) const
{
    if (!m_sink)
        return;
    char line[512];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(line, sizeof line, fmt, ap);
    va_end(ap);
    m_sink(line);
}

void GCoptimization::printInitialEnergy(EnergyType total)
{
    if (m_verbosity < 1 || !m_sink)
        return;
    say("gco>> initial energy: \tE=%lld (E=%lld+%lld+%lld)\n", (long long)total, (long long)giveDataEnergy(),
        (long long)giveSmoothEnergy(), (long long)giveLabelEnergy());
}

void GCoptimization::printCycle(int cycle, EnergyType total, const char* moves, double ms)
{
    if (m_verbosity < 1 || !m_sink)
        return;
    char line[512];
    int len = std::snprintf(line, sizeof line, "gco>> after cycle %2d: \tE=%lld (E=%lld+%lld+%lld); \t%d %s;", cycle,
                            (long long)total, (long long)giveDataEnergy(), (long long)giveSmoothEnergy(),
                            (long long)giveLabelEnergy(), m_stepsThisCycle, moves);
    if (m_verbosity == 1 && len > 0 && len < int(sizeof line))
        len += std::snprintf(line + len, sizeof line - size_t(len), " \t%d ms", int(ms + 0.5));
    say("%s\n", line);
}

void GCoptimization::printMove(const char* head, int64_t vars, double ms)
{
    if (!m_sink)
        return;
    char line[512];
    int len = std::snprintf(line, sizeof line, "%s \tE=%lld (E=%lld+%lld+%lld);\t %lld vars;", head,
                            (long long)computeEnergy(), (long long)giveDataEnergy(), (long long)giveSmoothEnergy(),
                            (long long)giveLabelEnergy(), (long long)vars);
    if (m_stepsThisCycleTotal > 0 && len > 0 && len < int(sizeof line))
        len += std::snprintf(line + len, sizeof line - size_t(len), " \t(%d of %d);", m_stepsThisCycle + 1,
                             m_stepsThisCycleTotal);
    if (len > 0 && len < int(sizeof line))
        std::snprintf(line + len, sizeof line - size_t(len), ms < 0.101 ? "\t %.3f ms\n" : "\t %.2f ms\n", ms);
    say("%s", line);
}

// ---- general graph -------------------------------------------------------------------

GCoptimizationGeneralGraph::GCoptimizationGeneralGraph(SiteID numSites, LabelID numLabels)
    : GCoptimization(numSites, numLabels)
{
}

GCoptimizationGeneralGraph::~GCoptimizationGeneralGraph() = default;

void GCoptimizationGeneralGraph::setNeighbors(SiteID s1, SiteID s2, EnergyTermType weight)
{
    if (!m_neighborsMayBeSet)
        throw GCException(kAlreadySetUp);
    try {
        m_pending.push_back({s1, s2, weight});
        m_pending.push_back({s2, s1, weight});
    } catch (const std::bad_alloc&) {
        throw GCException(kNotEnoughMemory);
    }
}

void GCoptimizationGeneralGraph::setAllNeighbors(SiteID* counts, SiteID** indexes, EnergyTermType** weights)
{
    if (!m_neighborsMayBeSet || !m_pending.empty())
        throw GCException(kAlreadySetUp);
    const SiteID n = numSites();
    try {
        m_counts.assign(counts, counts + n);
        m_starts.resize(size_t(n));
        int64_t total = 0;
        for (SiteID s = 0; s < n; ++s) {
            m_starts[size_t(s)] = total;
            total += counts[s];
        }
        m_neighborsIndexes.resize(size_t(total));
        m_neighborsWeights.resize(size_t(total));
        for (SiteID s = 0; s < n; ++s) {
            std::copy(indexes[s], indexes[s] + counts[s], m_neighborsIndexes.begin() + m_starts[size_t(s)]);
            std::copy(weights[s], weights[s] + counts[s], m_neighborsWeights.begin() + m_starts[size_t(s)]);
        }
    } catch (const std::bad_alloc&) {
        throw GCException("Not enough memory");
    }
    for (SiteID s = 0; s < n; ++s) {
        delete[] indexes[s];
        delete[] weights[s];
    }
    delete[] indexes;
    delete[] weights;
    delete[] counts;
    m_needToFinishSettingNeighbors = false;
    m_neighborsMayBeSet = false;
    setNeighborTable(m_counts.data(), m_starts.data(), m_neighborsIndexes.data(), m_neighborsWeights.data());
}

void GCoptimizationGeneralGraph::finalizeNeighbors()
{
    if (!m_needToFinishSettingNeighbors)
        return;
    m_needToFinishSettingNeighbors = false;
    m_neighborsMayBeSet = false;
    const SiteID n = numSites();
    try {
        m_counts.assign(size_t(n), 0);
        m_starts.assign(size_t(n), 0);
        for (const Pair& p : m_pending)
            ++m_counts[size_t(p.from)];
        int64_t total = 0;
        for (SiteID s = 0; s < n; ++s) {
            m_starts[size_t(s)] = total;
            total += m_counts[size_t(s)];
        }
        m_neighborsIndexes.resize(size_t(total));
        m_neighborsWeights.resize(size_t(total));
        // Fill in the order of setting: counts serve as cursors and end where
        // they began.
        std::fill(m_counts.begin(), m_counts.end(), 0);
        for (const Pair& p : m_pending) {
            const int64_t at = m_starts[size_t(p.from)] + m_counts[size_t(p.from)]++;
            m_neighborsIndexes[size_t(at)] = p.to;
            m_neighborsWeights[size_t(at)] = p.weight;
        }
    } catch (const std::bad_alloc&) {
        throw GCException("Not enough memory");
    }
    std::vector<Pair>().swap(m_pending);
    setNeighborTable(m_counts.data(), m_starts.data(), m_neighborsIndexes.data(), m_neighborsWeights.data());
}

void GCoptimizationGeneralGraph::giveNeighborInfo(SiteID site, SiteID* count, const SiteID** neighbors,
                                                  const EnergyTermType** weights)
{
    finalizeNeighbors();
    *count = m_counts[size_t(site)];
    if (*count == 0) {
        *neighbors = nullptr;
        *weights = nullptr;
        return;
    }
    *neighbors = m_neighborsIndexes.data() + m_starts[size_t(site)];
    *weights = m_neighborsWeights.data() + m_starts[size_t(site)];
}

// ---- grid graph ----------------------------------------------------------------------

namespace {
SiteID gridSites(SiteID width, SiteID height, LabelID numLabels)
{
    // The label check comes first, as for any solver.
    if (numLabels < 2)
        throw GCException("Number of labels must be >= 2");
    if (width < 1 || height < 1)
        return 0;
    const int64_t n = int64_t(width) * height;
    if (n > INT32_MAX)
        throw GCException(kNotEnoughMemory);
    return SiteID(n);
}
} // namespace

GCoptimizationGridGraph::GCoptimizationGridGraph(SiteID width, SiteID height, LabelID numLabels)
    : GCoptimization(gridSites(width, height, numLabels), numLabels), m_width(width), m_height(height)
{
    const SiteID n = numSites();
    try {
        m_counts.resize(size_t(n));
        m_starts.resize(size_t(n));
        m_neighbors.assign(size_t(n) * 4, -1);
    } catch (const std::bad_alloc&) {
        throw GCException(kNotEnoughMemory);
    }
    for (SiteID y = 0; y < height; ++y)
        for (SiteID x = 0; x < width; ++x) {
            const SiteID s = y * width + x;
            SiteID* out = &m_neighbors[size_t(s) * 4];
            SiteID c = 0;
            if (y == 0 || y == height - 1) {
                if (x + 1 < width)
                    out[c++] = s + 1;
                if (x > 0)
                    out[c++] = s - 1;
                if (y > 0)
                    out[c++] = s - width;
                if (y + 1 < height)
                    out[c++] = s + width;
            } else {
                if (x > 0)
                    out[c++] = s - 1;
                if (x + 1 < width)
                    out[c++] = s + 1;
                out[c++] = s - width;
                out[c++] = s + width;
            }
            m_counts[size_t(s)] = c;
            m_starts[size_t(s)] = int64_t(s) * 4;
        }
    setNeighborTable(m_counts.data(), m_starts.data(), m_neighbors.data(), nullptr);
}

GCoptimizationGridGraph::~GCoptimizationGridGraph() = default;

void GCoptimizationGridGraph::setNeighborWeights(const EnergyTermType* horizontal, const EnergyTermType* vertical)
{
    const SiteID n = numSites();
    try {
        m_neighborsWeights.assign(size_t(n) * 4, 0);
    } catch (const std::bad_alloc&) {
        throw GCException(kNotEnoughMemory);
    }
    for (SiteID s = 0; s < n; ++s)
        for (SiteID k = 0; k < m_counts[size_t(s)]; ++k) {
            const SiteID q = m_neighbors[size_t(s) * 4 + size_t(k)];
            const SiteID low = std::min(s, q);
            // Same row: a horizontal pair, even when width is 1 and q is s + 1.
            const bool sameRow = q / m_width == s / m_width;
            m_neighborsWeights[size_t(s) * 4 + size_t(k)] = sameRow ? horizontal[low] : vertical[low];
        }
    m_weightedGraph = true;
    setNeighborTable(m_counts.data(), m_starts.data(), m_neighbors.data(), m_neighborsWeights.data());
}

void GCoptimizationGridGraph::giveNeighborInfo(SiteID site, SiteID* count, const SiteID** neighbors,
                                               const EnergyTermType** weights)
{
    *count = m_counts[size_t(site)];
    *neighbors = &m_neighbors[size_t(site) * 4];
    *weights = m_weightedGraph ? &m_neighborsWeights[size_t(site) * 4] : m_unityWeights;
}
