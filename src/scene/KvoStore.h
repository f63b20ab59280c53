#pragma once

#include <set>

#include <QByteArray>
#include <QString>

#include "scene/KvoArray.h"
#include "scene/KvoProgress.h"
#include "scene/KvoRing.h"

namespace cv {
class Mat;
}

namespace kvo {

class IKvoModel;
class IKvoMesh;
class IKvoImageDb;
class IKvoQvRefPlaneMan;

// Result codes of store operations: 0 success, negative failure.
enum KvoStoreResult : long {
    kvoOk = 0,
    kvoErrNoProject = -1,
    kvoErrBadArgument = -2,
    kvoErrNotFound = -3,
    kvoErrFileMissing = -4,
    kvoErrBadFile = -5,
    kvoErrIO = -6,
    kvoErrDatabase = -7,
    kvoErrTooNew = -8,
};

// Pixels of one image: 8-bit RGBA, rows top-down. Copies share pixels until
// one side writes (copy on write), so backups of big textures cost nothing
// until an edit happens.
class QV_EXPORT IKvoImage : public KvoReferenced {
public:
    virtual long getWidth() const = 0;
    virtual long getHeight() const = 0;
    virtual bool isEmpty() const = 0;
    // Makes a w x h image filled with the colour; false for a non-positive size.
    virtual bool create(long width, long height, const KvoColor4b& fill) = 0;
    // Pixel at column x, row y (row 0 is the top). False outside the image.
    virtual bool getPixel(KvoColor4b& out, long x, long y, long mode = 1) const = 0;
    virtual bool setPixel(long x, long y, const KvoColor4b& colour, long mode = 0) = 0;
    // Reads JPEG, PNG, BMP or TIFF; false, leaving the pixels as they were, when it can't.
    virtual bool loadFile(const QString& path, long mode = 0) = 0;
    // Writes by the file's extension. mode 1..100 is the JPEG quality (95 otherwise).
    virtual bool saveFile(const QString& path, long mode = 0) const = 0;
    // Row-major RGBA bytes, getStride() bytes a row.
    virtual const unsigned char* getData() const = 0;
    // Writable pixels; detaches them from any copy first.
    virtual unsigned char* getMutableData() = 0;
    virtual long getStride() const = 0;
    // Replaces the pixels by width x height RGBA bytes (channels must be 4, or 3 for RGB).
    virtual bool setData(const unsigned char* pixels, long width, long height, long channels) = 0;
    // True when any pixel is not fully opaque.
    virtual bool hasTransparency() const = 0;
    // The pixels as an RGBA cv::Mat sharing this image's storage (read only by convention).
    virtual void getMat(cv::Mat& out) const = 0;
    // Takes a 1-, 3- (BGR) or 4-channel (BGRA) 8-bit Mat, as OpenCV gives them.
    virtual bool setMat(const cv::Mat& bgrOrBgra) = 0;
    // A copy sharing the pixels until either side writes.
    virtual ref_ptr<IKvoImage> clone() const = 0;
    // A resized copy; filter 0 nearest, 1 linear, 2 area (best for shrinking).
    virtual ref_ptr<IKvoImage> resized(long width, long height, long filter = 2) const = 0;
    // Same size and the same bytes.
    virtual bool equals(const IKvoImage& other) const = 0;
    // Grows with every change of the pixels, so holders can tell an edit happened.
    virtual unsigned long long getRevision() const = 0;
    // The file the pixels were read from, while they are unchanged; empty otherwise.
    virtual QString getSourceFile() const = 0;
};

QV_EXPORT ref_ptr<IKvoImage> newKvoImage();
// An image of RGBA8 pixels that shares the buffer (copy on write), so that a
// big picture made elsewhere enters the store without a copy; null for
// anything but CV_8UC4.
QV_EXPORT ref_ptr<IKvoImage> newKvoImageOf(const cv::Mat& rgba);
// Reads an image file into 8-bit RGBA, rows top-down (16-bit scaled, grey and
// BGR(A) converted), as IKvoImage::loadFile does. rgba and scratch keep their
// buffers when the sizes fit and nobody else holds them: reading many
// pictures of one size then does not ask the system for fresh memory, which
// costs more than the decoding on big photographs.
QV_EXPORT bool decodeImageFileRGBA(const QString& path, cv::Mat& rgba, cv::Mat& scratch);

// Kinds of file path an image record keeps.
enum KvoImagePathKind : int {
    kvoPathOriginal = 1, // the file the user added
    kvoPathImage = 2,    // the image file on disk that the project uses (its copy)
};

// The record of one image of the project.
class QV_EXPORT IKvoImageInfo : public KvoReferenced {
public:
    virtual long getId() const = 0;
    virtual void setId(long id) = 0;
    virtual void getName(QString& out) const = 0;
    virtual QString getName() const = 0;
    virtual void setName(const QString& name) = 0;
    virtual bool isBigImage() const = 0;

