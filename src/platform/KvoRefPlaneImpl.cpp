#include "platform/KvoRefPlaneImpl.h"

#include <QDataStream>
#include <QIODevice>

#include <cmath>

namespace kvo {

ref_ptr<IKvoQvRefPlane> newKvoQvRefPlane()
{
    return ref_ptr<IKvoQvRefPlane>(new CKvoQvRefPlane());
}

bool CKvoQvRefPlane::updateParam()
{
    const XPnt3d n = cross(m_x, m_y);
    const double l = length(n);
    if (!(l > 1e-12) || !std::isfinite(l))
        return false;
    const XPnt3d u = n * (1.0 / l);
    m_param = kvoPlaneParam(u.x, u.y, u.z, -dot(u, m_origin));
    return true;
}

void CKvoQvRefPlaneMan::clearPlanes()
{
    m_planes.clear();
    m_active = -1;
}

bool CKvoQvRefPlaneMan::deletePlane(long id)
{
    const long i = planeIndex(id);
    if (i < 0)
        return false;
    m_planes.erase(m_planes.begin() + i);
    if (m_active == id)
        m_active = -1;
    return true;
}

bool CKvoQvRefPlaneMan::addPlane(const ref_ptr<IKvoQvRefPlane>& plane)
{
    if (!plane || planeIndex(plane->getId()) >= 0)
        return false;
    m_planes.push_back(plane);
    // A plane that came with its own id keeps later ids from repeating it.
    m_nextId = std::max(m_nextId, plane->getId() + 1);
    return true;
}

bool CKvoQvRefPlaneMan::setActivePlane(long id)
{
    if (id < 0) {
        m_active = -1;
        return true;
    }
    if (planeIndex(id) < 0)
        return false;
    m_active = id;
    return true;
}

long CKvoQvRefPlaneMan::planeIndex(long id) const
{
    for (size_t i = 0; i < m_planes.size(); ++i)
        if (m_planes[i]->getId() == id)
            return long(i);
    return -1;
}

ref_ptr<LongArray>& CKvoQvRefPlaneMan::getPlaneIds(ref_ptr<LongArray>& out) const
{
    out = newLongArray();
    for (const auto& p : m_planes)
        out->append(p->getId());
    return out;
}

ref_ptr<IKvoQvRefPlane>& CKvoQvRefPlaneMan::getPlane(ref_ptr<IKvoQvRefPlane>& out, long id) const
{
    const long i = planeIndex(id);
    out = i >= 0 ? m_planes[size_t(i)] : ref_ptr<IKvoQvRefPlane>();
    return out;
}

ref_ptr<IKvoQvRefPlane>& CKvoQvRefPlaneMan::getPlaneAt(ref_ptr<IKvoQvRefPlane>& out, long index) const
{
    out = index >= 0 && size_t(index) < m_planes.size() ? m_planes[size_t(index)] : ref_ptr<IKvoQvRefPlane>();
    return out;
}

void CKvoQvRefPlaneMan::updateDisplay(bool dirty)
{
    ++m_version;
    if (dirty && m_onChange)
        m_onChange();
}

namespace {
constexpr quint32 kMagic = 0x51525046; // "QRPF"
constexpr quint32 kVersion = 1;

void writePoint(QDataStream& s, const XPnt3d& p)
{
    s << p.x << p.y << p.z;
}

XPnt3d readPoint(QDataStream& s)
{
    XPnt3d p;
    s >> p.x >> p.y >> p.z;
    return p;
}
} // namespace

QByteArray CKvoQvRefPlaneMan::toBlob() const
{
    QByteArray out;
    QDataStream s(&out, QIODevice::WriteOnly);
    s.setByteOrder(QDataStream::LittleEndian);
    s.setFloatingPointPrecision(QDataStream::DoublePrecision);
    s << kMagic << kVersion << qint64(m_nextId) << qint64(m_active) << quint32(m_planes.size());
    for (const auto& p : m_planes) {
        s << qint64(p->getId()) << p->getName() << quint8(p->isVisible() ? 1 : 0);
        writePoint(s, p->getOrigin());
        writePoint(s, p->getXDir());
        writePoint(s, p->getYDir());
        ref_ptr<IKvoRing> ring;
        p->getRing(ring);
        const long n = ring ? ring->getPointCount() : 0;
        s << quint32(n);
        for (long i = 0; i < n; ++i)
            writePoint(s, ring->getPoint(i));
    }
    return out;
}

bool CKvoQvRefPlaneMan::fromBlob(const QByteArray& blob)
{
    QDataStream s(blob);
    s.setByteOrder(QDataStream::LittleEndian);
    s.setFloatingPointPrecision(QDataStream::DoublePrecision);
    quint32 magic = 0, version = 0, count = 0;
    qint64 nextId = 1, active = -1;
    s >> magic >> version >> nextId >> active >> count;
    if (s.status() != QDataStream::Ok || magic != kMagic || version != kVersion || count > 1000000)
        return false;
    std::vector<ref_ptr<IKvoQvRefPlane>> planes;
    for (quint32 k = 0; k < count; ++k) {
        qint64 id = -1;
        QString name;
        quint8 visible = 1;
        s >> id >> name >> visible;
        ref_ptr<IKvoQvRefPlane> p = newKvoQvRefPlane();
        p->setId(long(id));
        p->setName(name);
        p->setVisible(visible != 0);
        p->setOrigin(readPoint(s));
        const XPnt3d x = readPoint(s), y = readPoint(s);
        p->setAxes(x, y);
        quint32 n = 0;
        s >> n;
        if (s.status() != QDataStream::Ok || n > 10000000)
            return false;
        ref_ptr<IKvoRing> ring = newKvoRing();
        for (quint32 i = 0; i < n; ++i)
            ring->addPoint(readPoint(s));
        p->setRing(ring);
        p->updateParam();
        planes.push_back(p);
    }
    if (s.status() != QDataStream::Ok)
        return false;
    m_planes = std::move(planes);
    m_nextId = long(nextId);
    m_active = planeIndex(long(active)) >= 0 ? long(active) : -1;
    return true;
}

} // namespace kvo
