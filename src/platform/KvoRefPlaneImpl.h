#pragma once

#include <QByteArray>

#include <functional>
#include <vector>

#include "scene/KvoRefPlane.h"

namespace kvo {

class QV_EXPORT CKvoQvRefPlane : public IKvoQvRefPlane {
public:
    long getId() const override { return m_id; }
    void setId(long id) override { m_id = id; }
    bool updateParam() override;
    XPnt3d getOrigin() const override { return m_origin; }
    void setOrigin(const XPnt3d& origin) override { m_origin = origin; }
    XPnt3d getXDir() const override { return m_x; }
    XPnt3d getYDir() const override { return m_y; }
    void setAxes(const XPnt3d& x, const XPnt3d& y) override
    {
        m_x = x;
        m_y = y;
    }
    QString getName() const override { return m_name; }
    void setName(const QString& name) override { m_name = name; }
    bool isVisible() const override { return m_visible; }
    void setVisible(bool visible) override { m_visible = visible; }
    ref_ptr<IKvoRing>& getRing(ref_ptr<IKvoRing>& out) const override { return out = m_ring; }
    void setRing(const ref_ptr<IKvoRing>& ring) override { m_ring = ring ? ring : newKvoRing(); }
    kvoPlaneParam getPlaneParam() const override { return m_param; }

private:
    long m_id = -1;
    QString m_name;
    XPnt3d m_origin{0, 0, 0}, m_x{1, 0, 0}, m_y{0, 1, 0};
    ref_ptr<IKvoRing> m_ring = newKvoRing();
    bool m_visible = true;
    kvoPlaneParam m_param;
};

class QV_EXPORT CKvoQvRefPlaneMan : public IKvoQvRefPlaneMan {
public:
    long nextPlaneId() override { return m_nextId++; }
    long getPlaneCount() const override { return long(m_planes.size()); }
    void clearPlanes() override;
    bool deletePlane(long id) override;
    bool addPlane(const ref_ptr<IKvoQvRefPlane>& plane) override;
    bool setActivePlane(long id) override;
    long getActivePlaneId() const override { return m_active; }
    long planeIndex(long id) const override;
    ref_ptr<LongArray>& getPlaneIds(ref_ptr<LongArray>& out) const override;
    ref_ptr<IKvoQvRefPlane>& getPlane(ref_ptr<IKvoQvRefPlane>& out, long id) const override;
    ref_ptr<IKvoQvRefPlane>& getPlaneAt(ref_ptr<IKvoQvRefPlane>& out, long index) const override;
    void updateDisplay(bool dirty) override;
    unsigned long long getDisplayVersion() const override { return m_version; }

    // Called on updateDisplay(true): the project is now changed.
    void setChangeListener(std::function<void()> listener) { m_onChange = std::move(listener); }
    // The list as a versioned little-endian blob, and back; false (nothing
    // changed) for a blob this version cannot read.
    QByteArray toBlob() const;
    bool fromBlob(const QByteArray& blob);

private:
    std::vector<ref_ptr<IKvoQvRefPlane>> m_planes;
    long m_active = -1;
    long m_nextId = 1;
    unsigned long long m_version = 0;
    std::function<void()> m_onChange;
};

} // namespace kvo