    virtual void addCtrlImagePnt(const XPnt2d& p) = 0;
    virtual void addCtrlWorldPnt(const XPnt3d& p) = 0;
    virtual bool removeCtrlImagePnt(long i) = 0;
    virtual bool removeCtrlWorldPnt(long i) = 0;
    virtual bool getCtrlImagePnt(XPnt2d& out, long i) const = 0;
    virtual bool getCtrlWorldPnt(XPnt3d& out, long i) const = 0;
    virtual ref_ptr<Pnt2dArray>& getCtrlImagePnts(ref_ptr<Pnt2dArray>& out) const = 0;
    virtual ref_ptr<Pnt3dArray>& getCtrlWorldPnts(ref_ptr<Pnt3dArray>& out) const = 0;
    virtual long getCtrlImagePntCount() const = 0;
    virtual long getCtrlWorldPntCount() const = 0;
    virtual long getCtrlPntCount() const = 0;

    virtual void addMatchPnt(const POINT_POINT& p) = 0;
    virtual bool removeMatchPnt(long i) = 0;
    virtual bool replaceMatchPnt(long i, const POINT_POINT& p) = 0;
    virtual bool getMatchPnt(POINT_POINT& out, long i) const = 0;
    virtual ref_ptr<PntPntArray>& getMatchPnts(ref_ptr<PntPntArray>& out) const = 0;
    virtual long getMatchPntCount() const = 0;
    // Match points that the views draw but that are not stored yet.
    virtual void setTempMatchPnts(const ref_ptr<PntPntArray>& points) = 0;
    virtual ref_ptr<PntPntArray>& getTempMatchPnts(ref_ptr<PntPntArray>& out) const = 0;
    virtual void clearTempMatchPnts() = 0;
    virtual void selectMatchPnt(long i) = 0;
    virtual void clearMatchPntSelection() = 0;
    virtual long getSelectedMatchPnt() const = 0;

    virtual void setFilePath(const QString& path, int kind) = 0;
    virtual bool getFilePath(QString& out, int kind) const = 0;
    virtual QString getFilePath(int kind) const = 0;
    // Folder of the image's derived files; made on demand.
    virtual void getDataFolder(QString& out) const = 0;
    // Pixel size at a level (1 original, 2 the project copy, 3 and more halved per level).
    virtual bool getImageSize(XPnt2i& out, long level) const = 0;
    virtual void setImageSize(const XPnt2i& size) = 0;

