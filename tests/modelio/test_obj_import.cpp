#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <map>
#include <set>

#include "commands/KvoCommands.h"
#include "modelio/KvoImportCommands.h"
#include "modelio/KvoMeshRepair.h"
#include "modelio/ObjTestFiles.h"
#include "modelio/QDlgImportMesh.h"
#include "support/ViewerSupport.h"
#include "ui/QDlgImageTree.h"

using namespace kvo;

namespace {

class ObjImport : public qvtest::ViewerTest {
protected:
    // Writes the two squares with a picture for each material (or names missing ones).
    QString texturedObj(const QString& name, bool leftPicture = true, bool rightPicture = true)
    {
        QByteArray mtl = "newmtl left\nKd 1 1 1\nmap_Kd left.png\nnewmtl right\nmap_Kd right.png\n";
        if (leftPicture) {
            EXPECT_TRUE(qvtest::writeTestPicture(scratch.file("left.png"), 16, 8, 1));
        }
        if (rightPicture) {
            EXPECT_TRUE(qvtest::writeTestPicture(scratch.file("right.png"), 8, 16, 2));
        }
        EXPECT_TRUE(qvtest::writeText(scratch.file("two.mtl"), mtl));
        EXPECT_TRUE(qvtest::writeText(scratch.file(name), qvtest::twoSquaresObj()));
        return scratch.file(name);
    }
    QByteArray projectBytes()
    {
        ref_ptr<IKvoProject> project;
        getMM()->getProject(project);
        QFile f(project->getFilePath());
        return f.open(QIODevice::ReadOnly) ? QCryptographicHash::hash(f.readAll(), QCryptographicHash::Sha1)
                                           : QByteArray();
    }
    std::vector<unsigned> tris(const ref_ptr<IKvoMesh>& m) { return m->getTriangleIndices()->vec(); }
    ref_ptr<IKvoMesh> bareMesh()
    {
        ref_ptr<MeshArray> bare;
        getMM()->getBareMeshes(bare);
        return bare && bare->getCount() == 1 ? bare->getAt(0) : ref_ptr<IKvoMesh>();
    }
    ref_ptr<IKvoMesh> texMeshNamed(const QString& name)
    {
        ref_ptr<MeshArray> list;
        getMM()->getTexMeshes(list);
        for (auto& m : list->vec())
            if (m->getName() == name)
                return m;
        return {};
    }
    int questions() const
    {
        int n = 0;
        for (auto& r : presenter->records)
            n += r.text == kInvalidFacesQuestion ? 1 : 0;
        return n;
    }
};

std::set<XTrip<unsigned>> tripleSet(const std::vector<unsigned>& t)
{
    std::set<XTrip<unsigned>> out;
    for (size_t i = 0; i + 2 < t.size(); i += 3)
        out.insert(XTrip<unsigned>(t[i], t[i + 1], t[i + 2]).normalize());
    return out;
}

} // namespace

TEST_F(ObjImport, WithoutAProjectOrWithAModelNothingIsImported)
{
    const QString file = texturedObj("a.obj");
    EXPECT_EQ(cmdOnFileAddKvomodel(file), kvoNoProject);
    newProject();
    ASSERT_EQ(cmdOnFileAddKvomodel(file), 1);
    const QByteArray before = projectBytes();
    ref_ptr<IKvoModel> model;
    getMM()->getBareModel(model);
    const long meshes = model->getMeshCount();
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    getMM()->getProject(project)->getImageDb(db);
    const long images = db->getImageCount();
    presenter->records.clear();
    EXPECT_EQ(cmdOnFileAddKvomodel(file), kvoModelExists);
    ref_ptr<IKvoModel> after;
    EXPECT_EQ(getMM()->getBareModel(after), model);
    EXPECT_EQ(model->getMeshCount(), meshes);
    EXPECT_EQ(db->getImageCount(), images);
    EXPECT_EQ(projectBytes(), before);
    EXPECT_TRUE(presenter->records.isEmpty());
}

