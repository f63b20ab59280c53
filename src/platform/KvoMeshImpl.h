#pragma once

#include <functional>
#include <vector>

#include "scene/KvoStore.h"

namespace kvo {

class CKvoModel;

// The store's mesh. Besides the interface it carries the flags that the model
// manager and the project file keep per mesh (asleep, selected).
class QV_EXPORT CKvoMesh : public IKvoMesh {
public:
    CKvoMesh(CKvoModel* model, long id, long imageId, bool tiled);
    ~CKvoMesh() override;

    long getId() const override { return m_id; }
    IKvoModel* getModel() const override;
    long getImageId() const override { return m_imageId; }
    bool isTiled() const override { return m_tiled; }

    void setTriangleIndices(UIntArray* triangles, bool refresh) override;
    void setTriangles(UIntArray* triangles, bool refresh) override;
    UIntArray* getTriangleIndices() const override { return m_tris.get(); }
    long getFaceCount() const override { return m_tris ? m_tris->getCount() / 3 : 0; }
    void setFaceNormals(Pnt3fArray* normals, bool refresh) override;
    void setFaceNormalArray(Pnt3fArray* normals, bool refresh) override { setFaceNormals(normals, refresh); }
    bool getFaceNormal(XPnt3f& out, long face) const override;
    Pnt3fArray* getFaceNormals() const override { return m_normals.get(); }
    void computeFaceNormals() override;

    void setSolidColor(const KvoColor4b* colour, bool refresh) override;
    KvoColor4b getSolidColor() const override { return m_solid; }
    void setUVs(Pnt2fArray* uvs) override;
    Pnt2fArray* getUVs() const override { return m_uvs.get(); }
    void setImage(const ref_ptr<IKvoImage>& image) override;
    ref_ptr<IKvoImage>& getImage(ref_ptr<IKvoImage>& out) const override;

    bool hasSelMarks() const override { return m_marks && m_marks->getCount() > 0; }
    void setSelMarks(ByteArray* marks) override { m_marks = marks; }
    void clearSelMarks() override { m_marks.reset(); }
    void invertSelMarks() override;
    ByteArray* getSelMarks() const override { return m_marks.get(); }
    void resetSelColor() override { m_selColor = KvoColor4b(255, 0, 0, 255); }
    void setSelColor(const KvoColor4b& colour) override { m_selColor = colour; }
    KvoColor4b getSelColor() const override { return m_selColor; }

    void setName(const QString& name) override { m_name = name; }
    void getName(QString& out) const override { out = m_name; }
    QString getName() const override { return m_name; }
    void setFileName(const QString& name) override { m_fileName = name; }
    void getFileName(QString& out) const override { out = m_fileName; }
    void refreshDisplay() override;
    unsigned long long getDisplayVersion() const override { return m_version; }
    void getEnvelope(Enve3d& out) const override;

    void setCornerTexIndices(UIntArray* triangles, UIntArray* uvIndices) override;
    UIntArray* getCornerTexIndices() const override { return m_cornerIdx.get(); }
    bool hasCornerUVs() const override { return bool(m_cornerIdx); }
    long findFace(unsigned a, unsigned b, unsigned c) const override;
    long getFaceCorner(long face, long corner) const override;
    void setShowTexture(bool show) override { m_showTexture = show; }
    bool isShowTexture() const override { return m_showTexture; }
    void setFaces(UIntArray* triangles, bool refresh) override;
    unsigned getDisplayList() const override { return m_displayList; }
    void setDisplayList(unsigned list) override { m_displayList = list; }

    void beginUVEdit(long mode) override;
    ref_ptr<Pnt2fArray>& getEditUVs(ref_ptr<Pnt2fArray>& out) const override { return out = m_editUVs; }
    ref_ptr<UIntArray>& getUVVertices(ref_ptr<UIntArray>& out) const override { return out = m_editVertices; }
    void setEditUVs(Pnt2fArray* uvs, UIntArray* uvVertices) override;
    XPnt2f getUVOfVertex(unsigned vertex, long face) const override;

    void setTextureData(const unsigned char* pixels, long width, long height, long channels) override;
    void setMeshShown(bool shown) override { m_shown = shown; }
    bool isMeshShown() const override { return m_shown; }

