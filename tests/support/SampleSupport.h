#pragma once

// Small generated projects for the tests of the sessions and exporters that
// need photographs with known cameras.

#include <gtest/gtest.h>

#include "SampleProject.h"
#include "autotexture/KvoTexturePipeline.h"
#include "scene/KvoStore.h"
#include "support/TestSupport.h"

namespace qvtest {

// The size of a small generated scene.
struct SmallSample {
    int photos = 3;
    int triangles = 2000;
    int photoWidth = 480;
    int photoHeight = 360;
    double texelsPerMetre = 12;
};

// Makes the scene in the scratch folder ("scene") and opens its project
// ("p.qvj"); fails the test when it cannot.
inline void openSample(const ScratchDir& scratch, const SmallSample& size, qvsample::SampleScene* scene = nullptr)
{
    qvsample::SampleOptions o;
    o.photos = size.photos;
    o.triangles = size.triangles;
    o.photoWidth = size.photoWidth;
    o.photoHeight = size.photoHeight;
    o.texelsPerMetre = size.texelsPerMetre;
    QString why;
    ASSERT_EQ(qvsample::makeSampleProject(o, scratch.file("scene"), scratch.file("p.qvj"), why, scene), kvo::kvoOk)
        << why.toStdString();
}

// The same with every photograph mapped through its stored camera.
inline void openMappedSample(const ScratchDir& scratch, const SmallSample& size)
{
    ASSERT_NO_FATAL_FAILURE(openSample(scratch, size));
    ASSERT_EQ(qvsample::mapThroughStoredCameras(), size.photos);
}

// The texture job on a generated scene's folder (its model, photographs and
// COLMAP cameras) into output, with 2048 atlases.
inline kvo::KvoTextureJob sampleTextureJob(const QString& folder, const QString& output)
{
    kvo::KvoTextureJob j;
    j.mesh = folder + "/model.obj";
    j.photos = folder + "/photos";
    j.haveCameras = true;
    j.cameras = kvo::KvoCameraSource::colmap(folder + "/cameras/colmap");
    j.output = output;
    j.atlas = 2048;
    return j;
}

} // namespace qvtest
