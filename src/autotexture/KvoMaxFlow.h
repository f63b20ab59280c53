#pragma once

// Maximum flow and minimum cut between two terminals on a sparse graph. Two
// search trees grow from the terminals through arcs with residual capacity;
// where they touch, the path carries its bottleneck, and the nodes that a
// saturated arc cuts off look for a new parent in their own tree or leave it.
// The trees outlive a flow: after terminal capacities change, a second flow
// can start from them and visit only what the change broke.
//
// Capacities and the flow are 32-bit; a caller keeps its sums inside that.
// Nodes and arcs live in plain arrays linked by index, so growing them never
// invalidates a link. Errors throw GCException.

#include <cstdint>
#include <vector>

#include "autotexture/GCException.h"
#include "scene/KvoExport.h"

namespace kvo {

class QV_EXPORT KvoMaxFlow {
public:
    using Cap = int32_t;
    using Flow = int32_t;
    enum Segment { Source = 0, Sink = 1 };

    // Room for nodeHint nodes and edgeHint arc pairs (at least 16 each); both
    // grow when more are added.
    explicit KvoMaxFlow(int nodeHint = 16, int edgeHint = 16);
    ~KvoMaxFlow();
    KvoMaxFlow(const KvoMaxFlow&) = delete;
    KvoMaxFlow& operator=(const KvoMaxFlow&) = delete;

    // Adds count nodes without capacity; the number of the first.
    int addNode(int count = 1);
    // Adds capacity from the source and to the sink of node i. What can go
    // source -> i -> sink directly is counted as flow at once and only the
    // difference stays; negative amounts are allowed.
    void addTWeights(int i, Cap fromSource, Cap toSink)
    {
        Node& n = m_nodes[i];
        if (n.tr > 0)
            fromSource += n.tr;
        else
            toSink -= n.tr;
        m_flow += fromSource < toSink ? fromSource : toSink;
        n.tr = fromSource - toSink;
        if (m_flowed)
            markNode(i);
    }
    // Arc i -> j with capacity cap and j -> i with capacity revCap.
    void addEdge(int i, int j, Cap cap, Cap revCap)
    {
        if (m_arcCount + 2 > m_arcCap)
            growArcs();
        const int a = m_arcCount;
        m_arcs[a] = {j, m_nodes[i].first, cap};
        m_arcs[a + 1] = {i, m_nodes[j].first, revCap};
        m_nodes[i].first = a;
        m_nodes[j].first = a + 1;
        m_arcCount += 2;
        if (m_flowed) {
            markNode(i);
            markNode(j);
        }
    }

    // The maximum flow (cumulative over calls). With reuseTrees the search
    // trees of the previous call are kept and only nodes changed since (by
    // addTWeights, addEdge or markNode) are looked at again. changedList, with
    // reuseTrees only, receives the nodes whose side of the cut may have moved.
    Flow maxflow(bool reuseTrees = false, std::vector<int>* changedList = nullptr);
    Flow flow() const { return m_flow; }

    // The side of node i in the minimum cut after maxflow: Sink for the nodes
    // that still reach the sink through residual arcs, Source for those the
    // source reaches, and freeNodes for those that neither reaches.
    Segment whatSegment(int i, Segment freeNodes = Source) const;

    // Tells a reusing flow that node i must be looked at again.
    void markNode(int i);

    int nodeCount() const { return m_nodeCount; }
    int arcCount() const { return m_arcCount; }

private:
    // 24 bytes, so that the arrays stay dense in the cache.
    struct Node {
        int32_t first;  // first arc out of the node, -1 none
        int32_t parent; // arc to the parent (its head is the parent), or kTerminal, kOrphan, kFree
        int32_t ts;     // time at which dist was known to be right
        int32_t dist;   // arcs to the terminal, the root being 1
        Cap tr;         // residual terminal capacity: > 0 from the source, < 0 to the sink
        uint8_t flags;  // kSinkTree, kActive, kMarked, kInChanged
    };
    // Arcs come in pairs: the sister of arc a is a ^ 1.
    struct Arc {
        int32_t head;
        int32_t next; // next arc out of the same tail
        Cap r;        // residual capacity
    };
    static constexpr int32_t kFree = -1, kTerminal = -2, kOrphan = -3;
    enum : uint8_t { kSinkTree = 1, kActive = 2, kMarked = 4, kInChanged = 8 };

    void growArcs(); // called from addEdge in callers' code: stays exported
    QV_GC_HIDDEN void setActive(int i);
    QV_GC_HIDDEN int popActive();
    QV_GC_HIDDEN void augment(int middle);
    QV_GC_HIDDEN void pushFrontOrphan(int i);
    QV_GC_HIDDEN void pushRearOrphan(int i);
    QV_GC_HIDDEN void adoptOrphans();
    template <bool Sink> QV_GC_HIDDEN void processOrphan(int i);
    template <bool Sink> QV_GC_HIDDEN void leaveTree(int i);
    QV_GC_HIDDEN void leaveTree(int i);
    template <bool Sink> QV_GC_HIDDEN int grow(int i, int from, int& at);
    QV_GC_HIDDEN void prepareFresh();
    QV_GC_HIDDEN void prepareReuse();
    QV_GC_HIDDEN void noteChanged(int i);

    Node* m_nodes = nullptr;
    int m_nodeCount = 0, m_nodeCap = 0;
    Arc* m_arcs = nullptr;
    int m_arcCount = 0, m_arcCap = 0;

    // Active nodes, first in first out, each at most once (kActive).
    int* m_queue = nullptr;
    int m_queueHead = 0, m_queueCount = 0, m_queueCap = 0;
    // Orphans of an augmentation are worked first, newest first; those found
    // while adopting queue behind them.
    int* m_front = nullptr;
    int m_frontCount = 0, m_frontCap = 0;
    int* m_rear = nullptr;
    int m_rearHead = 0, m_rearCount = 0, m_rearCap = 0;
    int* m_marked = nullptr;
    int m_markedCount = 0, m_markedCap = 0;

    std::vector<int>* m_changedOut = nullptr;
    int32_t m_time = 0;
    Flow m_flow = 0;
    bool m_flowed = false;
};

} // namespace kvo
