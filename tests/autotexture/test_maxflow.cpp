// The flow graph of the graph-cut solver against a plain Edmonds-Karp on
// random graphs: the flow value, the cut it leaves, and flows that continue
// from the trees of an earlier one after terminal capacity is added.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "autotexture/GCException.h"
#include "autotexture/KvoMaxFlow.h"

using kvo::KvoMaxFlow;

namespace {

// A graph as lists, so that any number of implementations can be built from it.
struct Net {
    int nodes = 0;
    std::vector<std::array<int, 4>> edges;    // i, j, cap i->j, cap j->i
    std::vector<std::array<int, 3>> tweights; // i, from source, to sink

    void build(KvoMaxFlow& g, size_t firstEdge = 0, size_t firstT = 0) const
    {
        for (size_t k = firstEdge; k < edges.size(); ++k)
            g.addEdge(edges[k][0], edges[k][1], edges[k][2], edges[k][3]);
        for (size_t k = firstT; k < tweights.size(); ++k)
            g.addTWeights(tweights[k][0], tweights[k][1], tweights[k][2]);
    }

    // The capacity of the cut that puts the nodes with side 0 with the source.
    long long cutCapacity(const std::vector<int>& side) const
    {
        long long c = 0;
        for (const auto& e : edges) {
            if (side[size_t(e[0])] == 0 && side[size_t(e[1])] == 1)
                c += e[2];
            if (side[size_t(e[1])] == 0 && side[size_t(e[0])] == 1)
                c += e[3];
        }
        for (const auto& t : tweights)
            c += side[size_t(t[0])] == 1 ? t[1] : t[2];
        return c;
    }
};

// Edmonds-Karp on an adjacency list: shortest augmenting paths by BFS.
long long edmondsKarp(const Net& net)
{
    const int n = net.nodes + 2, s = net.nodes, t = net.nodes + 1;
    std::vector<int> head, cap;
    std::vector<std::vector<int>> out(static_cast<size_t>(n));
    auto arc = [&](int u, int v, int c) {
        out[size_t(u)].push_back(int(head.size()));
        head.push_back(v);
        cap.push_back(c);
        out[size_t(v)].push_back(int(head.size()));
        head.push_back(u);
        cap.push_back(0);
    };
    for (const auto& e : net.edges) {
        arc(e[0], e[1], e[2]);
        arc(e[1], e[0], e[3]);
    }
    for (const auto& tw : net.tweights) {
        arc(s, tw[0], tw[1]);
        arc(tw[0], t, tw[2]);
    }
    long long flow = 0;
    for (;;) {
        std::vector<int> via(size_t(n), -1);
        std::queue<int> q;
        q.push(s);
        via[size_t(s)] = -2;
        while (!q.empty() && via[size_t(t)] == -1) {
            const int u = q.front();
            q.pop();
            for (int a : out[size_t(u)])
                if (cap[size_t(a)] > 0 && via[size_t(head[size_t(a)])] == -1) {
                    via[size_t(head[size_t(a)])] = a;
                    q.push(head[size_t(a)]);
                }
        }
        if (via[size_t(t)] == -1)
            return flow;
        int b = 1 << 30;
        for (int v = t; v != s; v = head[size_t(via[size_t(v)] ^ 1)])
            b = std::min(b, cap[size_t(via[size_t(v)])]);
        for (int v = t; v != s; v = head[size_t(via[size_t(v)] ^ 1)]) {
            cap[size_t(via[size_t(v)])] -= b;
            cap[size_t(via[size_t(v)] ^ 1)] += b;
        }
        flow += b;
    }
}

Net randomNet(std::mt19937& rng, int nodes, int edges, int maxCap)
{
    Net net;
    net.nodes = nodes;
    std::uniform_int_distribution<int> node(0, nodes - 1), cap(0, maxCap), coin(0, 3);
    for (int k = 0; k < edges; ++k) {
        int i = node(rng), j = node(rng);
        if (i == j)
            j = (i + 1) % nodes;
        // A quarter of the arcs one way only.
        net.edges.push_back({i, j, cap(rng), coin(rng) == 0 ? 0 : cap(rng)});
    }
    for (int i = 0; i < nodes; ++i)
        if (coin(rng) != 0)
            net.tweights.push_back({i, coin(rng) == 0 ? 0 : cap(rng), coin(rng) == 0 ? 0 : cap(rng)});
    // Some nodes get terminal capacity twice, so that it merges with what is there.
    for (int k = 0; k < nodes / 4; ++k)
        net.tweights.push_back({node(rng), cap(rng), cap(rng)});
    return net;
}

std::vector<int> sides(const KvoMaxFlow& g, int nodes, KvoMaxFlow::Segment freeNodes)
{
    std::vector<int> side(static_cast<size_t>(nodes));
    for (int i = 0; i < nodes; ++i)
        side[size_t(i)] = g.whatSegment(i, freeNodes) == KvoMaxFlow::Source ? 0 : 1;
    return side;
}

} // namespace

