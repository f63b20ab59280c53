#pragma once

#include <list>
#include <map>
#include <set>
#include <vector>

#include "scene/KvoStore.h"

namespace kvo {

class CKvoImageDb;

// The record of one image. Paths of kind 2 (and any path that lies in the
// project folder) are kept relative to the folder, so a project can move.
class QV_EXPORT CKvoImageInfo : public IKvoImageInfo {
public:
    explicit CKvoImageInfo(const CKvoImageDb* db);

    long getId() const override { return m_id; }
    void setId(long id) override { m_id = id; }
    void getName(QString& out) const override { out = m_name; }
    QString getName() const override { return m_name; }
    void setName(const QString& name) override { m_name = name; }
    bool isBigImage() const override { return m_big; }
    void setBigImage(bool big) { m_big = big; }

    void addCtrlImagePnt(const XPnt2d& p) override { m_ctrlImage->append(p); }
    void addCtrlWorldPnt(const XPnt3d& p) override { m_ctrlWorld->append(p); }
    bool removeCtrlImagePnt(long i) override { return m_ctrlImage->removeAt(i); }
    bool removeCtrlWorldPnt(long i) override { return m_ctrlWorld->removeAt(i); }
    bool getCtrlImagePnt(XPnt2d& out, long i) const override;
    bool getCtrlWorldPnt(XPnt3d& out, long i) const override;
    ref_ptr<Pnt2dArray>& getCtrlImagePnts(ref_ptr<Pnt2dArray>& out) const override { return out = m_ctrlImage; }
    ref_ptr<Pnt3dArray>& getCtrlWorldPnts(ref_ptr<Pnt3dArray>& out) const override { return out = m_ctrlWorld; }
    long getCtrlImagePntCount() const override { return m_ctrlImage->getCount(); }
    long getCtrlWorldPntCount() const override { return m_ctrlWorld->getCount(); }
    long getCtrlPntCount() const override { return std::min(getCtrlImagePntCount(), getCtrlWorldPntCount()); }

    void addMatchPnt(const POINT_POINT& p) override { m_match->append(p); }
    bool removeMatchPnt(long i) override;
    bool replaceMatchPnt(long i, const POINT_POINT& p) override;
    bool getMatchPnt(POINT_POINT& out, long i) const override;
    ref_ptr<PntPntArray>& getMatchPnts(ref_ptr<PntPntArray>& out) const override { return out = m_match; }
    long getMatchPntCount() const override { return m_match->getCount(); }
    void setTempMatchPnts(const ref_ptr<PntPntArray>& points) override { m_tempMatch = points; }
    ref_ptr<PntPntArray>& getTempMatchPnts(ref_ptr<PntPntArray>& out) const override { return out = m_tempMatch; }
    void clearTempMatchPnts() override { m_tempMatch.reset(); }
    void selectMatchPnt(long i) override { m_selectedMatch = i; }
    void clearMatchPntSelection() override { m_selectedMatch = -1; }
    long getSelectedMatchPnt() const override { return m_selectedMatch; }

    void setFilePath(const QString& path, int kind) override;
    bool getFilePath(QString& out, int kind) const override;
    QString getFilePath(int kind) const override;
    void getDataFolder(QString& out) const override;
    bool getImageSize(XPnt2i& out, long level) const override;
    void setImageSize(const XPnt2i& size) override { m_size = size; }

    void setMappingType(long type) override { m_mappingType = type; }
    long getMappingType() const override { return m_mappingType; }

    // Paths as stored: relative to the project folder where they lie in it.
    const std::map<int, QString>& storedPaths() const { return m_paths; }
    void setStoredPaths(const std::map<int, QString>& paths) { m_paths = paths; }
    // The record's lasting content in a fixed little-endian layout, and back.
    QByteArray serialize() const;
    bool deserialize(const QByteArray& bytes);
    // Called when the database goes: paths become absolute and the record stands alone.
    void detachDb();
    // A deep copy (for edit backups).
    ref_ptr<CKvoImageInfo> deepCopy() const;

private:
    const CKvoImageDb* m_db;
    long m_id = -1;
    QString m_name;
    bool m_big = false;
    long m_mappingType = -1;
    XPnt2i m_size;
    std::map<int, QString> m_paths;
    ref_ptr<Pnt2dArray> m_ctrlImage;
    ref_ptr<Pnt3dArray> m_ctrlWorld;
    ref_ptr<PntPntArray> m_match;
    ref_ptr<PntPntArray> m_tempMatch;
    long m_selectedMatch = -1;
};

// Kind of path a record keeps for a project-side override of level 1 pixels.
constexpr int kvoPathLevel1Override = 3;

class QV_EXPORT CKvoImageDb : public IKvoImageDb {
public:
    CKvoImageDb();
    ~CKvoImageDb() override;

    long open(const QString& folder) override;
    void getFolder(QString& out) const override { out = m_folder; }
    QString folder() const { return m_folder; }
    ref_ptr<IKvoImageInfo>& getImageInfo(ref_ptr<IKvoImageInfo>& out, long id) const override;
    ref_ptr<LongArray>& getImageIds(ref_ptr<LongArray>& out) const override;
    long getImageCount() const override { return long(m_order.size()); }
    long addImage(const QString& path, long& id) override;
    long addBigImage(const QString& path, long& id) override;
    long removeImage(long id) override;
    ref_ptr<IKvoImage>& getTexture(ref_ptr<IKvoImage>& out, long id, long level) const override;
    ref_ptr<IKvoImage>& getAlphaImage(ref_ptr<IKvoImage>& out, long id, long level, long mode) const override;
    long setTexture(const ref_ptr<IKvoImage>& image, long id, long level) override;
    long commit() override;
    long rebuildTiles(long id, long size) override;
    long addEvent(const ref_ptr<IKvoImageDbEvent>& event) override;
    void removeEvent(long eventId) override;

    // Absolute path of a stored path.
    QString resolve(const QString& stored) const;
    // A path relative to the folder where it lies inside it; else unchanged.
    QString toStored(const QString& path) const;
    ref_ptr<CKvoImageInfo> record(long id) const;
    const std::vector<long>& order() const { return m_order; }
    long nextId() const { return m_nextId; }
    // Reading a project back: records in order and the next id.
    void resetRecords(const std::vector<ref_ptr<CKvoImageInfo>>& records, long nextId);
    // Unsaved pixel changes, for edit sessions.
    bool hasPendingTexture(long id, long level) const override;
    // Forgets unsaved pixels of a level: the file the record names holds them again.
    void discardPendingTexture(long id, long level);
    // Deletes files in the image folder that no record names. Called after a
    // successful save and on open, never before the project file is written.
    void collectGarbage();
    QString imageFolder() const { return m_folder + "/images"; }
    QString lastError() const { return m_error; }

private:
    long addImageFile(const QString& path, bool big, long& id);
    void fire(int what, long id) const;
    QString uniqueName(const QString& name) const;

    QString m_folder;
    std::map<long, ref_ptr<CKvoImageInfo>> m_records;
    std::vector<long> m_order;
    long m_nextId = 1;
    // Pixels set but not yet written by commit(), by (id, level).
    std::map<std::pair<long, long>, ref_ptr<IKvoImage>> m_pending;
    // A few recently read textures: decoding a big JPEG is slow.
    mutable std::list<std::pair<std::pair<long, long>, ref_ptr<IKvoImage>>> m_cache;
    std::map<long, ref_ptr<IKvoImageDbEvent>> m_events;
    long m_nextEventId = 1;
    mutable QString m_error;
};

} // namespace kvo