    // Store-side state.
    bool isAsleep() const { return m_asleep; }
    void setAsleep(bool asleep) { m_asleep = asleep; }
    bool isSelected() const { return m_selected; }
    void setSelected(bool selected) { m_selected = selected; }
    void setImageId(long id) { m_imageId = id; }
    void setTiled(bool tiled) { m_tiled = tiled; }
    void detachModel() { m_model = nullptr; }
    // A deep copy of the arrays and a copy-on-write copy of the pixels. With
    // pixelsByLoader, pixels that are still the image database's (not yet
    // read, or read or saved and unchanged since) are copied as the way to
    // read them again, not held: the caller vouches that the database's
    // pixels come back as they are now.
    void copyStateFrom(const CKvoMesh& other, bool pixelsByLoader = false);
    // Pixels read on first use: a project with many big photographs opens
    // without decoding them all.
    void setImageLoader(std::function<ref_ptr<IKvoImage>()> loader);
    // The pixels differ from those last written to the project.
    bool isImageChanged() const;
    // Marks the present pixels as the project's; reloader, when given, reads
    // them back from the project.
    void markImageSaved(std::function<ref_ptr<IKvoImage>()> reloader = nullptr);
    bool isImageLoaded() const override { return !m_imageLoader; }
    // Restores the raw corner indices without the checks of setCornerTexIndices.
    void setCornerIndexArray(UIntArray* idx) { m_cornerIdx = idx; }

private:
    void invalidateCaches();

    CKvoModel* m_model;
    long m_id;
    long m_imageId;
    bool m_tiled;
    ref_ptr<UIntArray> m_tris;
    ref_ptr<Pnt3fArray> m_normals;
    ref_ptr<Pnt2fArray> m_uvs;
    ref_ptr<UIntArray> m_cornerIdx;
    ref_ptr<ByteArray> m_marks;
    mutable ref_ptr<IKvoImage> m_image;
    mutable std::function<ref_ptr<IKvoImage>()> m_imageLoader;
    // Reads the saved pixels again; kept after the loader has run.
    mutable std::function<ref_ptr<IKvoImage>()> m_reloader;
    mutable const IKvoImage* m_savedImage = nullptr;
    mutable unsigned long long m_savedRevision = 0;
    KvoColor4b m_selColor{255, 0, 0, 255};
    KvoColor4b m_solid{200, 200, 200, 255};
    QString m_name;
    QString m_fileName;
    bool m_showTexture = true;
    bool m_shown = true;
    bool m_asleep = false;
    bool m_selected = false;
    unsigned m_displayList = 0;
    unsigned long long m_version = 0;
    ref_ptr<Pnt2fArray> m_editUVs;
    ref_ptr<UIntArray> m_editVertices;
    // Face lookup by sorted vertex triple, built on first use.
    mutable std::vector<std::pair<XTrip<unsigned>, long>> m_faceIndex;
    mutable bool m_faceIndexValid = false;
};

class QV_EXPORT CKvoModel : public IKvoModel {
public:
    CKvoModel();
    ~CKvoModel() override;

    void setVertices(Pnt3fArray* vertices, bool refresh) override;
    Pnt3fArray* getVertices() const override { return m_vertices.get(); }
    long getVertexCount() const override { return m_vertices ? m_vertices->getCount() : 0; }
    void setVertexNormals(Pnt3fArray* normals, bool refresh, bool compute) override;
    Pnt3fArray* getVertexNormals() const override { return m_vertexNormals.get(); }
    void showVertices(bool show) override { m_showVertices = show; }
    bool isShowVertices() const override { return m_showVertices; }
    void setTexCoords(Pnt2fArray* uvs) override { m_texCoords = uvs; }
    Pnt2fArray* getTexCoords() const override { return m_texCoords.get(); }
    void addMesh(const ref_ptr<IKvoMesh>& mesh) override;
    bool removeMesh(const ref_ptr<IKvoMesh>& mesh) override;
    ref_ptr<IKvoMesh>& getMesh(ref_ptr<IKvoMesh>& out, long index) const override;
    ref_ptr<IKvoMesh> getMesh(long index) const override;
    long getMeshCount() const override { return long(m_meshes.size()); }
    ref_ptr<IKvoMesh>& getMeshById(ref_ptr<IKvoMesh>& out, long id) const override;
    ref_ptr<IKvoMesh> newMesh(long imageId, bool tiled) override;
    void getEnvelope(Enve3d& out) const override;
    void setName(const QString& name) override { m_name = name; }
    QString getName() const override { return m_name; }

    // A mesh with a given id, for reading a project back.
    ref_ptr<CKvoMesh> newMeshWithId(long id, long imageId, bool tiled);
    long peekNextMeshId() const { return m_nextMeshId; }
    // Takes the id counter back, never below an id that a mesh of the model holds.
    void rewindNextMeshId(long id);

private:
    ref_ptr<Pnt3fArray> m_vertices;
    ref_ptr<Pnt3fArray> m_vertexNormals;
    ref_ptr<Pnt2fArray> m_texCoords;
    std::vector<ref_ptr<IKvoMesh>> m_meshes;
    bool m_showVertices = false;
    long m_nextMeshId = 1;
    QString m_name;
};

} // namespace kvo
