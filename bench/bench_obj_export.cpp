// Writing the OBJ text of a textured model of a million faces, against
// assimp's OBJ exporter writing the same model in the same run. Picture
// encoding is left out of both.

#include <QDir>
#include <QTemporaryDir>

#include <assimp/Exporter.hpp>
#include <assimp/material.h>
#include <assimp/scene.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <memory>

#include "modelio/KvoObjWriter.h"

using namespace kvo;

namespace {

// A height field of n x n vertices: 2 (n - 1)^2 faces, UVs and normals a vertex.
struct Grid {
    CKvoSmartMesh mesh;
    explicit Grid(int n)
    {
        auto& V = mesh.vertices->vec();
        auto& N = mesh.normals->vec();
        auto& T = mesh.uvs->vec();
        auto& I = mesh.indices->vec();
        V.reserve(size_t(n) * size_t(n));
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                const float x = float(i) * 0.013f + 312.5f, y = float(j) * 0.011f - 47.25f;
                V.emplace_back(x, y, std::sin(x) * std::cos(y) * 3.7f);
                N.emplace_back(0.1f * std::cos(x), 0.1f * std::sin(y), 0.99f);
                T.emplace_back(float(i) / float(n - 1), float(j) / float(n - 1));
            }
        for (int j = 0; j + 1 < n; ++j)
            for (int i = 0; i + 1 < n; ++i) {
                const unsigned a = unsigned(j * n + i), b = a + 1, c = a + unsigned(n) + 1, d = a + unsigned(n);
                I.insert(I.end(), {a, b, c, a, c, d});
            }
        mesh.setSuffix("grid0", "bench", "/tmp");
    }
};

Grid& grid()
{
    static Grid g(708); // 2 * 707^2 = 999,698 faces
    return g;
}

std::unique_ptr<aiScene> assimpScene(const CKvoSmartMesh& m)
{
    auto scene = std::make_unique<aiScene>();
    scene->mRootNode = new aiNode();
    scene->mRootNode->mNumMeshes = 1;
    scene->mRootNode->mMeshes = new unsigned[1]{0};
    scene->mNumMaterials = 1;
    scene->mMaterials = new aiMaterial* [1] { new aiMaterial() };
    aiString name("bench_grid0");
    scene->mMaterials[0]->AddProperty(&name, AI_MATKEY_NAME);
    aiString tex("bench_Texture/bench_grid0.jpg");
    scene->mMaterials[0]->AddProperty(&tex, AI_MATKEY_TEXTURE_DIFFUSE(0));
    scene->mNumMeshes = 1;
    scene->mMeshes = new aiMesh* [1] { new aiMesh() };
    aiMesh* mesh = scene->mMeshes[0];
    mesh->mMaterialIndex = 0;
    const unsigned nv = unsigned(m.vertices->getCount());
    mesh->mNumVertices = nv;
    mesh->mVertices = new aiVector3D[nv];
    mesh->mNormals = new aiVector3D[nv];
    mesh->mTextureCoords[0] = new aiVector3D[nv];
    mesh->mNumUVComponents[0] = 2;
    for (unsigned i = 0; i < nv; ++i) {
        const XPnt3f& p = (*m.vertices)[i];
        const XPnt3f& n = (*m.normals)[i];
        const XPnt2f& t = (*m.uvs)[i];
        mesh->mVertices[i] = aiVector3D(p.x, p.y, p.z);
        mesh->mNormals[i] = aiVector3D(n.x, n.y, n.z);
        mesh->mTextureCoords[0][i] = aiVector3D(t.x, t.y, 0);
    }
    const unsigned nf = unsigned(m.getTriangleCount());
    mesh->mNumFaces = nf;
    mesh->mFaces = new aiFace[nf];
    mesh->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    const unsigned* idx = m.indices->getData();
    for (unsigned f = 0; f < nf; ++f) {
        mesh->mFaces[f].mNumIndices = 3;
        mesh->mFaces[f].mIndices = new unsigned[3]{idx[3 * f], idx[3 * f + 1], idx[3 * f + 2]};
    }
    return scene;
}

QTemporaryDir& folder()
{
    static QTemporaryDir d;
    return d;
}

void BM_OurObjWriter(benchmark::State& state)
{
    const CKvoSmartMesh& m = grid().mesh;
    const QString path = folder().filePath("ours.obj");
    for (auto _ : state) {
        KvoTextOut out;
        out.open(path);
        out.write(respectiveObjHeader("bench"));
        KvoObjOffsets offsets;
        writeSmartMesh(out, m, KvoObjPlacement(), offsets);
        out.close();
    }
    state.counters["faces"] = double(m.getTriangleCount());
    state.counters["MB"] = double(QFileInfo(path).size()) / 1e6;
}

void BM_AssimpObjExporter(benchmark::State& state)
{
    std::unique_ptr<aiScene> scene = assimpScene(grid().mesh);
    const std::string path = folder().filePath("assimp.obj").toStdString();
    Assimp::Exporter exporter;
    for (auto _ : state) {
        if (exporter.Export(scene.get(), "objnomtl", path) != AI_SUCCESS)
            state.SkipWithError(exporter.GetErrorString());
    }
    state.counters["faces"] = double(grid().mesh.getTriangleCount());
}

// Both in one benchmark, so the ratio is measured under the same conditions.
void BM_SpeedupOverAssimp(benchmark::State& state)
{
    std::unique_ptr<aiScene> scene = assimpScene(grid().mesh);
    const QString ours = folder().filePath("ours2.obj");
    const std::string theirs = folder().filePath("assimp2.obj").toStdString();
    Assimp::Exporter exporter;
    double tOurs = 0, tTheirs = 0;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        KvoTextOut out;
        out.open(ours);
        KvoObjOffsets offsets;
        writeSmartMesh(out, grid().mesh, KvoObjPlacement(), offsets);
        out.close();
        auto t1 = std::chrono::steady_clock::now();
        exporter.Export(scene.get(), "objnomtl", theirs);
        auto t2 = std::chrono::steady_clock::now();
        tOurs += std::chrono::duration<double>(t1 - t0).count();
        tTheirs += std::chrono::duration<double>(t2 - t1).count();
    }
    state.counters["ours_s"] = tOurs / double(state.iterations());
    state.counters["assimp_s"] = tTheirs / double(state.iterations());
    state.counters["speedup"] = tTheirs / tOurs;
}

} // namespace

BENCHMARK(BM_OurObjWriter)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_AssimpObjExporter)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_SpeedupOverAssimp)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK_MAIN();