    virtual void setMappingType(long type) = 0;
    virtual long getMappingType() const = 0;
};

// Listener of image database changes, so panels follow added and removed images.
class QV_EXPORT IKvoImageDbEvent : public KvoReferenced {
public:
    virtual void onImageAdded(long id) = 0;
    virtual void onImageRemoved(long id) = 0;
    virtual void onImageChanged(long id) = 0;
};

class QV_EXPORT IKvoImageDb : public KvoReferenced {
public:
    // Opens the database of a project folder, making the folder when needed.
    virtual long open(const QString& folder) = 0;
    virtual void getFolder(QString& out) const = 0;
    virtual ref_ptr<IKvoImageInfo>& getImageInfo(ref_ptr<IKvoImageInfo>& out, long id) const = 0;
    virtual ref_ptr<LongArray>& getImageIds(ref_ptr<LongArray>& out) const = 0;
    virtual long getImageCount() const = 0;
    // Copies a photograph into the project. 0 with the new id, or a negative code
    // (missing or undecodable file) with id -1 and nothing changed.
    virtual long addImage(const QString& path, long& id) = 0;
    virtual long addBigImage(const QString& path, long& id) = 0;
    // Removes an image, its record and its files.
    virtual long removeImage(long id) = 0;
    // Pixels at a level: 1 the original file, 2 the project copy, n > 2 the
    // project copy halved n - 2 times. Null for an unknown id or unreadable file.
    virtual ref_ptr<IKvoImage>& getTexture(ref_ptr<IKvoImage>& out, long id, long level) const = 0;
    // Pixels set at a level and not yet written to the project's files.
    virtual bool hasPendingTexture(long id, long level) const = 0;
    // The pixels at a level when their alpha plane says something (some pixel is
    // not opaque); null otherwise, so callers can skip alpha work on photographs.
    virtual ref_ptr<IKvoImage>& getAlphaImage(ref_ptr<IKvoImage>& out, long id, long level, long mode = 0) const = 0;
    // Replaces the pixels at a level; written to disk by commit().
    virtual long setTexture(const ref_ptr<IKvoImage>& image, long id, long level) = 0;
    // Writes changed images to disk.
    virtual long commit() = 0;
    // Rebuilds the derived levels of an image from its project copy.
    virtual long rebuildTiles(long id, long size = 0) = 0;
    virtual long addEvent(const ref_ptr<IKvoImageDbEvent>& event) = 0;
    virtual void removeEvent(long eventId) = 0;
};

// A triangle list over the model's vertices, with per-triangle normals, optional
// selection marks, and for a texture mesh an image and UVs.
class QV_EXPORT IKvoMesh : public KvoReferenced {
public:
    virtual long getId() const = 0;
    virtual IKvoModel* getModel() const = 0;
    // The image of a texture mesh, -1 for a bare mesh.
    virtual long getImageId() const = 0;
    virtual bool isTiled() const = 0;

    virtual void setTriangleIndices(UIntArray* triangles, bool refresh = true) = 0;
    virtual void setTriangles(UIntArray* triangles, bool refresh = true) = 0;
    virtual UIntArray* getTriangleIndices() const = 0;
    virtual long getFaceCount() const = 0;
    virtual void setFaceNormals(Pnt3fArray* normals, bool refresh = true) = 0;
    virtual void setFaceNormalArray(Pnt3fArray* normals, bool refresh = true) = 0;
    virtual bool getFaceNormal(XPnt3f& out, long face) const = 0;
    virtual Pnt3fArray* getFaceNormals() const = 0;
    // Recomputes the face normals from the vertices.
    virtual void computeFaceNormals() = 0;

    virtual void setSolidColor(const KvoColor4b* colour, bool refresh = true) = 0;
    virtual KvoColor4b getSolidColor() const = 0;
    virtual void setUVs(Pnt2fArray* uvs) = 0;
    virtual Pnt2fArray* getUVs() const = 0;
    virtual void setImage(const ref_ptr<IKvoImage>& image) = 0;
    virtual ref_ptr<IKvoImage>& getImage(ref_ptr<IKvoImage>& out) const = 0;
    // False while the pixels are still only in the project (read on first
    // getImage): a pass over many pictures can read them without keeping them.
    virtual bool isImageLoaded() const = 0;

    virtual bool hasSelMarks() const = 0;
    virtual void setSelMarks(ByteArray* marks) = 0;
    virtual void clearSelMarks() = 0;
    virtual void invertSelMarks() = 0;
    virtual ByteArray* getSelMarks() const = 0;
    virtual void resetSelColor() = 0;
    virtual void setSelColor(const KvoColor4b& colour) = 0;
    virtual KvoColor4b getSelColor() const = 0;

