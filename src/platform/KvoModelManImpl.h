#pragma once

#include "platform/KvoRefPlaneImpl.h"

#include <functional>
#include <map>
#include <memory>

#include "platform/KvoImageDbImpl.h"
#include "platform/KvoMeshImpl.h"

namespace kvo {

class CKvoMM;

class QV_EXPORT CKvoProject : public IKvoProject {
public:
    CKvoProject(CKvoMM* mm, const QString& filePath);

    long save(IKvoProgress* progress) override;
    long saveAs(const QString& path, IKvoProgress* progress) override;
    ref_ptr<IKvoImageDb>& getImageDb(ref_ptr<IKvoImageDb>& out) const override { return out = m_db; }
    void getTempFolder(QString& out) const override;
    QString getFilePath() const override { return m_path; }
    QString getFolder() const override { return m_folder; }

    CKvoImageDb* imageDb() const { return m_db.get(); }
    void setFilePath(const QString& path);
    // The folder that holds a project file's images and derived files.
    static QString folderFor(const QString& projectFile);

private:
    CKvoMM* m_mm;
    QString m_path;
    QString m_folder;
    ref_ptr<CKvoImageDb> m_db;
};

// Everything a texture-edit session brings back on restore.
struct KvoTexEditBackup {
    struct MeshCopy {
        ref_ptr<CKvoMesh> live;  // the object others may hold
        ref_ptr<CKvoMesh> state; // its state when the session opened
    };
    std::vector<ref_ptr<IKvoMesh>> meshOrder; // the model's list as it was
    std::vector<MeshCopy> texMeshes;
    std::map<long, long> mappingTypes;
    std::map<long, ZebQVVCParam> vcParams;
    // Level 2, when asked for: the unsaved pixels of an image, or null where
    // the project's file holds them (nothing to keep in memory).
    std::map<long, ref_ptr<IKvoImage>> dbTextures;
    bool pixelsByLoader = false; // the database's pixels come back, so meshes may read theirs again
    long nextMeshId = 1;         // so that meshes made and dropped in the session leave no trace
};

class QV_EXPORT CKvoMM : public IKvoMM {
public:
    CKvoMM();
    ~CKvoMM() override;

    void setDirty(bool dirty) override { m_dirty = dirty; }
    bool isDirty() const override { return m_dirty; }
    ref_ptr<IKvoProject>& getProject(ref_ptr<IKvoProject>& out) const override { return out = m_project; }

    long newProject(const QString& path, IKvoProgress* progress) override;
    long openProject(const QString& path, IKvoProgress* progress) override;
    long saveProject(IKvoProgress* progress) override;
    long saveProjectAs(const QString& path, IKvoProgress* progress) override;
    void closeProject() override;
    QString getLastError() const override { return m_error; }

    ref_ptr<IKvoRing>& getFenceRing(ref_ptr<IKvoRing>& out) const override { return out = m_fence; }
    ref_ptr<IKvoQvRefPlaneMan>& getRefPlaneMan(ref_ptr<IKvoQvRefPlaneMan>& out) const override;
    void setFenceRing(const ref_ptr<IKvoRing>& ring) override { m_fence = ring; }
    long getRefImageId() const override { return m_refImageId; }
    void setRefImageId(long id) override { m_refImageId = id > 0 ? id : -1; }
    void getModelEnvelope(Enve3d& out) const override;
    ref_ptr<IKvoMesh>& createTexMesh(ref_ptr<IKvoMesh>& out, bool bare, long imageId, bool tiled) override;
    long getImageIdByName(const QString& name) const override;
    bool isImageIdValid(long id) const override;
    bool isBigImage(long id) const override;
    bool isNormalImage(long id) const override;
    long getMeshKind(const ref_ptr<IKvoMesh>& mesh) const override;
    long deleteTexMesh(const ref_ptr<IKvoMesh>& mesh, long flags, IKvoProgress* progress) override;
    long deleteBareMesh(const ref_ptr<IKvoMesh>& mesh) override;

    long setProjectBlob(const QString& section, const QString& key, const void* data, long bytes) override;
    long getProjectBlob(const QString& section, const QString& key, void* data, long bytes) const override;
    bool getProjectBlob(const QString& section, const QString& key, QByteArray& out) const override;
    long removeProjectBlob(const QString& section, const QString& key) override;

    void setBareModel(const ref_ptr<IKvoModel>& model) override;
    void setModelName(const QString& name) override;
    void getModelFileName(QString& out) const override { out = m_modelFileName; }
    void setModelFileName(const QString& name) override { m_modelFileName = name; }
    ref_ptr<IKvoModel>& getBareModel(ref_ptr<IKvoModel>& out) const override { return out = m_model; }
    bool hasModelData() const override;

    ref_ptr<IKvoImage>& getActiveImage(ref_ptr<IKvoImage>& out) const override;
    long getActiveImageId() const override { return m_activeImageId; }
    long setActiveImageId(long id) override;