TEST_F(ObjImport, TexturedGroupsBecomeImagesWithTextureMeshes)
{
    newProject();
    const QString file = texturedObj("squares.obj");
    ASSERT_EQ(cmdOnFileAddKvomodel(file), 1);
    IKvoMM* mm = getMM();
    ref_ptr<IKvoModel> model;
    ASSERT_TRUE(mm->getBareModel(model));
    EXPECT_EQ(model->getName(), "squares.obj");
    EXPECT_EQ(model->getVertexCount(), 6);
    ASSERT_TRUE(model->getTexCoords()) << "as many texture coordinates as vertices are shared";
    ref_ptr<IKvoMesh> bare = bareMesh();
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->getName(), QString("Mesh %1").arg(bare->getId()));
    EXPECT_EQ(tris(bare), (std::vector<unsigned>{0, 1, 2, 0, 2, 3, 1, 4, 5, 1, 5, 2}));
    EXPECT_EQ(mm->getTexMeshCount(), 2);
    ref_ptr<IKvoMesh> left = texMeshNamed("left.png"), right = texMeshNamed("right.png");
    ASSERT_TRUE(left && right);
    EXPECT_EQ(tris(left), (std::vector<unsigned>{0, 1, 2, 0, 2, 3}));
    EXPECT_EQ(tris(right), (std::vector<unsigned>{1, 4, 5, 1, 5, 2}));
    ASSERT_TRUE(right->hasCornerUVs());
    EXPECT_EQ(right->getCornerTexIndices()->vec(), (std::vector<unsigned>{1, 4, 5, 1, 5, 2}));
    EXPECT_EQ(right->getUVs()->getAt(4), XPnt2f(0.5f, 0.f));
    EXPECT_TRUE(right->isTiled());
    ref_ptr<IKvoImage> pixels;
    right->getImage(pixels);
    ASSERT_TRUE(pixels);
    EXPECT_EQ(pixels->getWidth(), 8);
    EXPECT_EQ(mm->getActiveImageId(), left->getImageId());
    // The mesh panel lists the bare mesh and the texture meshes.
    EXPECT_EQ(vm->meshPanel()->meshes("Bare Mesh").size(), 1u);
    EXPECT_EQ(vm->meshPanel()->meshes("Texture Mesh").size(), 2u);
    // Saved, with the OBJ file copied into the project folder.
    ref_ptr<IKvoProject> project;
    mm->getProject(project);
    EXPECT_FALSE(mm->isDirty());
    EXPECT_TRUE(QFileInfo::exists(project->getFolder() + "/squares.obj"));
    QString modelFile;
    mm->getModelFileName(modelFile);
    EXPECT_EQ(modelFile, "squares.obj");
    EXPECT_EQ(questions(), 0) << "a clean mesh asks nothing";
}

TEST_F(ObjImport, TheImageGroupIsAskedWithTheImageTree)
{
    newProject();
    const QString file = texturedObj("g.obj");
    int asked = 0;
    presenter->dialogScript = [&](QDialog* d) {
        asked += qobject_cast<QDlgImageTree*>(d) ? 1 : 0;
        return int(QDialog::Rejected);
    };
    ASSERT_EQ(cmdOnFileAddKvomodel(file), 1);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(getMM()->getTexMeshCount(), 2) << "no group chosen still imports the images";
}

TEST_F(ObjImport, TheProjectRoundTripKeepsTheImportedModel)
{
    newProject();
    ASSERT_EQ(cmdOnFileAddKvomodel(texturedObj("r.obj")), 1);
    IKvoMM* mm = getMM();
    ref_ptr<IKvoProject> project;
    const QString path = mm->getProject(project)->getFilePath();
    ref_ptr<IKvoModel> model;
    mm->getBareModel(model);
    const std::vector<XPnt3f> verts = model->getVertices()->vec();
    const std::vector<XPnt3f> vnormals = model->getVertexNormals()->vec();
    std::map<QString, std::pair<std::vector<unsigned>, std::vector<XPnt2f>>> meshes;
    for (long i = 0; i < model->getMeshCount(); ++i) {
        ref_ptr<IKvoMesh> m = model->getMesh(i);
        meshes[m->getName()] = {tris(m), m->getUVs() ? m->getUVs()->vec() : std::vector<XPnt2f>()};
    }
    mm->closeProject();
    ASSERT_EQ(mm->openProject(path), 0) << mm->getLastError().toStdString();
    ref_ptr<IKvoModel> back;
    ASSERT_TRUE(mm->getBareModel(back));
    EXPECT_EQ(back->getVertices()->vec(), verts);
    EXPECT_EQ(back->getVertexNormals()->vec(), vnormals);
    ASSERT_EQ(back->getMeshCount(), long(meshes.size()));
    for (long i = 0; i < back->getMeshCount(); ++i) {
        ref_ptr<IKvoMesh> m = back->getMesh(i);
        ASSERT_TRUE(meshes.count(m->getName())) << m->getName().toStdString();
        EXPECT_EQ(tris(m), meshes[m->getName()].first);
        EXPECT_EQ(m->getUVs() ? m->getUVs()->vec() : std::vector<XPnt2f>(), meshes[m->getName()].second);
    }
    EXPECT_EQ(mm->getTexMeshCount(), 2);
}

