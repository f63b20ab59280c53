#include "platform/KvoMeshImpl.h"

#include <algorithm>

namespace kvo {

namespace {
constexpr unsigned kNoIndex = 0xFFFFFFFFu;

XPnt3f triNormal(const XPnt3f* v, unsigned a, unsigned b, unsigned c)
{
    XPnt3f n = (v[b] - v[a]).cross(v[c] - v[a]);
    n.normalize();
    return n;
}
} // namespace

// ---------------------------------------------------------------- CKvoMesh

CKvoMesh::CKvoMesh(CKvoModel* model, long id, long imageId, bool tiled)
    : m_model(model), m_id(id), m_imageId(imageId), m_tiled(tiled), m_tris(newUIntArray()), m_normals(newPnt3fArray())
{
}

CKvoMesh::~CKvoMesh() = default;

IKvoModel* CKvoMesh::getModel() const
{
    return m_model;
}

void CKvoMesh::invalidateCaches()
{
    m_faceIndexValid = false;
    m_faceIndex.clear();
}

void CKvoMesh::setTriangleIndices(UIntArray* triangles, bool refresh)
{
    long oldFaces = getFaceCount();
    m_tris = triangles ? ref_ptr<UIntArray>(triangles) : newUIntArray();
    long faces = getFaceCount();
    // Per-face data that no longer lines up with the faces is dropped rather
    // than left to index out of range.
    if (faces != oldFaces) {
        if (m_marks && m_marks->getCount() != faces)
            m_marks.reset();
        if (m_cornerIdx && m_cornerIdx->getCount() != faces * 3)
            m_cornerIdx.reset();
    }
    if (!m_normals || m_normals->getCount() != faces)
        computeFaceNormals();
    invalidateCaches();
    if (refresh)
        refreshDisplay();
}

void CKvoMesh::setTriangles(UIntArray* triangles, bool refresh)
{
    setTriangleIndices(triangles, refresh);
}

void CKvoMesh::setFaceNormals(Pnt3fArray* normals, bool refresh)
{
    m_normals = normals ? ref_ptr<Pnt3fArray>(normals) : newPnt3fArray();
    if (refresh)
        refreshDisplay();
}

bool CKvoMesh::getFaceNormal(XPnt3f& out, long face) const
{
    if (!m_normals || face < 0 || face >= m_normals->getCount())
        return false;
    out = m_normals->getAt(face);
    return true;
}

void CKvoMesh::computeFaceNormals()
{
    ref_ptr<Pnt3fArray> normals = newPnt3fArray();
    long faces = getFaceCount();
    normals->resize(faces);
    Pnt3fArray* verts = m_model ? m_model->getVertices() : nullptr;
    if (verts && faces > 0) {
        const XPnt3f* v = verts->getData();
        const unsigned* t = m_tris->getData();
        const unsigned nv = unsigned(verts->getCount());
        XPnt3f* n = normals->getData();
#pragma omp parallel for if (faces > 20000)
        for (long f = 0; f < faces; ++f) {
            unsigned a = t[3 * f], b = t[3 * f + 1], c = t[3 * f + 2];
            n[f] = (a < nv && b < nv && c < nv) ? triNormal(v, a, b, c) : XPnt3f();
        }
    }
    m_normals = normals;
}

void CKvoMesh::setSolidColor(const KvoColor4b* colour, bool refresh)
{
    if (colour)
        m_solid = *colour;
    if (refresh)
        refreshDisplay();
}

void CKvoMesh::setUVs(Pnt2fArray* uvs)
{
    m_uvs = uvs;
    refreshDisplay();
}

void CKvoMesh::setImage(const ref_ptr<IKvoImage>& image)
{
    m_image = image;
    m_imageLoader = nullptr;
    refreshDisplay();
}

ref_ptr<IKvoImage>& CKvoMesh::getImage(ref_ptr<IKvoImage>& out) const
{
    if (m_imageLoader) {
        auto loader = std::move(m_imageLoader);
        m_imageLoader = nullptr;
        m_image = loader();
        m_reloader = std::move(loader);
        m_savedImage = m_image.get();
        m_savedRevision = m_image ? m_image->getRevision() : 0;
    }
    return out = m_image;
}

void CKvoMesh::setImageLoader(std::function<ref_ptr<IKvoImage>()> loader)
{
    m_image.reset();
    m_imageLoader = std::move(loader);
}

bool CKvoMesh::isImageChanged() const
{
    if (m_imageLoader || !m_image)
        return false;
    return m_image.get() != m_savedImage || m_image->getRevision() != m_savedRevision;
}

void CKvoMesh::markImageSaved(std::function<ref_ptr<IKvoImage>()> reloader)
{
    if (reloader)
        m_reloader = std::move(reloader);
    m_savedImage = m_image.get();
    m_savedRevision = m_image ? m_image->getRevision() : 0;
}

void CKvoMesh::invertSelMarks()
{
    long faces = getFaceCount();
    if (!m_marks || m_marks->getCount() != faces) {
        ref_ptr<ByteArray> marks = newByteArray();
        marks->resize(faces);
        if (m_marks)
            std::copy_n(m_marks->getData(), std::min(faces, m_marks->getCount()), marks->getData());
        m_marks = marks;
    }
    unsigned char* m = m_marks->getData();
    for (long i = 0; i < faces; ++i)
        m[i] = m[i] ? 0 : 1;
}

void CKvoMesh::refreshDisplay()
{
    ++m_version;
    invalidateCaches();
}

void CKvoMesh::getEnvelope(Enve3d& out) const
{
    out.reset();
    Pnt3fArray* verts = m_model ? m_model->getVertices() : nullptr;
    if (!verts)
        return;
    const XPnt3f* v = verts->getData();
    const unsigned nv = unsigned(verts->getCount());
    const unsigned* t = m_tris->getData();
    for (long i = 0, n = m_tris->getCount(); i < n; ++i)
        if (t[i] < nv)
            out.add(v[t[i]]);
}

void CKvoMesh::setCornerTexIndices(UIntArray* triangles, UIntArray* uvIndices)
{
    if (triangles)
        setTriangleIndices(triangles, false);
    if (uvIndices && uvIndices->getCount() == m_tris->getCount())
        m_cornerIdx = uvIndices;
    else
        m_cornerIdx.reset();
    refreshDisplay();
}

long CKvoMesh::findFace(unsigned a, unsigned b, unsigned c) const
{
    if (!m_faceIndexValid) {
        long faces = getFaceCount();
        const unsigned* t = m_tris->getData();
        m_faceIndex.resize(size_t(faces));
        for (long f = 0; f < faces; ++f)
            m_faceIndex[size_t(f)] = {XTrip<unsigned>(t[3 * f], t[3 * f + 1], t[3 * f + 2]).normalize(), f};
        // Stable on the face number, so the first face with the triple wins.
        std::sort(m_faceIndex.begin(), m_faceIndex.end(), [](const auto& x, const auto& y) {
            return x.first < y.first || (x.first == y.first && x.second < y.second);
        });
        m_faceIndexValid = true;
    }
    XTrip<unsigned> key = XTrip<unsigned>(a, b, c).normalize();
    auto it = std::lower_bound(m_faceIndex.begin(), m_faceIndex.end(), key,
                               [](const auto& e, const XTrip<unsigned>& k) { return e.first < k; });
    if (it != m_faceIndex.end() && it->first == key)
        return it->second;
    return -1;
}

long CKvoMesh::getFaceCorner(long face, long corner) const
{
    if (face < 0 || face >= getFaceCount() || corner < 0 || corner > 2)
        return -1;
    if (m_cornerIdx)
        return long(m_cornerIdx->getAt(face * 3 + corner));
    return long(m_tris->getAt(face * 3 + corner));
}

void CKvoMesh::setFaces(UIntArray* triangles, bool refresh)
{
    ref_ptr<UIntArray> newTris = triangles ? ref_ptr<UIntArray>(triangles) : newUIntArray();
    if (!m_cornerIdx) {
        setTriangleIndices(newTris.get(), refresh);
        return;
    }
    // Corner-indexed: carry each surviving face's UV indices over, matched by
    // vertex; a new face takes the UV index that its vertex has elsewhere.
    const long oldFaces = getFaceCount();
    const unsigned* ot = m_tris->getData();
    const unsigned* oc = m_cornerIdx->getData();
    std::vector<std::pair<unsigned, unsigned>> vertexUV;
    vertexUV.reserve(size_t(oldFaces) * 3);
    for (long i = 0; i < oldFaces * 3; ++i)
        vertexUV.push_back({ot[i], oc[i]});
    std::sort(vertexUV.begin(), vertexUV.end());

    const long faces = newTris->getCount() / 3;
    ref_ptr<UIntArray> corners = newUIntArray();
    corners->resize(faces * 3);
    const unsigned* nt = newTris->getData();
    unsigned* nc = corners->getData();
    for (long f = 0; f < faces; ++f) {
        long old = findFace(nt[3 * f], nt[3 * f + 1], nt[3 * f + 2]);
        for (int k = 0; k < 3; ++k) {
            unsigned v = nt[3 * f + k];
            unsigned uv = kNoIndex;
            if (old >= 0) {
                for (int j = 0; j < 3; ++j)
                    if (ot[3 * old + j] == v)
                        uv = oc[3 * old + j];
            }
            if (uv == kNoIndex) {
                auto it = std::lower_bound(vertexUV.begin(), vertexUV.end(), std::make_pair(v, 0u));
                if (it != vertexUV.end() && it->first == v)
                    uv = it->second;
            }
            nc[3 * f + k] = uv;
        }
    }
    m_cornerIdx.reset();
    setTriangleIndices(newTris.get(), false);
    m_cornerIdx = corners;
    if (refresh)
        refreshDisplay();
}

void CKvoMesh::beginUVEdit(long)
{
    m_editUVs = newPnt2fArray();
    m_editVertices = newUIntArray();
    const unsigned* t = m_tris->getData();
    const long corners = m_tris->getCount();
    if (m_cornerIdx) {
        const long n = m_uvs ? m_uvs->getCount() : 0;
        if (m_uvs)
            m_editUVs->vec() = m_uvs->vec();
        m_editVertices->vec().assign(size_t(n), kNoIndex);
        const unsigned* c = m_cornerIdx->getData();
        for (long i = corners - 1; i >= 0; --i)
            if (c[i] < unsigned(n))
                m_editVertices->vec()[c[i]] = t[i];
        return;
    }
    std::vector<unsigned> used(t, t + corners);
    std::sort(used.begin(), used.end());
    used.erase(std::unique(used.begin(), used.end()), used.end());
    m_editVertices->vec() = used;
    m_editUVs->resize(long(used.size()));
    const long nuv = m_uvs ? m_uvs->getCount() : 0;
    for (size_t k = 0; k < used.size(); ++k)
        (*m_editUVs)[long(k)] = long(used[k]) < nuv ? m_uvs->getAt(long(used[k])) : XPnt2f();
}

void CKvoMesh::setEditUVs(Pnt2fArray* uvs, UIntArray* uvVertices)
{
    if (!uvs)
        return;
    if (!m_uvs)
        m_uvs = newPnt2fArray();
    if (m_cornerIdx) {
        if (m_uvs->getCount() < uvs->getCount())
            m_uvs->resize(uvs->getCount());
        std::copy_n(uvs->getData(), uvs->getCount(), m_uvs->getData());
    } else if (uvVertices) {
        const long n = std::min(uvs->getCount(), uvVertices->getCount());
        const long nv = m_model ? m_model->getVertexCount() : 0;
        if (m_uvs->getCount() < nv)
            m_uvs->resize(nv);
        for (long k = 0; k < n; ++k) {
            unsigned v = uvVertices->getAt(k);
            if (long(v) < m_uvs->getCount())
                (*m_uvs)[long(v)] = uvs->getAt(k);
        }
    }
    m_editUVs = uvs;
    m_editVertices = uvVertices;
    refreshDisplay();
}

XPnt2f CKvoMesh::getUVOfVertex(unsigned vertex, long face) const
{
    if (!m_uvs)
        return XPnt2f::invalidPnt();
    const unsigned* t = m_tris->getData();
    const long faces = getFaceCount();
    auto uvAt = [&](long corner) {
        unsigned idx = m_cornerIdx ? m_cornerIdx->getAt(corner) : t[corner];
        return long(idx) < m_uvs->getCount() ? m_uvs->getAt(long(idx)) : XPnt2f::invalidPnt();
    };
    if (face >= 0) {
        if (face >= faces)
            return XPnt2f::invalidPnt();
        for (int k = 0; k < 3; ++k)
            if (t[3 * face + k] == vertex)
                return uvAt(3 * face + k);
        return XPnt2f::invalidPnt();
    }
    for (long i = 0; i < faces * 3; ++i)
        if (t[i] == vertex)
            return uvAt(i);
    return XPnt2f::invalidPnt();
}

void CKvoMesh::setTextureData(const unsigned char* pixels, long width, long height, long channels)
{
    // A fresh image object: whoever else holds the old one (the image
    // database, an edit backup) keeps its pixels.
    ref_ptr<IKvoImage> img = newKvoImage();
    if (img->setData(pixels, width, height, channels)) {
        m_image = img;
        m_imageLoader = nullptr;
    }
    refreshDisplay();
}

void CKvoMesh::copyStateFrom(const CKvoMesh& o, bool pixelsByLoader)
{
    m_imageId = o.m_imageId;
    m_tiled = o.m_tiled;
    m_tris = o.m_tris ? o.m_tris->clone() : newUIntArray();
    m_normals = o.m_normals ? o.m_normals->clone() : newPnt3fArray();
    m_uvs = o.m_uvs ? o.m_uvs->clone() : ref_ptr<Pnt2fArray>();
    m_cornerIdx = o.m_cornerIdx ? o.m_cornerIdx->clone() : ref_ptr<UIntArray>();
    m_marks = o.m_marks ? o.m_marks->clone() : ref_ptr<ByteArray>();
    m_reloader = o.m_reloader;
    if (o.m_imageLoader && pixelsByLoader) {
        // Not read yet: read it when it is wanted.
        m_image.reset();
        m_imageLoader = o.m_imageLoader;
    } else if (pixelsByLoader && o.m_reloader && o.m_image && !o.isImageChanged()) {
        m_image.reset();
        m_imageLoader = o.m_reloader;
    } else {
        ref_ptr<IKvoImage> img;
        o.getImage(img);
        m_image = img ? img->clone() : ref_ptr<IKvoImage>();
        m_imageLoader = nullptr;
    }
    m_selColor = o.m_selColor;
    m_solid = o.m_solid;
    m_name = o.m_name;
    m_fileName = o.m_fileName;
    m_showTexture = o.m_showTexture;
    m_shown = o.m_shown;
    m_asleep = o.m_asleep;
    m_selected = o.m_selected;
    refreshDisplay();
}

// ---------------------------------------------------------------- CKvoModel

CKvoModel::CKvoModel() : m_vertices(newPnt3fArray()) {}

CKvoModel::~CKvoModel()
{
    for (auto& m : m_meshes)
        if (auto* cm = dynamic_cast<CKvoMesh*>(m.get()))
            cm->detachModel();
}

void CKvoModel::setVertices(Pnt3fArray* vertices, bool refresh)
{
    m_vertices = vertices ? ref_ptr<Pnt3fArray>(vertices) : newPnt3fArray();
    // Vertices edited in place come back as the same array: only the meshes'
    // display versions tell views and pickers to look again.
    if (refresh)
        for (auto& m : m_meshes)
            m->refreshDisplay();
}

void CKvoModel::setVertexNormals(Pnt3fArray* normals, bool, bool compute)
{
    if (!compute) {
        m_vertexNormals = normals;
        return;
    }
    // Area-weighted average of the faces around each vertex.
    const long nv = getVertexCount();
    ref_ptr<Pnt3fArray> out = normals ? ref_ptr<Pnt3fArray>(normals) : newPnt3fArray();
    out->vec().assign(size_t(nv), XPnt3f());
    const XPnt3f* v = m_vertices->getData();
    XPnt3f* n = out->getData();
    for (auto& m : m_meshes) {
        const UIntArray* tris = m->getTriangleIndices();
        const unsigned* t = tris->getData();
        for (long i = 0; i + 2 < tris->getCount(); i += 3) {
            unsigned a = t[i], b = t[i + 1], c = t[i + 2];
            if (long(a) >= nv || long(b) >= nv || long(c) >= nv)
                continue;
            XPnt3f fn = (v[b] - v[a]).cross(v[c] - v[a]);
            n[a] += fn;
            n[b] += fn;
            n[c] += fn;
        }
    }
    for (long i = 0; i < nv; ++i)
        n[i].normalize();
    m_vertexNormals = out;
}

void CKvoModel::addMesh(const ref_ptr<IKvoMesh>& mesh)
{
    if (!mesh || std::find(m_meshes.begin(), m_meshes.end(), mesh) != m_meshes.end())
        return;
    m_meshes.push_back(mesh);
    m_nextMeshId = std::max(m_nextMeshId, mesh->getId() + 1);
}

bool CKvoModel::removeMesh(const ref_ptr<IKvoMesh>& mesh)
{
    auto it = std::find(m_meshes.begin(), m_meshes.end(), mesh);
    if (it == m_meshes.end())
        return false;
    m_meshes.erase(it);
    return true;
}

ref_ptr<IKvoMesh>& CKvoModel::getMesh(ref_ptr<IKvoMesh>& out, long index) const
{
    out = (index >= 0 && index < long(m_meshes.size())) ? m_meshes[size_t(index)] : ref_ptr<IKvoMesh>();
    return out;
}

ref_ptr<IKvoMesh> CKvoModel::getMesh(long index) const
{
    ref_ptr<IKvoMesh> out;
    return getMesh(out, index);
}

ref_ptr<IKvoMesh>& CKvoModel::getMeshById(ref_ptr<IKvoMesh>& out, long id) const
{
    out.reset();
    for (auto& m : m_meshes)
        if (m->getId() == id)
            out = m;
    return out;
}

ref_ptr<IKvoMesh> CKvoModel::newMesh(long imageId, bool tiled)
{
    return ref_ptr<IKvoMesh>(new CKvoMesh(this, m_nextMeshId++, imageId, tiled));
}

void CKvoModel::rewindNextMeshId(long id)
{
    for (long i = 0; i < getMeshCount(); ++i)
        id = std::max(id, getMesh(i)->getId() + 1);
    m_nextMeshId = std::min(m_nextMeshId, id);
}

ref_ptr<CKvoMesh> CKvoModel::newMeshWithId(long id, long imageId, bool tiled)
{
    m_nextMeshId = std::max(m_nextMeshId, id + 1);
    return ref_ptr<CKvoMesh>(new CKvoMesh(this, id, imageId, tiled));
}

void CKvoModel::getEnvelope(Enve3d& out) const
{
    out.reset();
    const XPnt3f* v = m_vertices->getData();
    for (long i = 0, n = getVertexCount(); i < n; ++i)
        out.add(v[i]);
}

ref_ptr<IKvoModel> newKvoModel()
{
    return ref_ptr<IKvoModel>(new CKvoModel());
}

} // namespace kvo
