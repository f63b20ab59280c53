#include "tasks/KvoQvTask.h"

template class kvo::KvoArray<kvo::TagQvTaskEvent>;

namespace kvo {

ref_ptr<QvTagTaskEventArray> newQvTagTaskEventArray()
{
    return ref_ptr<QvTagTaskEventArray>(new QvTagTaskEventArray());
}

long KvoTaskEventList::add(const ref_ptr<IKvoQvTaskEvent>& event)
{
    if (!event)
        return -1;
    long id = 0;
    for (const TagQvTaskEvent& e : m_events->vec())
        id = std::max(id, e.id);
    m_events->append(TagQvTaskEvent(id + 1, event));
    return id + 1;
}

long KvoTaskEventList::remove(long id)
{
    auto& v = m_events->vec();
    for (size_t i = 0; i < v.size(); ++i)
        if (v[i].id == id) {
            v.erase(v.begin() + long(i));
            return long(v.size());
        }
    return 1;
}

void KvoTaskEventList::ids(ref_ptr<LongArray>& out) const
{
    out = newLongArray();
    for (const TagQvTaskEvent& e : m_events->vec())
        out->append(e.id);
}

void CKvoQvImgViewEventImp::onImageChanged()
{
    for (const QPointer<QObject>& d : m_dialogs)
        if (auto* f = dynamic_cast<IKvoImageViewFollower*>(d.data()))
            f->refreshForShownImage();
}

} // namespace kvo
