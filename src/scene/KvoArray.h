#pragma once

#include <vector>

#include "scene/KvoRecords.h"
#include "scene/KvoReferenced.h"
#include "scene/KvoTypes.h"

namespace kvo {

class IKvoMesh;
class IKvoImage;
class IKvoRing;

// The array family of the store. Every array is a reference-counted object
// handed out as ref_ptr and shared by reference: whoever holds the pointer
// sees every change. Elements lie contiguously, so hot loops use getData().
template <class T> class QV_EXPORT KvoArray : public KvoReferenced {
public:
    using value_type = T;

    KvoArray() = default;
    explicit KvoArray(std::vector<T> v) : m_v(std::move(v)) {}

    void clear() { m_v.clear(); }
    void append(const T& value) { m_v.push_back(value); }
    T getAt(long i) const { return m_v[size_t(i)]; }
    void getAt(T& out, long i) const { out = m_v[size_t(i)]; }
    void setAt(long i, const T& value) { m_v[size_t(i)] = value; }
    // Removes element i; false for an index outside the array.
    bool removeAt(long i)
    {
        if (i < 0 || size_t(i) >= m_v.size())
            return false;
        m_v.erase(m_v.begin() + i);
        return true;
    }
    long getCount() const { return long(m_v.size()); }
    // Makes room; the count stays.
    void reserve(long n) { m_v.reserve(size_t(n > 0 ? n : 0)); }
    // The count becomes n; new elements are value-initialised.
    void resize(long n) { m_v.resize(size_t(n > 0 ? n : 0)); }
    T* getData() { return m_v.data(); }
    const T* getData() const { return m_v.data(); }

    T& operator[](long i) { return m_v[size_t(i)]; }
    const T& operator[](long i) const { return m_v[size_t(i)]; }
    std::vector<T>& vec() { return m_v; }
    const std::vector<T>& vec() const { return m_v; }

    // A new array with the same elements (a shallow copy for reference elements).
    ref_ptr<KvoArray> clone() const { return ref_ptr<KvoArray>(new KvoArray(m_v)); }

private:
    std::vector<T> m_v;
};

using Pnt2fArray = KvoArray<XPnt2f>;
using Pnt2dArray = KvoArray<XPnt2d>;
using Pnt3fArray = KvoArray<XPnt3f>;
using Pnt3dArray = KvoArray<XPnt3d>;
using IntArray = KvoArray<int>;
using UIntArray = KvoArray<unsigned>;
using LongArray = KvoArray<long>;
using ByteArray = KvoArray<unsigned char>;
using FloatArray = KvoArray<float>;
using DoubleArray = KvoArray<double>;
using IntArrayArray = KvoArray<ref_ptr<IntArray>>;
using ByteArrayArray = KvoArray<ref_ptr<ByteArray>>;
using FloatArrayArray = KvoArray<ref_ptr<FloatArray>>;
using MeshArray = KvoArray<ref_ptr<IKvoMesh>>;
using ImageArray = KvoArray<ref_ptr<IKvoImage>>;
using RingArray = KvoArray<ref_ptr<IKvoRing>>;
using PntPntArray = KvoArray<POINT_POINT>;

QV_EXPORT ref_ptr<Pnt2fArray> newPnt2fArray();
QV_EXPORT ref_ptr<Pnt2dArray> newPnt2dArray();
QV_EXPORT ref_ptr<Pnt3fArray> newPnt3fArray();
QV_EXPORT ref_ptr<Pnt3dArray> newPnt3dArray();
QV_EXPORT ref_ptr<IntArray> newIntArray();
QV_EXPORT ref_ptr<UIntArray> newUIntArray();
QV_EXPORT ref_ptr<LongArray> newLongArray();
QV_EXPORT ref_ptr<ByteArray> newByteArray();
QV_EXPORT ref_ptr<FloatArray> newFloatArray();
QV_EXPORT ref_ptr<DoubleArray> newDoubleArray();
QV_EXPORT ref_ptr<IntArrayArray> newIntArrayArray();
QV_EXPORT ref_ptr<ByteArrayArray> newByteArrayArray();
QV_EXPORT ref_ptr<FloatArrayArray> newFloatArrayArray();
QV_EXPORT ref_ptr<MeshArray> newMeshArray();
QV_EXPORT ref_ptr<ImageArray> newImageArray();
QV_EXPORT ref_ptr<RingArray> newRingArray();
QV_EXPORT ref_ptr<PntPntArray> newPntPntArray();

} // namespace kvo

// The element types are instantiated once, in the library.
extern template class kvo::KvoArray<XPnt2f>;
extern template class kvo::KvoArray<XPnt2d>;
extern template class kvo::KvoArray<XPnt3f>;
extern template class kvo::KvoArray<XPnt3d>;
extern template class kvo::KvoArray<int>;
extern template class kvo::KvoArray<unsigned>;
extern template class kvo::KvoArray<long>;
extern template class kvo::KvoArray<unsigned char>;
extern template class kvo::KvoArray<float>;
extern template class kvo::KvoArray<double>;
extern template class kvo::KvoArray<kvo::POINT_POINT>;