    virtual void setName(const QString& name) = 0;
    virtual void getName(QString& out) const = 0;
    virtual QString getName() const = 0;
    virtual void setFileName(const QString& name) = 0;
    virtual void getFileName(QString& out) const = 0;
    virtual void refreshDisplay() = 0;
    // Counts calls of refreshDisplay, so views know when to rebuild what they draw.
    virtual unsigned long long getDisplayVersion() const = 0;
    virtual void getEnvelope(Enve3d& out) const = 0;

    // Corner-indexed UVs: the UV list is getUVs(); uvIndices holds three UV
    // indices a triangle, parallel to the triangle list.
    virtual void setCornerTexIndices(UIntArray* triangles, UIntArray* uvIndices) = 0;
    virtual UIntArray* getCornerTexIndices() const = 0;
    virtual bool hasCornerUVs() const = 0;
    // The triangle with these three vertices in any order, negative if none.
    virtual long findFace(unsigned a, unsigned b, unsigned c) const = 0;
    // UV index of a triangle corner (the vertex itself when not corner-indexed), negative on bad input.
    virtual long getFaceCorner(long face, long corner) const = 0;
    virtual void setShowTexture(bool show) = 0;
    virtual bool isShowTexture() const = 0;
    // Replaces the triangles of a texture mesh, keeping its UVs.
    virtual void setFaces(UIntArray* triangles, bool refresh = true) = 0;
    virtual unsigned getDisplayList() const = 0;
    virtual void setDisplayList(unsigned list) = 0;

    // UV editing: after beginUVEdit, getEditUVs gives the UV entries and
    // getUVVertices the vertex of each; setEditUVs writes them back.
    virtual void beginUVEdit(long mode = 0) = 0;
    virtual ref_ptr<Pnt2fArray>& getEditUVs(ref_ptr<Pnt2fArray>& out) const = 0;
    virtual ref_ptr<UIntArray>& getUVVertices(ref_ptr<UIntArray>& out) const = 0;
    virtual void setEditUVs(Pnt2fArray* uvs, UIntArray* uvVertices) = 0;
    // UV of a vertex in a face (face -1: any face that uses it); invalid if unused.
    virtual XPnt2f getUVOfVertex(unsigned vertex, long face = -1) const = 0;

    // Replaces the texture the view shows by RGBA (channels 4) or RGB pixels.
    virtual void setTextureData(const unsigned char* pixels, long width, long height, long channels) = 0;
    virtual void setMeshShown(bool shown) = 0;
    virtual bool isMeshShown() const = 0;
};

class QV_EXPORT IKvoModel : public KvoReferenced {
public:
    virtual void setVertices(Pnt3fArray* vertices, bool refresh = true) = 0;
    virtual Pnt3fArray* getVertices() const = 0;
    virtual long getVertexCount() const = 0;
    virtual void setVertexNormals(Pnt3fArray* normals, bool refresh = true, bool compute = false) = 0;
    virtual Pnt3fArray* getVertexNormals() const = 0;
    virtual void showVertices(bool show) = 0;
    virtual bool isShowVertices() const = 0;
    virtual void setTexCoords(Pnt2fArray* uvs) = 0;
    virtual Pnt2fArray* getTexCoords() const = 0;
    virtual void addMesh(const ref_ptr<IKvoMesh>& mesh) = 0;
    virtual bool removeMesh(const ref_ptr<IKvoMesh>& mesh) = 0;
    virtual ref_ptr<IKvoMesh>& getMesh(ref_ptr<IKvoMesh>& out, long index) const = 0;
    virtual ref_ptr<IKvoMesh> getMesh(long index) const = 0;
    virtual long getMeshCount() const = 0;
    // The mesh with this id, null if none.
    virtual ref_ptr<IKvoMesh>& getMeshById(ref_ptr<IKvoMesh>& out, long id) const = 0;
    // A new empty mesh over this model's vertices (not yet added).
    virtual ref_ptr<IKvoMesh> newMesh(long imageId, bool tiled) = 0;
    virtual void getEnvelope(Enve3d& out) const = 0;
    virtual void setName(const QString& name) = 0;
    virtual QString getName() const = 0;
};

QV_EXPORT ref_ptr<IKvoModel> newKvoModel();

class QV_EXPORT IKvoProject : public KvoReferenced {
public:
    virtual long save(IKvoProgress* progress) = 0;
    // Writes the project under a new file name, with its folder; it becomes the project's file.
    virtual long saveAs(const QString& path, IKvoProgress* progress) = 0;
    virtual ref_ptr<IKvoImageDb>& getImageDb(ref_ptr<IKvoImageDb>& out) const = 0;
    virtual void getTempFolder(QString& out) const = 0;
    virtual QString getFilePath() const = 0;
    virtual QString getFolder() const = 0;
};

class QV_EXPORT IKvoAppOptions : public KvoReferenced {
public:
    virtual long getBrushRadius() const = 0;
    virtual void setBrushRadius(long radius) = 0;
    virtual KvoColor4b getBrushColor() const = 0;
    virtual void setBrushColor(const KvoColor4b& colour) = 0;
    virtual long getFeatherSize() const = 0;
    virtual void setFeatherSize(long size) = 0;
    virtual long getFeatherHardness() const = 0;
    virtual void setFeatherHardness(long hardness) = 0;
    // Distinct colours for drawing many objects (groups, images).
    virtual ref_ptr<KvoArray<KvoColor4b>> getColorTable() const = 0;
    virtual QString getImageEditor() const = 0;
    virtual void setImageEditor(const QString& program) = 0;
};

// One undoable operation. undo() and redo() return false when the scene no
// longer allows them (for example the project was closed).
class QV_EXPORT IKvoUndo : public KvoReferenced {
public:
    virtual QString getName() const = 0;
    virtual bool undo() = 0;
    virtual bool redo() = 0;
};

// The model manager: the open project, its model, meshes and per-project state.
class QV_EXPORT IKvoMM {
public:
    virtual ~IKvoMM() = default;

