// The main job on the bundled sample: a textured model from the mesh, the
// photographs and a camera file, with the photographs' true cameras as the
// judge; bad input listed and passed over; nothing written over unasked; a
// cancel leaves the texture meshes as they were.

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "autotexture/KvoTexturePipeline.h"
#include "scene/KvoUV.h"
#include "support/SampleSupport.h"
#include "support/ViewerSupport.h"

using namespace kvo;

namespace {

const QString kSample = QUOVARA_SOURCE_DIR "/samples/building";

bool copyFolder(const QString& from, const QString& to)
{
    QDir().mkpath(to);
    for (const QFileInfo& fi : QDir(from).entryInfoList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString target = QDir(to).filePath(fi.fileName());
        if (fi.isDir() ? !copyFolder(fi.absoluteFilePath(), target) : !QFile::copy(fi.absoluteFilePath(), target))
            return false;
    }
    return true;
}

class TexturePipeline : public qvtest::ViewerTest {
protected:
    KvoTextureJob job(const QString& sample = kSample)
    {
        return qvtest::sampleTextureJob(sample, scratch.file("out/building.obj"));
    }
};

} // namespace

// Every camera format gives the same textured model, and each photograph's
// texture mesh lies where its true camera puts the model.
TEST_F(TexturePipeline, EachCameraFormatTexturesTheSampleThroughTheTrueCameras)
{
    std::vector<qvsample::SampleCamera> truth;
    qvsample::SampleOptions options;
    QString why;
    ASSERT_TRUE(qvsample::readSampleFolder(kSample, options, truth, why)) << why.toStdString();
    const KvoCameraSource sources[] = {
        KvoCameraSource::colmap(kSample + "/cameras/colmap"),
        KvoCameraSource::bundler(kSample + "/cameras/bundler/bundle.out", kSample + "/cameras/bundler/list.txt"),
        KvoCameraSource::matrices(kSample + "/cameras/matrices"),
    };
    long textured = -1;
    for (const KvoCameraSource& s : sources) {
        SCOPED_TRACE(s.path.toStdString());
        KvoTextureJob j = job();
        j.cameras = s;
        j.output = scratch.file(QString("out%1/building.obj").arg(int(s.kind)));
        KvoTextureJobReport r;
        ASSERT_EQ(textureFromFiles(j, r, nullptr), 0) << r.summary().toStdString();
        EXPECT_TRUE(r.skipped.isEmpty()) << r.skipped.join('\n').toStdString();
        EXPECT_EQ(r.photosAdded, 8);
        EXPECT_EQ(r.photosWithCamera, 8);
        EXPECT_EQ(r.textured, r.seenFaces);
        EXPECT_GT(double(r.textured), 0.9 * double(r.faces));
        if (textured >= 0) {
            EXPECT_NEAR(double(r.textured), double(textured), 0.002 * double(textured));
        }
        textured = r.textured;
        EXPECT_TRUE(QFileInfo(r.objFile).isFile());
        EXPECT_TRUE(QFileInfo(r.projectFile).isFile());
        // The texture meshes of the project that stays open.
        ref_ptr<IKvoModel> model;
        getMM()->getBareModel(model);
        ref_ptr<MeshArray> meshes;
        getMM()->getTexMeshes(meshes);
        ASSERT_GT(meshes->getCount(), 1);
        ref_ptr<IKvoProject> project;
        ref_ptr<IKvoImageDb> db;
        getMM()->getProject(project)->getImageDb(db);
        for (const auto& m : meshes->vec()) {
            ref_ptr<IKvoImageInfo> info;
            ASSERT_TRUE(db->getImageInfo(info, m->getImageId()));
            const QString name = QFileInfo(info->getFilePath(1)).fileName();
            const auto cam = std::find_if(truth.begin(), truth.end(),
                                          [&](const auto& c) { return QString::fromStdString(c.name) == name; });
            ASSERT_NE(cam, truth.end());
            double worst = 0;
            for (unsigned v : m->getTriangleIndices()->vec()) {
                const XPnt3f p = model->getVertices()->getAt(long(v));
                XPnt2d px;
                ASSERT_TRUE(cam->project(XPnt3d(p.x, p.y, p.z), px));
                const XPnt2d uv = pixelToUv(px.x, px.y, cam->width, cam->height);
                const XPnt2f got = m->getUVs()->getAt(long(v));
                worst = std::max({worst, std::fabs(got.x - uv.x), std::fabs(got.y - uv.y)});
            }
            EXPECT_LT(worst, 0.5 / cam->width) << name.toStdString();
        }
    }
}

