#pragma once

#include <QString>

#include "scene/KvoStore.h"

namespace kvo {

// Another project, opened for reading beside the open one: its model, its
// image records and their files. Nothing of it is written.
class QV_EXPORT IKvoFileSystem : public KvoReferenced {
public:
    // Opens a project file; 0, or a negative code with getLastError() saying why.
    virtual long open(const QString& projectFile) = 0;
    virtual QString getLastError() const = 0;
    virtual QString getFilePath() const = 0;
    // The folder of the project's images and derived files.
    virtual QString getFolder() const = 0;
    // The project's model as it was saved; null when it has none.
    virtual ref_ptr<IKvoModel>& readModel(ref_ptr<IKvoModel>& out) const = 0;
    // The project's image records, their paths resolved in its folder.
    virtual ref_ptr<IKvoImageDb>& getImageDb(ref_ptr<IKvoImageDb>& out) const = 0;
    virtual bool getVCParam(long imageId, ZebQVVCParam& out) const = 0;
};

QV_EXPORT ref_ptr<IKvoFileSystem> newKvoFileSystem();

} // namespace kvo
