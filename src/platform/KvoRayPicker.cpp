#include "platform/KvoRayPicker.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace kvo {

namespace {
constexpr int kLeafSize = 4;
}

KvoRayPicker::Key KvoRayPicker::keyOf(const ref_ptr<IKvoMesh>& mesh)
{
    IKvoModel* model = mesh->getModel();
    const Pnt3fArray* v = model ? model->getVertices() : nullptr;
    const void* data = v ? v->getData() : nullptr;
    const long count = v ? v->getCount() : 0;
    return {mesh.get(), mesh->getDisplayVersion(), mesh->getFaceCount(), v, data, count};
}

bool KvoRayPicker::isCurrentFor(const ref_ptr<MeshArray>& meshes) const
{
    const long n = meshes ? meshes->getCount() : 0;
    if (n != long(m_keys.size()))
        return false;
    for (long i = 0; i < n; ++i) {
        const Key k = keyOf(meshes->getAt(i)), &o = m_keys[size_t(i)];
        if (k.mesh.get() != o.mesh.get() || k.version != o.version || k.faces != o.faces ||
            k.vertexArray.get() != o.vertexArray.get() || k.vertices != o.vertices || k.vertexCount != o.vertexCount)
            return false;
    }
    return true;
}

void KvoRayPicker::clear()
{
    m_nodes.clear();
    m_tri.clear();
    m_mesh.clear();
    m_face.clear();
    m_keys.clear();
}

void KvoRayPicker::build(const ref_ptr<MeshArray>& meshes)
{
    clear();
    if (!meshes)
        return;
    // Gather the triangles with their centroids.
    std::vector<float> tri;
    std::vector<int> meshOf;
    std::vector<long> faceOf;
    for (long mi = 0; mi < meshes->getCount(); ++mi) {
        const ref_ptr<IKvoMesh>& mesh = meshes->vec()[size_t(mi)];
        m_keys.push_back(keyOf(mesh));
        IKvoModel* model = mesh->getModel();
        if (!model)
            continue;
        const XPnt3f* v = model->getVertices()->getData();
        const unsigned nv = unsigned(model->getVertexCount());
        const unsigned* t = mesh->getTriangleIndices()->getData();
        for (long f = 0, nf = mesh->getFaceCount(); f < nf; ++f) {
            const unsigned a = t[3 * f], b = t[3 * f + 1], c = t[3 * f + 2];
            if (a >= nv || b >= nv || c >= nv)
                continue;
            for (unsigned vi : {a, b, c})
                tri.insert(tri.end(), {v[vi].x, v[vi].y, v[vi].z});
            meshOf.push_back(int(mi));
            faceOf.push_back(f);
        }
    }
    const size_t n = faceOf.size();
    if (n == 0)
        return;
    std::vector<float> centroid(n * 3);
    for (size_t i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k)
            centroid[3 * i + k] = (tri[9 * i + k] + tri[9 * i + 3 + k] + tri[9 * i + 6 + k]) / 3.f;
    std::vector<int> order(n);
    std::iota(order.begin(), order.end(), 0);

    // Median split on the longest axis of the centroids, built with an explicit stack.
    m_nodes.reserve(2 * n / kLeafSize + 1);
    m_nodes.push_back(Node{});
    struct Task {
        int node, start, count;
    };
    std::vector<Task> stack{{0, 0, int(n)}};
    while (!stack.empty()) {
        const Task task = stack.back();
        stack.pop_back();
        Node node;
        float clo[3], chi[3];
        for (int k = 0; k < 3; ++k) {
            node.lo[k] = clo[k] = std::numeric_limits<float>::max();
            node.hi[k] = chi[k] = -std::numeric_limits<float>::max();
        }
        for (int i = task.start; i < task.start + task.count; ++i) {
            const int t = order[size_t(i)];
            for (int k = 0; k < 3; ++k) {
                for (int c = 0; c < 3; ++c) {
                    node.lo[k] = std::min(node.lo[k], tri[size_t(9 * t + 3 * c + k)]);
                    node.hi[k] = std::max(node.hi[k], tri[size_t(9 * t + 3 * c + k)]);
                }
                clo[k] = std::min(clo[k], centroid[size_t(3 * t + k)]);
                chi[k] = std::max(chi[k], centroid[size_t(3 * t + k)]);
            }
        }
        int axis = 0;
        for (int k = 1; k < 3; ++k)
            if (chi[k] - clo[k] > chi[axis] - clo[axis])
                axis = k;
        if (task.count <= kLeafSize || chi[axis] <= clo[axis]) {
            node.start = task.start;
            node.count = task.count;
            m_nodes[size_t(task.node)] = node;
            continue;
        }
        const int half = task.count / 2;
        auto first = order.begin() + task.start;
        std::nth_element(first, first + half, first + task.count,
                         [&](int x, int y) { return centroid[size_t(3 * x + axis)] < centroid[size_t(3 * y + axis)]; });
        node.start = int(m_nodes.size());
        node.count = 0;
        m_nodes[size_t(task.node)] = node;
        m_nodes.push_back(Node{});
        m_nodes.push_back(Node{});
        stack.push_back({node.start, task.start, half});
        stack.push_back({node.start + 1, task.start + half, task.count - half});
    }
    // Triangles in leaf order, so a leaf reads one contiguous run.
    m_tri.resize(n * 9);
    m_mesh.resize(n);
    m_face.resize(n);
    for (size_t i = 0; i < n; ++i) {
        const int t = order[i];
        std::copy_n(&tri[size_t(9 * t)], 9, &m_tri[9 * i]);
        m_mesh[i] = meshOf[size_t(t)];
        m_face[i] = faceOf[size_t(t)];
    }
}

