#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

#include "scene/KvoExport.h"

namespace kvo {

// Base of every reference-counted object of the store. Objects are born with a
// count of zero; the first ref_ptr that takes them owns them. The count is
// atomic because parallel loops may copy references while they read.
class QV_EXPORT KvoReferenced {
public:
    KvoReferenced() = default;
    KvoReferenced(const KvoReferenced&) : m_refs(0) {}
    KvoReferenced& operator=(const KvoReferenced&) { return *this; }

    long ref() const { return m_refs.fetch_add(1, std::memory_order_relaxed) + 1; }
    long unref() const
    {
        long left = m_refs.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0)
            destroy();
        return left;
    }
    long AddRef() const { return ref(); }
    long refCount() const { return m_refs.load(std::memory_order_relaxed); }

protected:
    virtual ~KvoReferenced() = default;

private:
    // Out of line: the deleting destructor is virtual, and keeping the delete
    // where the compiler cannot see the object's layout avoids false alarms.
    void destroy() const;

    mutable std::atomic<long> m_refs{0};
};

// Intrusive smart pointer over KvoReferenced objects.
template <class T> class ref_ptr {
public:
    ref_ptr() = default;
    ref_ptr(std::nullptr_t) {}
    ref_ptr(T* p) : m_p(p) { acquire(); }
    ref_ptr(const ref_ptr& o) : m_p(o.m_p) { acquire(); }
    ref_ptr(ref_ptr&& o) noexcept : m_p(o.m_p) { o.m_p = nullptr; }
    template <class U> ref_ptr(const ref_ptr<U>& o) : m_p(o.get()) { acquire(); }
    ~ref_ptr() { release(); }

    ref_ptr& operator=(const ref_ptr& o)
    {
        ref_ptr(o).swap(*this);
        return *this;
    }
    ref_ptr& operator=(ref_ptr&& o) noexcept
    {
        ref_ptr(std::move(o)).swap(*this);
        return *this;
    }
    ref_ptr& operator=(T* p)
    {
        ref_ptr(p).swap(*this);
        return *this;
    }
    template <class U> ref_ptr& operator=(const ref_ptr<U>& o)
    {
        ref_ptr(o.get()).swap(*this);
        return *this;
    }

    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    explicit operator bool() const { return m_p != nullptr; }
    bool valid() const { return m_p != nullptr; }
    void swap(ref_ptr& o) noexcept { std::swap(m_p, o.m_p); }
    void reset() { release(); }

    bool operator==(const ref_ptr& o) const { return m_p == o.m_p; }
    bool operator!=(const ref_ptr& o) const { return m_p != o.m_p; }
    bool operator==(const T* p) const { return m_p == p; }
    bool operator!=(const T* p) const { return m_p != p; }
    bool operator<(const ref_ptr& o) const { return m_p < o.m_p; }

private:
    void acquire()
    {
        if (m_p)
            m_p->ref();
    }
    void release()
    {
        if (m_p) {
            T* p = m_p;
            m_p = nullptr;
            p->unref();
        }
    }
    T* m_p = nullptr;
};

template <class T, class U> ref_ptr<T> ref_cast(const ref_ptr<U>& p)
{
    return ref_ptr<T>(dynamic_cast<T*>(p.get()));
}

} // namespace kvo