TEST(MaxFlow, EqualsEdmondsKarpAndLeavesAMinimumCutOnRandomGraphs)
{
    std::mt19937 rng(7);
    for (int round = 0; round < 400; ++round) {
        const int nodes = 2 + int(rng() % 40);
        const int edges = int(rng() % size_t(nodes * 4));
        const Net net = randomNet(rng, nodes, edges, round % 2 ? 5 : 100);
        KvoMaxFlow g(round % 3 ? nodes : 1, round % 3 ? edges : 1); // small hints make the arrays grow
        g.addNode(nodes);
        net.build(g);
        const long long flow = g.maxflow();
        ASSERT_EQ(flow, edmondsKarp(net)) << "round " << round;
        // Nodes that neither terminal reaches may go either way.
        EXPECT_EQ(net.cutCapacity(sides(g, nodes, KvoMaxFlow::Source)), flow) << "round " << round;
        EXPECT_EQ(net.cutCapacity(sides(g, nodes, KvoMaxFlow::Sink)), flow) << "round " << round;
    }
}

TEST(MaxFlow, LargerGridGraphsAgreeWithEdmondsKarp)
{
    std::mt19937 rng(11);
    for (int round = 0; round < 6; ++round) {
        const int w = 40 + round * 5, h = 30;
        Net net;
        net.nodes = w * h;
        std::uniform_int_distribution<int> cap(0, 30), tcap(-40, 40);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const int s = y * w + x;
                if (x + 1 < w)
                    net.edges.push_back({s, s + 1, cap(rng), cap(rng)});
                if (y + 1 < h)
                    net.edges.push_back({s, s + w, cap(rng), cap(rng)});
                const int t = tcap(rng);
                net.tweights.push_back({s, std::max(t, 0), std::max(-t, 0)});
            }
        KvoMaxFlow g(net.nodes, int(net.edges.size()));
        g.addNode(net.nodes);
        net.build(g);
        const long long flow = g.maxflow();
        ASSERT_EQ(flow, edmondsKarp(net));
        EXPECT_EQ(net.cutCapacity(sides(g, net.nodes, KvoMaxFlow::Source)), flow);
    }
}

// After a flow, more terminal capacity (and now and then a new arc) is added
// and the flow continues from the old trees. Each round must agree with a
// graph built afresh from everything added so far.
TEST(MaxFlow, ReusedTreesGiveTheFlowOfAFreshGraph)
{
    std::mt19937 rng(23);
    for (int round = 0; round < 200; ++round) {
        const int nodes = 2 + int(rng() % 30);
        Net net = randomNet(rng, nodes, int(rng() % size_t(nodes * 3)), 20);
        KvoMaxFlow reused(nodes, 8);
        reused.addNode(nodes);
        net.build(reused);
        reused.maxflow();
        std::vector<int> before = sides(reused, nodes, KvoMaxFlow::Source);

        std::uniform_int_distribution<int> node(0, nodes - 1), amount(0, 25), coin(0, 4);
        for (int step = 0; step < 5; ++step) {
            const size_t firstEdge = net.edges.size(), firstT = net.tweights.size();
            const int changes = 1 + int(rng() % 4);
            for (int k = 0; k < changes; ++k) {
                // Either side, so that roots move to the other tree as well.
                net.tweights.push_back({node(rng), coin(rng) < 2 ? amount(rng) : 0, coin(rng) < 2 ? amount(rng) : 0});
                if (coin(rng) == 0) {
                    const int i = node(rng), j = (i + 1 + int(rng() % size_t(nodes - 1))) % nodes;
                    net.edges.push_back({i, j, amount(rng), amount(rng)});
                }
            }
            net.build(reused, firstEdge, firstT);
            std::vector<int> changed;
            const long long flow = reused.maxflow(true, &changed);

            KvoMaxFlow fresh(nodes, 8);
            fresh.addNode(nodes);
            net.build(fresh);
            ASSERT_EQ(flow, fresh.maxflow()) << "round " << round << " step " << step;
            ASSERT_EQ(flow, edmondsKarp(net)) << "round " << round << " step " << step;
            const std::vector<int> after = sides(reused, nodes, KvoMaxFlow::Source);
            EXPECT_EQ(net.cutCapacity(after), flow) << "round " << round << " step " << step;
            // The minimum cut with the largest source side is unique, so
            // both graphs must name the same one.
            EXPECT_EQ(after, sides(fresh, nodes, KvoMaxFlow::Source)) << "round " << round << " step " << step;
            for (int i = 0; i < nodes; ++i)
                if (after[size_t(i)] != before[size_t(i)]) {
                    EXPECT_NE(std::find(changed.begin(), changed.end(), i), changed.end())
                        << "node " << i << " moved unreported, round " << round << " step " << step;
                }
            before = after;
        }
    }
}

TEST(MaxFlow, MisusedReuseIsRefused)
{
    KvoMaxFlow g;
    g.addNode(2);
    g.addEdge(0, 1, 3, 0);
    g.addTWeights(0, 5, 0);
    g.addTWeights(1, 0, 2);
    try {
        g.maxflow(true);
        FAIL() << "reuse before any flow";
    } catch (const GCException& e) {
        EXPECT_STREQ(e.message, "reuse_trees cannot be used in the first call to maxflow()!");
    }
    std::vector<int> changed;
    try {
        g.maxflow(false, &changed);
        FAIL() << "changed list without reuse";
    } catch (const GCException& e) {
        EXPECT_STREQ(e.message, "changed_list cannot be used without reuse_trees!");
    }
    EXPECT_EQ(g.maxflow(), 2);
    // Nothing changed: a reusing flow has nothing to do and reports no node.
    EXPECT_EQ(g.maxflow(true, &changed), 2);
    EXPECT_TRUE(changed.empty());
}