// A real client reads the textured model and counts its faces as we do.
TEST_F(TexturePipeline, TheTexturedModelOpensInAnotherReader)
{
    KvoTextureJobReport r;
    ASSERT_EQ(textureFromFiles(job(), r, nullptr), 0) << r.summary().toStdString();
    QString said;
    EXPECT_EQ(qvtest::assimpInfo(r.objFile, said), 0) << said.toStdString();
    EXPECT_FALSE(said.contains("Error", Qt::CaseInsensitive)) << said.toStdString();
    EXPECT_TRUE(said.contains(QRegularExpression(QString("Faces:\\s+%1\\n").arg(r.faces)))) << said.toStdString();
    const QString summary = r.summary();
    for (const char* stage : {"cameras", "visibility", "optimisation", "mapping", "seamless", "export"})
        EXPECT_TRUE(summary.contains(stage)) << stage;
}

// Photographs without cameras, cameras without photographs, an unknown camera
// model and a photograph of another size are each named in the summary and
// passed over; the rest is textured.
TEST_F(TexturePipeline, BadInputIsListedAndPassedOver)
{
    const QString sample = scratch.file("sample");
    ASSERT_TRUE(copyFolder(kSample, sample));
    // A photograph no camera file names.
    ASSERT_TRUE(QFile::copy(sample + "/photos/photo_01.jpg", sample + "/photos/stray.jpg"));
    // A camera whose photograph is not there.
    ASSERT_TRUE(QFile::remove(sample + "/photos/photo_08.jpg"));
    // A photograph of another size than its camera's.
    const cv::Mat five = cv::imread((sample + "/photos/photo_05.jpg").toStdString());
    cv::Mat half;
    cv::resize(five, half, cv::Size(five.cols / 2, five.rows / 2));
    ASSERT_TRUE(cv::imwrite((sample + "/photos/photo_05.jpg").toStdString(), half));
    // A camera model nobody can use.
    QFile cams(sample + "/cameras/colmap/cameras.txt");
    ASSERT_TRUE(cams.open(QIODevice::ReadOnly));
    QString text = QString::fromUtf8(cams.readAll());
    cams.close();
    text.replace(QRegularExpression("^3 PINHOLE", QRegularExpression::MultilineOption), "3 FISHEYE_SPECIAL");
    ASSERT_TRUE(cams.open(QIODevice::WriteOnly | QIODevice::Truncate));
    cams.write(text.toUtf8());
    cams.close();

    KvoTextureJobReport r;
    ASSERT_EQ(textureFromFiles(job(sample), r, nullptr), 0) << r.summary().toStdString();
    const QString listed = r.skipped.join('\n');
    for (const char* name : {"stray.jpg", "photo_08.jpg", "photo_05.jpg", "photo_03.jpg"})
        EXPECT_TRUE(listed.contains(name)) << name << " missing from:\n" << listed.toStdString();
    EXPECT_TRUE(r.summary().contains("Passed over"));
    EXPECT_EQ(r.photosAdded, 8);
    EXPECT_EQ(r.photosWithCamera, 5);
    EXPECT_GE(r.photosUsed, 4);
    // Nothing mapped through a camera that is not its own.
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    getMM()->getProject(project)->getImageDb(db);
    ref_ptr<LongArray> ids;
    long checked = 0;
    for (long id : db->getImageIds(ids)->vec()) {
        ref_ptr<IKvoImageInfo> info;
        db->getImageInfo(info, id);
        const QString name = QFileInfo(info->getFilePath(1)).fileName();
        if (name == "stray.jpg" || name == "photo_05.jpg" || name == "photo_03.jpg") {
            EXPECT_FALSE(getMM()->isImageMapped(id)) << name.toStdString();
            ++checked;
        }
    }
    EXPECT_EQ(checked, 3);
}

