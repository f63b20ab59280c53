#pragma once

// The control-point session: Ctrl-clicks on the photograph and on the model
// make pairs, a dialog computes and maps.

#include <vector>

#include "scene/KvoRecords.h"
#include "tasks/KvoQvTask.h"

namespace kvo {

class QV_EXPORT IKvoQvTaskCtrlPntEvent : public IKvoQvTaskEvent {
public:
    virtual long onPointChanged(const POINT_POINT& point) = 0;
};

class QV_EXPORT IKvoQvTaskCtrlPnt : public IKvoQvTask {
public:
    virtual void setMode(long mode) = 0;
    virtual void setMappingFlag(bool mapping) = 0;
    virtual void setEventMode(long mode) = 0;
    virtual bool isMapping() const = 0;
    // Tells every listener of the kind; a -1 stops the walk and is answered.
    virtual long fireChanged(long what) = 0;
    // Picks waiting for their partner, oldest first.
    virtual const std::vector<XPnt3d>& worldPicks() const = 0;
    virtual const std::vector<XPnt2d>& imagePicks() const = 0;
};

QV_EXPORT ref_ptr<IKvoQvTaskCtrlPnt> newKvoQvTaskCtrlPnt();

} // namespace kvo