    virtual void setDirty(bool dirty) = 0;
    virtual bool isDirty() const = 0;
    virtual ref_ptr<IKvoProject>& getProject(ref_ptr<IKvoProject>& out) const = 0;

    // Project life. Each returns 0 or a negative code; a failure leaves the open project as it was.
    virtual long newProject(const QString& path, IKvoProgress* progress = nullptr) = 0;
    virtual long openProject(const QString& path, IKvoProgress* progress = nullptr) = 0;
    virtual long saveProject(IKvoProgress* progress = nullptr) = 0;
    virtual long saveProjectAs(const QString& path, IKvoProgress* progress = nullptr) = 0;
    virtual void closeProject() = 0;
    virtual QString getLastError() const = 0;

    virtual ref_ptr<IKvoRing>& getFenceRing(ref_ptr<IKvoRing>& out) const = 0;
    // The project's reference planes; null without a project.
    virtual ref_ptr<IKvoQvRefPlaneMan>& getRefPlaneMan(ref_ptr<IKvoQvRefPlaneMan>& out) const = 0;
    virtual void setFenceRing(const ref_ptr<IKvoRing>& ring) = 0;
    virtual long getRefImageId() const = 0;
    virtual void setRefImageId(long id) = 0;
    virtual void getModelEnvelope(Enve3d& out) const = 0;
    virtual ref_ptr<IKvoMesh>& createTexMesh(ref_ptr<IKvoMesh>& out, bool bare, long imageId, bool tiled) = 0;
    virtual long getImageIdByName(const QString& name) const = 0;
    virtual bool isImageIdValid(long id) const = 0;
    virtual bool isBigImage(long id) const = 0;
    virtual bool isNormalImage(long id) const = 0;
    virtual long getMeshKind(const ref_ptr<IKvoMesh>& mesh) const = 0;
    virtual long deleteTexMesh(const ref_ptr<IKvoMesh>& mesh, long flags = 0, IKvoProgress* progress = nullptr) = 0;
    // Removes a bare mesh from the model (mesh surgery).
    virtual long deleteBareMesh(const ref_ptr<IKvoMesh>& mesh) = 0;