TEST_F(ObjImport, TextureCoordinatesOfAnotherCountStayWithTheTextureMeshesOnly)
{
    newProject();
    EXPECT_TRUE(qvtest::writeTestPicture(scratch.file("p.png"), 8, 8));
    EXPECT_TRUE(qvtest::writeText(scratch.file("t.mtl"), "newmtl m\nmap_Kd p.png\n"));
    EXPECT_TRUE(qvtest::writeText(scratch.file("t.obj"), "mtllib t.mtl\nv 0 0 0\nv 1 0 0\nv 1 1 0\n"
                                                         "vt 0 0\nvt 1 0\nvt 1 1\nvt 0.5 0.5\n"
                                                         "usemtl m\nf 1/4 2/2 3/3\n"));
    ASSERT_EQ(cmdOnFileAddKvomodel(scratch.file("t.obj")), 1);
    ref_ptr<IKvoModel> model;
    getMM()->getBareModel(model);
    EXPECT_EQ(model->getTexCoords(), nullptr);
    ref_ptr<IKvoMesh> tex = texMeshNamed("p.png");
    ASSERT_TRUE(tex);
    ASSERT_EQ(tex->getUVs()->getCount(), 4);
    EXPECT_EQ(tex->getUVOfVertex(0, 0), XPnt2f(0.5f, 0.5f));
}

