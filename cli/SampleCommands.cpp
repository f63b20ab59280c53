// The generator of scenes with a known answer.

#include <QDir>

#include "CliSupport.h"
#include "SampleWriter.h"

namespace qvcli {
namespace {

bool toNumber(const QString& s, long& out, long lo, long hi)
{
    bool ok = false;
    out = s.toLong(&ok);
    return ok && out >= lo && out <= hi;
}

int cmdSample(const QStringList& args)
{
    qvsample::SampleOptions o;
    QString folder;
    for (int i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        const bool hasValue = i + 1 < args.size();
        const QString value = hasValue ? args[i + 1] : QString();
        long n = 0;
        if (!hasValue)
            return 2;
        ++i;
        if (a == "--out") {
            folder = value;
        } else if (a == "--kind") {
            if (!qvsample::parseKind(value.toStdString(), o.kind)) {
                err(QString("unknown kind '%1' (building, plane or wall)").arg(value));
                return 2;
            }
        } else if (a == "--photos") {
            if (!toNumber(value, n, 1, 200)) {
                err("--photos takes a number from 1 to 200");
                return 2;
            }
            o.photos = int(n);
        } else if (a == "--seed") {
            if (!toNumber(value, n, 0, 0xffffffffL)) {
                err("--seed takes a number from 0 to 4294967295");
                return 2;
            }
            o.seed = unsigned(n);
        } else if (a == "--triangles") {
            if (!toNumber(value, n, 2, 16000000)) {
                err("--triangles takes a number from 2 to 16000000");
                return 2;
            }
            o.triangles = n;
        } else if (a == "--size") {
            const QStringList wh = value.split('x');
            long w = 0, h = 0;
            if (wh.size() != 2 || !toNumber(wh[0], w, 64, 8192) || !toNumber(wh[1], h, 64, 8192)) {
                err("--size takes WIDTHxHEIGHT, each from 64 to 8192");
                return 2;
            }
            o.photoWidth = int(w);
            o.photoHeight = int(h);
        } else if (a == "--texels") {
            if (!toNumber(value, n, 4, 1024)) {
                err("--texels takes a number of texels a metre from 4 to 1024");
                return 2;
            }
            o.texelsPerMetre = double(n);
        } else {
            return 2;
        }
    }
    if (folder.isEmpty())
        return 2;
    TerminalProgress progress;
    double done = 0;
    std::string error;
    const bool ok = qvsample::writeSample(o, QDir(folder).absolutePath().toStdString(), &error,
                                          [&](double share, const std::string& caption) {
                                              progress.setText(QString::fromStdString(caption));
                                              progress.step(share - done);
                                              done = share;
                                          });
    progress.finish();
    if (!ok) {
        err(QString::fromStdString(error));
        return 1;
    }
    out(QString("Wrote a %1 scene with %2 photographs to %3")
            .arg(qvsample::kindName(o.kind))
            .arg(o.photos)
            .arg(QDir(folder).absolutePath()));
    return 0;
}

Register rSample("sample",
                 {"sample --out DIR [--kind building|plane|wall] [--photos N] [--seed S] [--triangles N] "
                  "[--size WxH] [--texels N]",
                  "writes a scene with a known answer: model (OBJ), ground-truth textures and textured model, "
                  "photographs with EXIF, control points, COLMAP and Bundler cameras, projection matrices and "
                  "scene.json. Defaults: building, 8 photographs of 1600x1200, seed 1, about 20000 triangles, "
                  "96 texels a metre",
                  cmdSample});

} // namespace
} // namespace qvcli