bool KvoRayPicker::intersect(const XPnt3d& o, const XPnt3d& d, double& tOut, long& meshIndex, long& face) const
{
    if (m_nodes.empty())
        return false;
    const double inv[3] = {1.0 / d.x, 1.0 / d.y, 1.0 / d.z};
    const double org[3] = {o.x, o.y, o.z};
    double best = std::numeric_limits<double>::infinity();
    long hit = -1;
    int stack[128];
    int top = 0;
    stack[top++] = 0;
    while (top > 0) {
        const Node& node = m_nodes[size_t(stack[--top])];
        // Slab test against the node's box.
        double t0 = 0, t1 = best;
        bool miss = false;
        for (int k = 0; k < 3 && !miss; ++k) {
            double a = (node.lo[k] - org[k]) * inv[k], b = (node.hi[k] - org[k]) * inv[k];
            if (a > b)
                std::swap(a, b);
            if (std::isnan(a) || std::isnan(b)) // ray parallel and on the slab's plane
                continue;
            t0 = std::max(t0, a);
            t1 = std::min(t1, b);
            miss = t0 > t1;
        }
        if (miss)
            continue;
        if (node.count == 0) {
            if (top + 2 > 128)
                continue;
            stack[top++] = node.start;
            stack[top++] = node.start + 1;
            continue;
        }
        for (int i = node.start; i < node.start + node.count; ++i) {
            const float* p = &m_tri[size_t(9 * i)];
            const XPnt3d a(p[0], p[1], p[2]), b(p[3], p[4], p[5]), c(p[6], p[7], p[8]);
            // Moller-Trumbore.
            const XPnt3d e1 = b - a, e2 = c - a, pv = d.cross(e2);
            const double det = e1.dot(pv);
            if (std::fabs(det) < 1e-300)
                continue;
            const double invDet = 1.0 / det;
            const XPnt3d tv = o - a;
            const double u = tv.dot(pv) * invDet;
            if (u < 0 || u > 1)
                continue;
            const XPnt3d qv = tv.cross(e1);
            const double v = d.dot(qv) * invDet;
            if (v < 0 || u + v > 1)
                continue;
            const double t = e2.dot(qv) * invDet;
            if (t > 0 && t < best) {
                best = t;
                hit = i;
            }
        }
    }
    if (hit < 0)
        return false;
    tOut = best;
    meshIndex = m_mesh[size_t(hit)];
    face = m_face[size_t(hit)];
    return true;
}

} // namespace kvo