    virtual long setProjectBlob(const QString& section, const QString& key, const void* data, long bytes) = 0;
    // Copies at most bytes into data; returns the stored size, or -1 when absent.
    virtual long getProjectBlob(const QString& section, const QString& key, void* data, long bytes) const = 0;
    virtual bool getProjectBlob(const QString& section, const QString& key, QByteArray& out) const = 0;
    virtual long removeProjectBlob(const QString& section, const QString& key) = 0;

    virtual void setBareModel(const ref_ptr<IKvoModel>& model) = 0;
    virtual void setModelName(const QString& name) = 0;
    virtual void getModelFileName(QString& out) const = 0;
    virtual void setModelFileName(const QString& name) = 0;
    virtual ref_ptr<IKvoModel>& getBareModel(ref_ptr<IKvoModel>& out) const = 0;
    virtual bool hasModelData() const = 0;

    virtual ref_ptr<IKvoImage>& getActiveImage(ref_ptr<IKvoImage>& out) const = 0;
    virtual long getActiveImageId() const = 0;
    virtual long setActiveImageId(long id) = 0;

    virtual bool isTexMeshSelected(const ref_ptr<IKvoMesh>& mesh) const = 0;
    virtual void setMeshSelected(const ref_ptr<IKvoMesh>& mesh, bool selected) = 0;
    virtual bool isMeshAsleep(const ref_ptr<IKvoMesh>& mesh) const = 0;
    virtual bool isImageMeshAsleep(long imageId) const = 0;
    virtual bool isTexMesh(const ref_ptr<IKvoMesh>& mesh) const = 0;
    virtual bool isImageMapped(long imageId) const = 0;
    virtual long wakeMesh(long meshId, long flags = 0) = 0;
    virtual long sleepMesh(const ref_ptr<IKvoMesh>& mesh, IKvoProgress* progress = nullptr) = 0;
    virtual void getTexturedTriangles(std::set<XTrip<unsigned>>& out) const = 0;
    virtual long getTexMeshCount() const = 0;
    virtual ref_ptr<IKvoMesh>& getTexMeshOfImage(ref_ptr<IKvoMesh>& out, long imageId) const = 0;
    virtual ref_ptr<IKvoMesh>& getImageTexMesh(ref_ptr<IKvoMesh>& out, long imageId) const = 0;

    virtual ref_ptr<MeshArray>& getSelectedMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getAllMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getMarkedMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getBareMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getShownTexMeshList(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getOtherShownMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getShownMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getAwakeBareMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getAwakeTexMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual ref_ptr<MeshArray>& getTexMeshes(ref_ptr<MeshArray>& out) const = 0;
    virtual bool isSelectionEmpty() const = 0;

    // The texture-edit session: a backup of every texture mesh (triangles,
    // normals, UVs, marks, pixels) and, with backupImageDb, of the project
    // copies of the mapped images. Only one session exists at a time.
    virtual bool isTexEditOpen() const = 0;
    virtual long openTexEdit(IKvoProgress* progress, long backupMeshes = 1, long backupImageDb = 0) = 0;
    virtual long restoreTexEdit(IKvoProgress* progress) = 0;
    virtual void closeTexEdit() = 0;
    virtual void commitTexEdit() = 0;

    virtual void setVCParam(long imageId, const ZebQVVCParam& param) = 0;
    virtual bool getVCParam(long imageId, ZebQVVCParam& out) const = 0;
    virtual bool removeVCParam(long imageId) = 0;
    // The 11 DLT parameters of an image: first a stored parameter blob, else a fit
    // of its control points. False when neither gives them.
    virtual bool getDltParam(long imageId, double* L) const = 0;
    virtual void setDltSolver(bool (*solver)(long imageId, double* L)) = 0;

    virtual void notifySelMarkCount(unsigned long long count) = 0;
    virtual unsigned long long getNotifiedSelMarkCount() const = 0;
    virtual bool hasCornerUVs(const ref_ptr<IKvoMesh>& mesh) const = 0;
};

// The one model manager of the process.
QV_EXPORT IKvoMM* getMM();

// The folder a project file keeps its pictures and data in.
QV_EXPORT QString projectFolderOf(const QString& projectFile);

} // namespace kvo
