#include "autotexture/KvoMaxFlow.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <sys/mman.h>

#include "autotexture/GCException.h"

namespace kvo {

namespace {

constexpr size_t kHugePage = size_t(2) << 20;

// Grows a malloc'd array to hold at least need elements, by half its size at
// a time (rounded up to even) so that repeated single additions stay linear.
// Large arrays sit on 2 MiB boundaries and ask for huge pages: a graph of a
// million nodes is touched all over, and with small pages both the first
// touch (a fault a page) and the later random access (a TLB miss a node)
// cost more than the flow's own work.
template <typename T> void growTo(T*& data, int& cap, int need)
{
    if (need <= cap)
        return;
    long long next = cap;
    while (next < need) {
        next += (next + 1) / 2;
        next += next & 1;
        next = std::max<long long>(next, 16);
    }
    if (next > 0x7fffffff)
        throw GCException("Not enough memory!");
    const size_t bytes = size_t(next) * sizeof(T);
    if (bytes < 2 * kHugePage) {
        T* p = static_cast<T*>(std::realloc(data, bytes));
        if (!p)
            throw GCException("Not enough memory!");
        data = p;
    } else {
        const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
        void* p = nullptr;
        if (posix_memalign(&p, kHugePage, rounded) != 0)
            throw GCException("Not enough memory!");
        madvise(p, rounded, MADV_HUGEPAGE); // a hint: without it the pages are small
        if (data)
            std::memcpy(p, data, size_t(cap) * sizeof(T));
        std::free(data);
        data = static_cast<T*>(p);
    }
    cap = int(next);
}

} // namespace

KvoMaxFlow::KvoMaxFlow(int nodeHint, int edgeHint)
{
    growTo(m_nodes, m_nodeCap, std::max(nodeHint, 16));
    growTo(m_arcs, m_arcCap, 2 * std::max(edgeHint, 16));
}

KvoMaxFlow::~KvoMaxFlow()
{
    std::free(m_nodes);
    std::free(m_arcs);
    std::free(m_queue);
    std::free(m_front);
    std::free(m_rear);
    std::free(m_marked);
}

int KvoMaxFlow::addNode(int count)
{
    const int first = m_nodeCount;
    if (count <= 0)
        return first;
    growTo(m_nodes, m_nodeCap, m_nodeCount + count);
    const Node blank{-1, kFree, 0, 0, 0, 0};
    std::fill(m_nodes + m_nodeCount, m_nodes + m_nodeCount + count, blank);
    m_nodeCount += count;
    return first;
}

void KvoMaxFlow::growArcs()
{
    growTo(m_arcs, m_arcCap, m_arcCount + 2);
}

void KvoMaxFlow::markNode(int i)
{
    Node& n = m_nodes[i];
    if (n.flags & kMarked)
        return;
    growTo(m_marked, m_markedCap, m_markedCount + 1);
    n.flags |= kMarked;
    m_marked[m_markedCount++] = i;
}

KvoMaxFlow::Segment KvoMaxFlow::whatSegment(int i, Segment freeNodes) const
{
    const Node& n = m_nodes[i];
    if (n.parent == kFree)
        return freeNodes;
    return (n.flags & kSinkTree) ? Sink : Source;
}

inline void KvoMaxFlow::setActive(int i)
{
    Node& n = m_nodes[i];
    if (n.flags & kActive)
        return;
    n.flags |= kActive;
    int tail = m_queueHead + m_queueCount;
    if (tail >= m_queueCap)
        tail -= m_queueCap;
    m_queue[tail] = i;
    ++m_queueCount;
}

inline int KvoMaxFlow::popActive()
{
    while (m_queueCount > 0) {
        const int i = m_queue[m_queueHead];
        if (++m_queueHead == m_queueCap)
            m_queueHead = 0;
        --m_queueCount;
        Node& n = m_nodes[i];
        n.flags &= uint8_t(~kActive);
        // Nodes freed since they were queued have nothing to grow.
        if (n.parent != kFree)
            return i;
    }
    return -1;
}

inline void KvoMaxFlow::noteChanged(int i)
{
    if (m_changedOut && !(m_nodes[i].flags & kInChanged)) {
        m_nodes[i].flags |= kInChanged;
        m_changedOut->push_back(i);
    }
}

void KvoMaxFlow::pushFrontOrphan(int i)
{
    if (m_frontCount == m_frontCap)
        growTo(m_front, m_frontCap, m_frontCount + 1);
    m_nodes[i].parent = kOrphan;
    m_front[m_frontCount++] = i;
    noteChanged(i);
}

void KvoMaxFlow::pushRearOrphan(int i)
{
    if (m_rearHead + m_rearCount == m_rearCap) {
        if (m_rearHead > 0) {
            std::memmove(m_rear, m_rear + m_rearHead, size_t(m_rearCount) * sizeof(int));
            m_rearHead = 0;
        }
        growTo(m_rear, m_rearCap, m_rearCount + 1);
    }
    m_nodes[i].parent = kOrphan;
    m_rear[m_rearHead + m_rearCount++] = i;
    noteChanged(i);
}

// Sends the bottleneck of source root -> ... -> tail(middle) -> head(middle)
// -> ... -> sink root and orphans the nodes below the arcs it saturates.
void KvoMaxFlow::augment(int middle)
{
    Node* const nodes = m_nodes;
    Arc* const arcs = m_arcs;
    Cap b = arcs[middle].r;
    for (int k = arcs[middle ^ 1].head;;) {
        const int p = nodes[k].parent;
        if (p == kTerminal) {
            b = std::min(b, nodes[k].tr);
            break;
        }
        b = std::min(b, arcs[p ^ 1].r);
        k = arcs[p].head;
    }
    for (int k = arcs[middle].head;;) {
        const int p = nodes[k].parent;
        if (p == kTerminal) {
            b = std::min(b, Cap(-nodes[k].tr));
            break;
        }
        b = std::min(b, arcs[p].r);
        k = arcs[p].head;
    }

    arcs[middle].r -= b;
    arcs[middle ^ 1].r += b;
    for (int k = arcs[middle ^ 1].head;;) {
        const int p = nodes[k].parent;
        if (p == kTerminal) {
            nodes[k].tr -= b;
            if (nodes[k].tr == 0)
                pushFrontOrphan(k);
            break;
        }
        // Flow runs parent -> k along the sister of the parent arc.
        arcs[p ^ 1].r -= b;
        arcs[p].r += b;
        if (arcs[p ^ 1].r == 0)
            pushFrontOrphan(k);
        k = arcs[p].head;
    }
    for (int k = arcs[middle].head;;) {
        const int p = nodes[k].parent;
        if (p == kTerminal) {
            nodes[k].tr += b;
            if (nodes[k].tr == 0)
                pushFrontOrphan(k);
            break;
        }
        arcs[p].r -= b;
        arcs[p ^ 1].r += b;
        if (arcs[p].r == 0)
            pushFrontOrphan(k);
        k = arcs[p].head;
    }
    m_flow += b;
}

void KvoMaxFlow::adoptOrphans()
{
    for (;;) {
        int i;
        if (m_frontCount > 0) {
            i = m_front[--m_frontCount];
        } else if (m_rearCount > 0) {
            i = m_rear[m_rearHead++];
            if (--m_rearCount == 0)
                m_rearHead = 0;
        } else {
            break;
        }
        if (m_nodes[i].parent != kOrphan)
            continue;
        if (m_nodes[i].flags & kSinkTree)
            processOrphan<true>(i);
        else
            processOrphan<false>(i);
    }
}

// An orphan takes the neighbour of its own tree that still hangs on the
// terminal and is nearest to it; the walks up to the terminal leave their
// distances behind under the current time, so no path is walked twice in one
// round. Without such a neighbour the node leaves its tree.
template <bool Sink> void KvoMaxFlow::processOrphan(int i)
{
    Node* const nodes = m_nodes;
    Arc* const arcs = m_arcs;
    const int32_t now = m_time;
    int bestArc = kFree;
    int32_t bestDist = 2147483647;

    for (int a = nodes[i].first; a >= 0; a = arcs[a].next) {
        // The arc that would carry flow from the candidate to i (source tree)
        // or from i to the candidate (sink tree).
        if (!(Sink ? arcs[a].r : arcs[a ^ 1].r))
            continue;
        const int j = arcs[a].head;
        if (nodes[j].parent == kFree || bool(nodes[j].flags & kSinkTree) != Sink)
            continue;
        int32_t d = 0;
        bool rooted = false;
        for (int k = j;;) {
            Node& nk = nodes[k];
            if (nk.ts == now) {
                d += nk.dist;
                rooted = true;
                break;
            }
            ++d;
            if (nk.parent == kTerminal) {
                nk.ts = now;
                nk.dist = 1;
                rooted = true;
                break;
            }
            if (nk.parent < 0) // an orphan on the way: no way up
                break;
            k = arcs[nk.parent].head;
        }
        if (!rooted)
            continue;
        if (d < bestDist) {
            bestDist = d;
            bestArc = a;
        }
        for (int k = j; nodes[k].ts != now; k = arcs[nodes[k].parent].head) {
            nodes[k].ts = now;
            nodes[k].dist = d--;
        }
    }

    Node& n = nodes[i];
    if (bestArc != kFree) {
        n.parent = bestArc;
        n.ts = now;
        n.dist = bestDist + 1;
        return;
    }
    leaveTree<Sink>(i);
    n.parent = kFree;
}

// Node i leaves its tree (freed, or moved to the other one by the reuse
// pass): its children become orphans, and the tree's neighbours that could
// grow into it again must look once more, or the tree would no longer hold
// every node that reaches its terminal.
template <bool Sink> void KvoMaxFlow::leaveTree(int i)
{
    for (int a = m_nodes[i].first; a >= 0; a = m_arcs[a].next) {
        const int j = m_arcs[a].head;
        const Node& m = m_nodes[j];
        if (m.parent == kFree || bool(m.flags & kSinkTree) != Sink)
            continue;
        if (Sink ? m_arcs[a].r : m_arcs[a ^ 1].r)
            setActive(j);
        if (m.parent >= 0 && m_arcs[m.parent].head == i)
            pushRearOrphan(j);
    }
}

void KvoMaxFlow::leaveTree(int i)
{
    if (m_nodes[i].flags & kSinkTree)
        leaveTree<true>(i);
    else
        leaveTree<false>(i);
}

// Growth from node i, from its arc `from` on: free neighbours that i can
// reach (source tree) or that reach i (sink tree) join its tree. Returns the
// arc from the source side to the sink side where the trees touch, with the
// arc of i that found it in `at`, or -1 when i has grown all it can.
template <bool Sink> int KvoMaxFlow::grow(int i, int from, int& at)
{
    Node* const nodes = m_nodes;
    Arc* const arcs = m_arcs;
    const Node& n = nodes[i];
    for (int a = from; a >= 0; a = arcs[a].next) {
        if (!(Sink ? arcs[a ^ 1].r : arcs[a].r))
            continue;
        const int j = arcs[a].head;
        Node& m = nodes[j];
        if (m.parent == kFree) {
            m.flags = uint8_t((m.flags & ~kSinkTree) | (Sink ? kSinkTree : 0));
            m.parent = a ^ 1;
            m.ts = n.ts;
            m.dist = n.dist + 1;
            setActive(j);
            noteChanged(j);
        } else if (bool(m.flags & kSinkTree) != Sink) {
            at = a;
            return Sink ? a ^ 1 : a;
        } else if (m.ts <= n.ts && m.dist > n.dist) {
            // A shorter way to the terminal; the times guarantee that m is
            // no ancestor of n.
            m.parent = a ^ 1;
            m.ts = n.ts;
            m.dist = n.dist + 1;
        }
    }
    return -1;
}

void KvoMaxFlow::prepareFresh()
{
    m_queueHead = m_queueCount = 0;
    m_frontCount = m_rearCount = m_rearHead = 0;
    m_time = 0;
    for (int i = 0; i < m_nodeCount; ++i) {
        Node& n = m_nodes[i];
        n.ts = 0;
        n.flags = 0;
        if (n.tr != 0) {
            n.flags = n.tr < 0 ? kSinkTree : 0;
            n.parent = kTerminal;
            n.dist = 1;
            setActive(i);
        } else {
            n.parent = kFree;
        }
    }
    m_markedCount = 0;
}

// Only the marked nodes can break what the last flow left: a node whose
// terminal capacity now points to the other terminal becomes a root of the
// other tree, a root that lost its capacity is an orphan, and a node with new
// arcs grows again.
void KvoMaxFlow::prepareReuse()
{
    ++m_time;
    for (int k = 0; k < m_markedCount; ++k) {
        const int i = m_marked[k];
        Node& n = m_nodes[i];
        n.flags &= uint8_t(~kMarked);
        if (n.tr != 0) {
            const bool wantSink = n.tr < 0;
            const bool inTree = n.parent != kFree;
            if (inTree && bool(n.flags & kSinkTree) != wantSink)
                leaveTree(i);
            if (!inTree || bool(n.flags & kSinkTree) != wantSink)
                noteChanged(i);
            n.parent = kTerminal;
            n.flags = uint8_t((n.flags & ~kSinkTree) | (wantSink ? kSinkTree : 0));
            n.ts = m_time;
            n.dist = 1;
            setActive(i);
        } else if (n.parent == kTerminal) {
            pushRearOrphan(i);
        } else if (n.parent != kFree) {
            setActive(i);
        }
    }
    m_markedCount = 0;
    adoptOrphans();
}

KvoMaxFlow::Flow KvoMaxFlow::maxflow(bool reuseTrees, std::vector<int>* changedList)
{
    if (reuseTrees && !m_flowed)
        throw GCException("reuse_trees cannot be used in the first call to maxflow()!");
    if (changedList && !reuseTrees)
        throw GCException("changed_list cannot be used without reuse_trees!");
    // Every node is queued at most once, so the ring never holds more.
    if (m_queueCap < m_nodeCount) {
        std::free(m_queue);
        m_queue = nullptr;
        m_queueCap = 0;
        growTo(m_queue, m_queueCap, m_nodeCount);
    }
    m_changedOut = changedList;
    if (changedList)
        changedList->clear();
    if (reuseTrees)
        prepareReuse();
    else
        prepareFresh();
    m_flowed = true;

    // After an augmentation the node carries on from the arc where its trees
    // touched: the arcs before it lead into its own tree or have no room, and
    // a neighbour that leaves the tree queues the node again.
    int current = -1, resume = -1;
    for (;;) {
        int i = current, from = resume;
        if (i < 0 || m_nodes[i].parent == kFree) {
            i = popActive();
            if (i < 0)
                break;
            from = m_nodes[i].first;
        }
        current = -1;
        int at = -1;
        const int middle = (m_nodes[i].flags & kSinkTree) ? grow<true>(i, from, at) : grow<false>(i, from, at);
        if (middle < 0)
            continue;
        ++m_time;
        current = i;
        resume = at;
        augment(middle);
        adoptOrphans();
    }

    if (changedList)
        for (int i : *changedList)
            m_nodes[i].flags &= uint8_t(~kInChanged);
    m_changedOut = nullptr;
    return m_flow;
}

} // namespace kvo