// Existing output is kept unless the job may write over it; the project too.
TEST_F(TexturePipeline, NothingIsWrittenOverUnasked)
{
    KvoTextureJobReport r;
    ASSERT_EQ(textureFromFiles(job(), r, nullptr), 0) << r.summary().toStdString();
    getMM()->closeProject();
    QFile obj(r.objFile);
    ASSERT_TRUE(obj.open(QIODevice::ReadOnly));
    const QByteArray before = obj.readAll();
    obj.close();

    KvoTextureJob again = job();
    again.atlas = 1024;
    KvoTextureJobReport r2;
    EXPECT_EQ(textureFromFiles(again, r2, nullptr), kvoPipelineOutputExists);
    EXPECT_TRUE(r2.error.contains("building.obj")) << r2.error.toStdString();
    ASSERT_TRUE(obj.open(QIODevice::ReadOnly));
    EXPECT_EQ(obj.readAll(), before);
    obj.close();

    // A new output name, but the same project: the project is kept too.
    again.output = scratch.file("out/other.obj");
    again.project = r.projectFile;
    EXPECT_EQ(textureFromFiles(again, r2, nullptr), kvoPipelineOutputExists);
    EXPECT_TRUE(r2.error.contains(".qvj")) << r2.error.toStdString();
    EXPECT_FALSE(QFileInfo::exists(again.output));

    again.output = job().output;
    again.project.clear();
    again.overwrite = true;
    ASSERT_EQ(textureFromFiles(again, r2, nullptr), 0) << r2.summary().toStdString();
    ASSERT_TRUE(obj.open(QIODevice::ReadOnly));
    EXPECT_NE(obj.readAll(), before);
}

// Cancelled after the cameras are in, the open project's texture meshes are
// those it had; bad files stop the job before anything is made.
TEST_F(TexturePipeline, CancelRestoresTheTextureMeshesAndBadFilesChangeNothing)
{
    KvoTextureJobReport r;
    ASSERT_EQ(textureFromFiles(job(), r, nullptr), 0) << r.summary().toStdString();
    const auto before = qvtest::texMeshTriangles();
    ASSERT_GT(before.size(), 1u);
    for (int when : {1, 3, 6, 12}) {
        SCOPED_TRACE(when);
        KvoTextureJob j;
        j.output = scratch.file(QString("cancel%1/x.obj").arg(when));
        int asked = 0;
        j.cancelled = [&asked, when] { return ++asked >= when; };
        KvoTextureJobReport rc;
        EXPECT_EQ(textureOpenProject(j, rc, nullptr), kvoPipelineCancelled);
        EXPECT_FALSE(getMM()->isTexEditOpen());
        EXPECT_EQ(qvtest::texMeshTriangles(), before);
        EXPECT_FALSE(QFileInfo::exists(j.output));
    }

    getMM()->closeProject();
    KvoTextureJob bad = job();
    bad.cameras = KvoCameraSource::colmap(scratch.file("nowhere"));
    bad.output = scratch.file("bad/x.obj");
    KvoTextureJobReport rb;
    EXPECT_EQ(textureFromFiles(bad, rb, nullptr), kvoPipelineBadInput);
    EXPECT_FALSE(rb.error.isEmpty());
    EXPECT_FALSE(QFileInfo::exists(scratch.file("bad/x.qvj")));
    bad = job();
    bad.mesh = scratch.file("missing.obj");
    EXPECT_EQ(textureFromFiles(bad, rb, nullptr), kvoPipelineBadInput);
    EXPECT_TRUE(rb.error.contains("missing.obj"));
}

TEST(CameraSource, TheFormatIsToldByWhatThePathHolds)
{
    KvoCameraSource s;
    QString why;
    ASSERT_TRUE(detectCameraSource(kSample + "/cameras/colmap", QString(), s, why)) << why.toStdString();
    EXPECT_EQ(s.kind, KvoCameraSource::Colmap);
    ASSERT_TRUE(detectCameraSource(kSample + "/cameras/bundler", QString(), s, why)) << why.toStdString();
    EXPECT_EQ(s.kind, KvoCameraSource::Bundler);
    EXPECT_TRUE(s.listFile.endsWith("list.txt"));
    ASSERT_TRUE(detectCameraSource(kSample + "/cameras/bundler/bundle.out", QString(), s, why));
    EXPECT_EQ(s.kind, KvoCameraSource::Bundler);
    ASSERT_TRUE(detectCameraSource(kSample + "/cameras/matrices", QString(), s, why));
    EXPECT_EQ(s.kind, KvoCameraSource::Matrices);
    EXPECT_FALSE(detectCameraSource(kSample + "/photos", QString(), s, why));
    EXPECT_TRUE(why.contains("COLMAP"));
    EXPECT_FALSE(detectCameraSource(kSample + "/nothing", QString(), s, why));
    EXPECT_EQ(photographFiles(kSample + "/photos").size(), 8);
}