TEST_F(ObjImport, BadFilesAreRefusedWithAMessageAndTheProjectUnchanged)
{
    newProject();
    const QByteArray before = projectBytes();
    QByteArray garbage;
    for (int i = 0; i < 5000; ++i)
        garbage.append(char((i * 7919 + 13) % 256));
    const QByteArray full = qvtest::twoSquaresObj("");
    struct Case {
        const char* name;
        QByteArray bytes; // empty name: not written
        QString message;
    } cases[] = {
        {"missing.obj", QByteArray(), "Cannot open the file %1."},
        {"empty.obj", "", "The file empty.obj holds no vertices."},
        {"comments.obj", "# nothing\n\n", "The file comments.obj holds no vertices."},
        {"garbage.obj", garbage, "The file garbage.obj is not an OBJ text file."},
        {"truncated.obj", full.left(full.size() - 12),
         "The file truncated.obj is damaged: 1 faces refer to vertices "
         "that it does not hold."},
        {"range.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\nf 1 2 4\nf 4 5 6\n",
         "The file range.obj is damaged: 2 faces refer to vertices that it does not hold."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = scratch.file(c.name);
        if (QByteArray(c.name) != "missing.obj") {
            ASSERT_TRUE(qvtest::writeText(path, c.bytes));
        }
        presenter->records.clear();
        EXPECT_EQ(cmdOnFileAddKvomodel(path), -1);
        ASSERT_EQ(presenter->records.size(), 1);
        EXPECT_EQ(presenter->lastText(), c.message.contains("%1") ? c.message.arg(path) : c.message);
        EXPECT_EQ(presenter->lastTitle(), "Quovara");
        ref_ptr<IKvoModel> model;
        EXPECT_FALSE(getMM()->getBareModel(model));
        EXPECT_FALSE(getMM()->isDirty());
        EXPECT_EQ(getMM()->getTexMeshCount(), 0);
        EXPECT_EQ(projectBytes(), before);
    }
    // The project still takes a good file afterwards.
    ASSERT_TRUE(qvtest::writeText(scratch.file("good.obj"), full));
    EXPECT_EQ(cmdOnFileAddKvomodel(scratch.file("good.obj")), 1);
}

TEST_F(ObjImport, MissingPicturesAndMaterialFilesLeaveGroupsBareAndAreReported)
{
    newProject();
    const QString file = texturedObj("half.obj", true, false);
    ASSERT_EQ(cmdOnFileAddKvomodel(file), 1);
    EXPECT_EQ(getMM()->getTexMeshCount(), 1);
    EXPECT_TRUE(texMeshNamed("left.png"));
    EXPECT_EQ(presenter->lastText(), "These pictures were not found:\nright.png");
    ref_ptr<IKvoMesh> bare = bareMesh();
    ASSERT_TRUE(bare);
    EXPECT_EQ(bare->getFaceCount(), 4) << "the group without its picture stays in the bare mesh";

    getMM()->closeProject();
    newProject("q.qvj");
    ASSERT_TRUE(qvtest::writeText(scratch.file("nomtl.obj"), qvtest::twoSquaresObj("mtllib gone.mtl\n")));
    presenter->records.clear();
    ASSERT_EQ(cmdOnFileAddKvomodel(scratch.file("nomtl.obj")), 1);
    EXPECT_EQ(getMM()->getTexMeshCount(), 0);
    EXPECT_EQ(presenter->lastText(), "The material file gone.mtl was not found; the model has no textures from it.");
    EXPECT_EQ(bareMesh()->getFaceCount(), 4);
}

TEST_F(ObjImport, AFinOnAnEdgeOfTwoFacesAsksAndTheRepairKeepsEverySurvivingTriangle)
{
    // Faces 1-2-3 and 1-3-4 share the edge 1-3; the fin 1-3-5 would be its third face.
    // Face 2-6-3 turns the wrong way against 1-2-3 and fits when turned over.
    EXPECT_TRUE(qvtest::writeTestPicture(scratch.file("p.png"), 8, 8));
    EXPECT_TRUE(qvtest::writeText(scratch.file("f.mtl"), "newmtl tex\nmap_Kd p.png\n"));
    const QByteArray obj = "mtllib f.mtl\n"
                           "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0.5 0.5 1\nv 2 0.5 0\n"
                           "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvt 0.5 0.5\nvt 0.9 0.5\n"
                           "f 1 2 3\n"
                           "usemtl tex\nf 1/1 3/3 4/4\nf 1/1 3/3 5/5\nf 2/2 6/6 3/3\n";
    ASSERT_TRUE(qvtest::writeText(scratch.file("fin.obj"), obj));
    for (bool yes : {true, false}) {
        SCOPED_TRACE(yes ? "repair" : "keep");
        getMM()->closeProject();
        newProject(yes ? "yes.qvj" : "no.qvj");
        presenter->records.clear();
        presenter->buttonAnswers = {yes ? QMessageBox::Yes : QMessageBox::No};
        ASSERT_EQ(cmdOnFileAddKvomodel(scratch.file("fin.obj")), 1);
        ASSERT_EQ(questions(), 1);
        for (auto& r : presenter->records)
            if (r.text == kInvalidFacesQuestion) {
                EXPECT_EQ(r.title, "");
                EXPECT_EQ(r.buttons, (QList<QMessageBox::StandardButton>{QMessageBox::Yes, QMessageBox::No}));
            }
        ref_ptr<IKvoMesh> bare = bareMesh();
        ASSERT_TRUE(bare);
        ref_ptr<IKvoMesh> tex = texMeshNamed("p.png");
        ASSERT_TRUE(tex);
        const auto bareSet = tripleSet(tris(bare));
        const auto texSet = tripleSet(tris(tex));
        if (!yes) {
            EXPECT_EQ(bare->getFaceCount(), 4);
            EXPECT_EQ(tex->getFaceCount(), 3);
            continue;
        }
        const std::set<XTrip<unsigned>> kept = {XTrip<unsigned>(0, 1, 2), XTrip<unsigned>(0, 2, 3),
                                                XTrip<unsigned>(1, 2, 5)};
        EXPECT_EQ(bareSet, kept) << "the fin goes, the turned face stays";
        EXPECT_EQ(texSet, (std::set<XTrip<unsigned>>{XTrip<unsigned>(0, 2, 3), XTrip<unsigned>(1, 2, 5)}));
        // Every texture triangle is a bare one and keeps its texture coordinates.
        for (long f = 0; f < tex->getFaceCount(); ++f)
            for (int k = 0; k < 3; ++k) {
                const unsigned v = tex->getTriangleIndices()->getAt(3 * f + k);
                EXPECT_EQ(tex->getFaceCorner(f, k), long(v)) << "file texture index equals vertex index here";
            }
        EXPECT_EQ(tex->getUVOfVertex(5, -1), XPnt2f(0.9f, 0.5f));
        // Oriented consistently now: no directed edge is used twice.
        std::set<std::pair<unsigned, unsigned>> directed;
        const auto& t = tris(bare);
        for (size_t i = 0; i < t.size(); i += 3)
            for (int k = 0; k < 3; ++k)
                EXPECT_TRUE(directed.insert({t[i + k], t[i + (k + 1) % 3]}).second);
        EXPECT_EQ(lastObjImportReport().removedFaces, 1);
        // Saved after the repair: reading the project back gives the same.
        ref_ptr<IKvoProject> project;
        const QString path = getMM()->getProject(project)->getFilePath();
        getMM()->closeProject();
        ASSERT_EQ(getMM()->openProject(path), 0);
        EXPECT_EQ(tripleSet(tris(bareMesh())), kept);
    }
}

TEST_F(ObjImport, ImagesAndMeshesComeFromAnotherProjectUnderNewIds)
{
    IKvoMM* mm = getMM();
    // Source: the squares with their two textures and a control point.
    newProject("src.qvj");
    ASSERT_EQ(cmdOnFileAddKvomodel(texturedObj("s.obj")), 1);
    ref_ptr<IKvoProject> project;
    ref_ptr<IKvoImageDb> db;
    mm->getProject(project)->getImageDb(db);
    ref_ptr<IKvoImageInfo> info;
    db->getImageInfo(info, 2)->addCtrlImagePnt(XPnt2d(0.25, 0.5));
    info->addCtrlWorldPnt(XPnt3d(1, 2, 3));
    ASSERT_EQ(mm->saveProject(), 0);
    const QString source = project->getFilePath();
    const std::vector<unsigned> rightTris = tris(texMeshNamed("right.png"));
    mm->closeProject();

    // Target: the same model, and an image of its own first.
    newProject("dst.qvj");
    ASSERT_EQ(cmdOnFileAddKvomodel(scratch.file("s.obj")), 1);
    mm->getProject(project)->getImageDb(db);
    const long before = db->getImageCount();
    ASSERT_EQ(before, 2);
    QString message;
    std::vector<long> newIds;
    presenter->dialogScript = [&](QDialog* d) {
        auto* dlg = qobject_cast<QDlgImportMesh*>(d);
        if (!dlg)
            return int(QDialog::Rejected);
        EXPECT_EQ(dlg->windowTitle(), "Import Images&Meshes From Project");
        message = dlg->messageText();
        EXPECT_EQ(dlg->rowCount(), 2);
        EXPECT_EQ(dlg->rowMeshName(1), "right.png");
        EXPECT_FALSE(dlg->importChecked());
        EXPECT_EQ(presenter->lastText(), "Please select a Mesh!");
        dlg->setRowChecked(1, true);
        EXPECT_TRUE(dlg->importChecked());
        newIds = dlg->importedIds();
        return int(QDialog::Accepted);
    };
    ASSERT_EQ(cmdImportMesh(source), 0);
    EXPECT_EQ(message, "Model is same, you can import images and meshes.");
    ASSERT_EQ(newIds, (std::vector<long>{3}));
    ref_ptr<IKvoImageInfo> copy;
    ASSERT_TRUE(db->getImageInfo(copy, 3));
    EXPECT_EQ(copy->getName(), "right.png");
    EXPECT_EQ(copy->getCtrlPntCount(), 1);
    const QString file = copy->getFilePath(2);
    EXPECT_TRUE(file.startsWith(project->getFolder())) << file.toStdString();
    EXPECT_TRUE(QFileInfo::exists(file));
    ref_ptr<IKvoMesh> mesh;
    ASSERT_TRUE(mm->getTexMeshOfImage(mesh, 3));
    EXPECT_EQ(tris(mesh), rightTris);
    EXPECT_TRUE(mesh->hasCornerUVs());

    // A project with another model gives images only.
    mm->closeProject();
    newProject("other.qvj");
    ASSERT_TRUE(qvtest::writeText(scratch.file("one.obj"), "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n"));
    ASSERT_EQ(cmdOnFileAddKvomodel(scratch.file("one.obj")), 1);
    presenter->dialogScript = [&](QDialog* d) {
        auto* dlg = qobject_cast<QDlgImportMesh*>(d);
        message = dlg->messageText();
        for (int r = 0; r < dlg->rowCount(); ++r)
            dlg->setRowChecked(r, true);
        dlg->importChecked();
        newIds = dlg->importedIds();
        return int(QDialog::Accepted);
    };
    ASSERT_EQ(cmdImportMesh(source), 0);
    EXPECT_EQ(message, "Model is not same, you can only import images.");
    EXPECT_EQ(newIds, (std::vector<long>{1, 2}));
    EXPECT_EQ(mm->getTexMeshCount(), 0);

    // Refusals: no file name, a file that is not a project, no project open.
    presenter->records.clear();
    EXPECT_EQ(cmdImportMesh(""), -1);
    ASSERT_TRUE(qvtest::writeText(scratch.file("not.qvj"), "hello"));
    EXPECT_EQ(cmdImportMesh(scratch.file("not.qvj")), -1);
    EXPECT_FALSE(presenter->lastText().isEmpty());
    mm->closeProject();
    EXPECT_EQ(cmdImportMesh(source), -1);
    EXPECT_EQ(presenter->lastText(), "No project is open.please create a project.");
}

TEST_F(ObjImport, TheCommandLineImportsAndAnswersFromFlags)
{
    auto run = [](const QStringList& args, QString* out = nullptr, QString* err = nullptr) {
        QProcess p;
        p.start(QUOVARA_CLI_PATH, args);
        p.waitForFinished(60000);
        if (out)
            *out = QString::fromUtf8(p.readAllStandardOutput());
        if (err)
            *err = QString::fromUtf8(p.readAllStandardError());
        return p.exitCode();
    };
    const QString project = scratch.file("cli.qvj");
    ASSERT_EQ(run({"new", project}), 0);
    texturedObj("c.obj");
    // A group name that is not an image of the project is a mistake of the caller.
    QString out, err;
    EXPECT_EQ(run({"import-obj", project, scratch.file("c.obj"), "--image-group", "nothing"}, &out, &err), 1);
    EXPECT_EQ(run({"import-obj", project, scratch.file("c.obj"), "--repair", "maybe"}), 2);
    ASSERT_EQ(run({"import-obj", project, scratch.file("c.obj"), "--repair", "yes"}, &out, &err), 0)
        << err.toStdString();
    EXPECT_TRUE(out.contains("Imported c.obj: 6 vertices, 4 triangles in 1 bare mesh(es), 2 group(s)"))
        << out.toStdString();
    EXPECT_TRUE(out.contains("Image left.png with its texture mesh"));
    EXPECT_EQ(run({"import-obj", project, scratch.file("c.obj")}, &out, &err), 1);
    EXPECT_TRUE(err.contains("already holds a model")) << err.toStdString();
    EXPECT_EQ(err.count('\n'), 1);
    ASSERT_EQ(run({"info", project}, &out), 0);
    EXPECT_TRUE(out.contains("6 vertices")) << out.toStdString();

    const QString other = scratch.file("cli2.qvj");
    ASSERT_EQ(run({"new", other}), 0);
    EXPECT_EQ(run({"import-obj", other, scratch.file("absent.obj")}, &out, &err), 1);
    EXPECT_TRUE(err.contains("Cannot open the file")) << err.toStdString();
    ASSERT_EQ(run({"import-project", other, project, "--ids", "2"}, &out, &err), 0) << err.toStdString();
    EXPECT_TRUE(out.contains("Image 2 imported as image 1")) << out.toStdString();
}
