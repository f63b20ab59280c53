#include <QFileInfo>

#include "platform/KvoModelManImpl.h"
#include "scene/KvoFileSystem.h"

namespace kvo {

namespace {

class CKvoFileSystem : public IKvoFileSystem {
public:
    long open(const QString& projectFile) override
    {
        m_error.clear();
        if (projectFile.trimmed().isEmpty()) {
            m_error = "No project file name was given.";
            return kvoErrBadArgument;
        }
        // The reader fills a state of its own; the open project is not touched.
        auto* owner = dynamic_cast<CKvoMM*>(getMM());
        if (!owner) {
            m_error = "The project store cannot read projects.";
            return kvoErrBadArgument;
        }
        // The project object of the state is never saved, so the manager it names is never asked.
        CKvoMM::State state;
        QString error;
        const long rc = projectfile::load(projectFile, *owner, state, nullptr, error);
        if (rc != kvoOk) {
            m_error = error;
            return rc;
        }
        m_state = std::move(state);
        return kvoOk;
    }
    QString getLastError() const override { return m_error; }
    QString getFilePath() const override { return m_state.project ? m_state.project->getFilePath() : QString(); }
    QString getFolder() const override { return m_state.project ? m_state.project->getFolder() : QString(); }
    ref_ptr<IKvoModel>& readModel(ref_ptr<IKvoModel>& out) const override { return out = m_state.model; }
    ref_ptr<IKvoImageDb>& getImageDb(ref_ptr<IKvoImageDb>& out) const override
    {
        out.reset();
        if (m_state.project)
            m_state.project->getImageDb(out);
        return out;
    }
    bool getVCParam(long imageId, ZebQVVCParam& out) const override
    {
        auto it = m_state.vcParams.find(imageId);
        if (it == m_state.vcParams.end())
            return false;
        out = it->second;
        return true;
    }

private:
    CKvoMM::State m_state;
    QString m_error;
};

} // namespace

ref_ptr<IKvoFileSystem> newKvoFileSystem()
{
    return ref_ptr<IKvoFileSystem>(new CKvoFileSystem());
}

} // namespace kvo