    bool isTexMeshSelected(const ref_ptr<IKvoMesh>& mesh) const override;
    void setMeshSelected(const ref_ptr<IKvoMesh>& mesh, bool selected) override;
    bool isMeshAsleep(const ref_ptr<IKvoMesh>& mesh) const override;
    bool isImageMeshAsleep(long imageId) const override;
    bool isTexMesh(const ref_ptr<IKvoMesh>& mesh) const override;
    bool isImageMapped(long imageId) const override;
    long wakeMesh(long meshId, long flags) override;
    long sleepMesh(const ref_ptr<IKvoMesh>& mesh, IKvoProgress* progress) override;
    void getTexturedTriangles(std::set<XTrip<unsigned>>& out) const override;
    long getTexMeshCount() const override;
    ref_ptr<IKvoMesh>& getTexMeshOfImage(ref_ptr<IKvoMesh>& out, long imageId) const override;
    ref_ptr<IKvoMesh>& getImageTexMesh(ref_ptr<IKvoMesh>& out, long imageId) const override
    {
        return getTexMeshOfImage(out, imageId);
    }

    ref_ptr<MeshArray>& getSelectedMeshes(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getAllMeshes(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getMarkedMeshes(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getBareMeshes(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getShownTexMeshList(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getOtherShownMeshes(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getShownMeshes(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getAwakeBareMeshes(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getAwakeTexMeshes(ref_ptr<MeshArray>& out) const override;
    ref_ptr<MeshArray>& getTexMeshes(ref_ptr<MeshArray>& out) const override;
    bool isSelectionEmpty() const override;

    bool isTexEditOpen() const override { return m_texEdit != nullptr; }
    long openTexEdit(IKvoProgress* progress, long backupMeshes, long backupImageDb) override;
    long restoreTexEdit(IKvoProgress* progress) override;
    void closeTexEdit() override { m_texEdit.reset(); }
    void commitTexEdit() override;

    void setVCParam(long imageId, const ZebQVVCParam& param) override;
    bool getVCParam(long imageId, ZebQVVCParam& out) const override;
    bool removeVCParam(long imageId) override;
    bool getDltParam(long imageId, double* L) const override;
    void setDltSolver(bool (*solver)(long imageId, double* L)) override { m_dltSolver = solver; }

    void notifySelMarkCount(unsigned long long count) override;
    unsigned long long getNotifiedSelMarkCount() const override { return m_selMarkCount; }
    bool hasCornerUVs(const ref_ptr<IKvoMesh>& mesh) const override { return mesh && mesh->hasCornerUVs(); }

    // For the project file.
    CKvoProject* project() const { return m_project.get(); }
    CKvoModel* model() const;
    const std::map<std::pair<QString, QString>, QByteArray>& blobs() const { return m_blobs; }
    const std::map<long, ZebQVVCParam>& vcParams() const { return m_vcParams; }
    // Told of every marked-triangle count (the status bar listens).
    void setSelMarkListener(std::function<void(unsigned long long)> listener) { m_selMarkListener = listener; }

    // The whole per-project state, swapped in one piece so that a failed open
    // leaves the project that was open untouched.
    struct State {
        ref_ptr<CKvoProject> project;
        ref_ptr<IKvoModel> model;
        QString modelFileName;
        ref_ptr<IKvoRing> fence;
        long refImageId = -1;
        long activeImageId = -1;
        std::map<std::pair<QString, QString>, QByteArray> blobs;
        std::map<long, ZebQVVCParam> vcParams;
        ref_ptr<CKvoQvRefPlaneMan> planes;
    };
    void swapState(State& state);

private:
    void listMeshes(ref_ptr<MeshArray>& out, const std::function<bool(const CKvoMesh&)>& keep) const;
    CKvoMesh* asMesh(const ref_ptr<IKvoMesh>& mesh) const;
    bool ownsMesh(const IKvoMesh* mesh) const;

    ref_ptr<CKvoProject> m_project;
    ref_ptr<IKvoModel> m_model;
    QString m_modelFileName;
    ref_ptr<IKvoRing> m_fence;
    long m_refImageId = -1;
    long m_activeImageId = -1;
    std::map<std::pair<QString, QString>, QByteArray> m_blobs;
    std::map<long, ZebQVVCParam> m_vcParams;
    ref_ptr<CKvoQvRefPlaneMan> m_planes;
    bool m_dirty = false;
    std::unique_ptr<KvoTexEditBackup> m_texEdit;
    unsigned long long m_selMarkCount = 0;
    std::function<void(unsigned long long)> m_selMarkListener;
    bool (*m_dltSolver)(long, double*) = nullptr;
    QString m_error;
};

// Reading and writing the project file (an SQLite database).
namespace projectfile {
// Writes the state of the model manager to its project's file in one transaction.
QV_EXPORT long save(CKvoMM& mm, const QString& path, IKvoProgress* progress, QString& error);
// Reads a project file into a fresh state; the model manager is not touched.
QV_EXPORT long load(const QString& path, CKvoMM& mm, CKvoMM::State& out, IKvoProgress* progress, QString& error);
// Called between writing and committing the transaction; tests use it to
// interrupt a save at its most delicate point.
QV_EXPORT void setSaveInterruptHook(std::function<void()> hook);
} // namespace projectfile

} // namespace kvo
