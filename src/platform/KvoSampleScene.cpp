#include "platform/KvoSampleScene.h"

#include <QDir>

#include "scene/KvoFile.h"
#include "scene/KvoGeometry.h"

namespace kvo {

namespace {

// Adds a grid of cells x cells quads spanning origin + u * [0,1] + v * [0,1],
// wound so that u x v is the outward normal.
void addGrid(std::vector<XPnt3f>& verts, std::vector<unsigned>& tris, const XPnt3f& origin, const XPnt3f& u,
             const XPnt3f& v, int cells)
{
    const unsigned base = unsigned(verts.size());
    for (int j = 0; j <= cells; ++j)
        for (int i = 0; i <= cells; ++i)
            verts.push_back(origin + u * (float(i) / float(cells)) + v * (float(j) / float(cells)));
    const unsigned row = unsigned(cells + 1);
    for (int j = 0; j < cells; ++j)
        for (int i = 0; i < cells; ++i) {
            unsigned a = base + unsigned(j) * row + unsigned(i);
            tris.insert(tris.end(), {a, a + 1, a + row + 1, a, a + row + 1, a + row});
        }
}

ref_ptr<IKvoMesh> addBareMesh(const ref_ptr<IKvoModel>& model, const std::vector<unsigned>& tris, const QString& name)
{
    ref_ptr<IKvoMesh> mesh = model->newMesh(-1, false);
    ref_ptr<UIntArray> t = newUIntArray();
    t->vec() = tris;
    mesh->setTriangleIndices(t.get(), true);
    mesh->setName(name);
    model->addMesh(mesh);
    return mesh;
}

} // namespace

ref_ptr<IKvoModel> makeSampleModel(int groundCells, int facadeCells)
{
    std::vector<XPnt3f> verts;
    std::vector<unsigned> ground, building;
    addGrid(verts, ground, XPnt3f(-20, -20, 0), XPnt3f(40, 0, 0), XPnt3f(0, 40, 0), groundCells);
    // A block 10 wide (x), 6 deep (y), 8 high (z); faces wound outward.
    const float w = 10, d = 6, h = 8;
    const XPnt3f o(-5, -3, 0);
    addGrid(verts, building, o, XPnt3f(w, 0, 0), XPnt3f(0, 0, h), facadeCells);                    // front, -y
    addGrid(verts, building, o + XPnt3f(w, 0, 0), XPnt3f(0, d, 0), XPnt3f(0, 0, h), facadeCells);  // right, +x
    addGrid(verts, building, o + XPnt3f(w, d, 0), XPnt3f(-w, 0, 0), XPnt3f(0, 0, h), facadeCells); // back, +y
    addGrid(verts, building, o + XPnt3f(0, d, 0), XPnt3f(0, -d, 0), XPnt3f(0, 0, h), facadeCells); // left, -x
    addGrid(verts, building, o + XPnt3f(0, 0, h), XPnt3f(w, 0, 0), XPnt3f(0, d, 0), facadeCells);  // roof, +z

    ref_ptr<IKvoModel> model = newKvoModel();
    model->setName("Sample block");
    ref_ptr<Pnt3fArray> v = newPnt3fArray();
    v->vec() = verts;
    model->setVertices(v.get(), true);
    addBareMesh(model, ground, "Ground");
    addBareMesh(model, building, "Building");
    model->setVertexNormals(nullptr, true, true);
    return model;
}

bool writeSamplePhoto(const QString& path, int width, int height, int seed)
{
    ref_ptr<IKvoImage> img = newKvoImage();
    if (!img->create(width, height, KvoColor4b(0, 0, 0, 255)))
        return false;
    unsigned char* p = img->getMutableData();
    const long stride = img->getStride();
    const int brickW = 24 + seed * 4, brickH = 10 + seed;
    for (int y = 0; y < height; ++y) {
        const int row = y / brickH;
        for (int x = 0; x < width; ++x) {
            const int shifted = x + ((row & 1) ? brickW / 2 : 0);
            const bool mortar = (y % brickH) < 2 || (shifted % brickW) < 2;
            // Shade varies across the picture so that no flip maps it onto itself.
            const int shade = (x * 60) / width + (y * 30) / height;
            unsigned char* px = p + y * stride + x * 4;
            if (mortar) {
                px[0] = px[1] = px[2] = static_cast<unsigned char>(200 + shade / 3);
            } else {
                const int n = ((shifted / brickW) * 73 + row * 151 + seed * 31) % 40;
                px[0] = static_cast<unsigned char>(150 + n + shade / 2);
                px[1] = static_cast<unsigned char>(60 + n / 2 + shade / 3);
                px[2] = static_cast<unsigned char>(40 + n / 3);
            }
            px[3] = 255;
        }
    }
    // Windows, in an uneven pattern.
    for (int k = 0; k < 5; ++k) {
        const int wx = width / 10 + k * width / 6 + (k % 2) * width / 40, wy = height / 5 + (k % 3) * height / 5;
        for (int y = wy; y < std::min(height, wy + height / 7); ++y)
            for (int x = wx; x < std::min(width, wx + width / 14); ++x) {
                unsigned char* px = p + y * stride + x * 4;
                px[0] = 40, px[1] = 70 + seed * 20, px[2] = 110;
            }
    }
    // A white mark in the top-left corner.
    for (int y = 0; y < height / 8; ++y)
        for (int x = 0; x < width / 10; ++x) {
            unsigned char* px = p + y * stride + x * 4;
            px[0] = px[1] = px[2] = 255;
        }
    return img->saveFile(path, 92);
}

long buildSampleProject(const QString& projectFile, const QString& photoFolder, QString& error)
{
    IKvoMM* mm = getMM();
    long rc = mm->newProject(projectFile);
    if (rc != kvoOk) {
        error = mm->getLastError();
        return rc;
    }
    ref_ptr<IKvoModel> model = makeSampleModel();
    mm->setBareModel(model);
    mm->setModelFileName("sample-block.obj");

    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    mm->getProject(project)->getImageDb(db);
    createFolder(photoFolder);
    long ids[2] = {-1, -1};
    for (int i = 0; i < 2; ++i) {
        const QString photo = QDir(photoFolder).absoluteFilePath(QString("photo_%1.jpg").arg(i + 1));
        if (!writeSamplePhoto(photo, 640 + 160 * i, 480, i)) {
            error = QString("Cannot write %1.").arg(photo);
            return kvoErrIO;
        }
        rc = db->addImage(photo, ids[i]);
        if (rc != kvoOk) {
            error = QString("Cannot add %1 to the project.").arg(photo);
            return rc;
        }
    }

    const XPnt3f* v = model->getVertices()->getData();
    const long nv = model->getVertexCount();
    ref_ptr<IKvoMesh> ground = model->getMesh(0), building = model->getMesh(1);

    // Image 1 covers the front facade, UVs one per model vertex.
    {
        ref_ptr<IKvoMesh> tex;
        mm->createTexMesh(tex, false, ids[0], false);
        ref_ptr<UIntArray> tris = newUIntArray();
        const UIntArray* src = building->getTriangleIndices();
        for (long f = 0; f < building->getFaceCount(); ++f) {
            XPnt3f n;
            building->getFaceNormal(n, f);
            if (n.y < -0.9f)
                for (int k = 0; k < 3; ++k)
                    tris->append(src->getAt(3 * f + k));
        }
        tex->setTriangleIndices(tris.get(), true);
        ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
        uvs->resize(nv);
        for (long i = 0; i < nv; ++i)
            (*uvs)[i] = XPnt2f((v[i].x + 5.f) / 10.f, v[i].z / 8.f);
        tex->setUVs(uvs.get());
        ref_ptr<IKvoImage> pixels;
        tex->setImage(db->getTexture(pixels, ids[0], 2));
        ref_ptr<IKvoImageInfo> info;
        db->getImageInfo(info, ids[0]);
        info->setMappingType(0);
        const XPnt3d corners[4] = {{-5, -3, 0}, {5, -3, 0}, {5, -3, 8}, {-5, -3, 8}};
        for (const XPnt3d& c : corners) {
            info->addCtrlWorldPnt(c);
            info->addCtrlImagePnt(XPnt2d((c.x + 5) / 10, c.z / 8));
        }
        ZebQVVCParam cam;
        cam.eye = XPnt3d(0, -25, 4);
        cam.center = XPnt3d(0, -3, 4);
        cam.up = XPnt3d(0, 0, 1);
        cam.fovY = 30;
        mm->setVCParam(ids[0], cam);
    }
    // Image 2 repeats over the ground: corner-indexed UVs, tiled.
    {
        ref_ptr<IKvoMesh> tex;
        mm->createTexMesh(tex, false, ids[1], true);
        ref_ptr<UIntArray> tris = ground->getTriangleIndices()->clone();
        ref_ptr<Pnt2fArray> uvs = newPnt2fArray();
        ref_ptr<UIntArray> corners = newUIntArray();
        for (unsigned vi : tris->vec()) {
            corners->append(unsigned(uvs->getCount()));
            uvs->append(XPnt2f((v[vi].x + 20.f) / 8.f, (v[vi].y + 20.f) / 8.f));
        }
        tex->setUVs(uvs.get());
        tex->setCornerTexIndices(tris.get(), corners.get());
        ref_ptr<IKvoImage> pixels;
        tex->setImage(db->getTexture(pixels, ids[1], 2));
        ref_ptr<IKvoImageInfo> info;
        db->getImageInfo(info, ids[1]);
        info->setMappingType(2);
    }
    // A few marked triangles, a fence around the building, a settings blob.
    ref_ptr<ByteArray> marks = newByteArray();
    marks->resize(building->getFaceCount());
    for (long f = 0; f < marks->getCount(); f += 7)
        (*marks)[f] = 1;
    building->setSelMarks(marks.get());
    ref_ptr<IKvoRing> fence = newKvoRing();
    for (const XPnt3d& p : {XPnt3d(-6, -4, 0), XPnt3d(6, -4, 0), XPnt3d(6, 4, 0), XPnt3d(-6, 4, 0)})
        fence->addPoint(p);
    fence->closeRing();
    mm->setFenceRing(fence);
    const char settings[] = "feather=5;hardness=50";
    mm->setProjectBlob("ZebTaskSeamless", "Options", settings, sizeof(settings));
    mm->setActiveImageId(ids[0]);

    rc = mm->saveProject();
    if (rc != kvoOk)
        error = mm->getLastError();
    return rc;
}

} // namespace kvo
