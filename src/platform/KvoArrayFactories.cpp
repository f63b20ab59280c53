#include "scene/KvoArray.h"

// Arrays of meshes, images and rings release their elements in the array's
// destructor, which needs the complete element classes.
#include "scene/KvoRing.h"
#include "scene/KvoStore.h"

namespace kvo {

ref_ptr<Pnt2fArray> newPnt2fArray()
{
    return ref_ptr<Pnt2fArray>(new Pnt2fArray());
}
ref_ptr<Pnt2dArray> newPnt2dArray()
{
    return ref_ptr<Pnt2dArray>(new Pnt2dArray());
}
ref_ptr<Pnt3fArray> newPnt3fArray()
{
    return ref_ptr<Pnt3fArray>(new Pnt3fArray());
}
ref_ptr<Pnt3dArray> newPnt3dArray()
{
    return ref_ptr<Pnt3dArray>(new Pnt3dArray());
}
ref_ptr<IntArray> newIntArray()
{
    return ref_ptr<IntArray>(new IntArray());
}
ref_ptr<UIntArray> newUIntArray()
{
    return ref_ptr<UIntArray>(new UIntArray());
}
ref_ptr<LongArray> newLongArray()
{
    return ref_ptr<LongArray>(new LongArray());
}
ref_ptr<ByteArray> newByteArray()
{
    return ref_ptr<ByteArray>(new ByteArray());
}
ref_ptr<FloatArray> newFloatArray()
{
    return ref_ptr<FloatArray>(new FloatArray());
}
ref_ptr<DoubleArray> newDoubleArray()
{
    return ref_ptr<DoubleArray>(new DoubleArray());
}
ref_ptr<IntArrayArray> newIntArrayArray()
{
    return ref_ptr<IntArrayArray>(new IntArrayArray());
}
ref_ptr<ByteArrayArray> newByteArrayArray()
{
    return ref_ptr<ByteArrayArray>(new ByteArrayArray());
}
ref_ptr<FloatArrayArray> newFloatArrayArray()
{
    return ref_ptr<FloatArrayArray>(new FloatArrayArray());
}
ref_ptr<MeshArray> newMeshArray()
{
    return ref_ptr<MeshArray>(new MeshArray());
}
ref_ptr<ImageArray> newImageArray()
{
    return ref_ptr<ImageArray>(new ImageArray());
}
ref_ptr<RingArray> newRingArray()
{
    return ref_ptr<RingArray>(new RingArray());
}
ref_ptr<PntPntArray> newPntPntArray()
{
    return ref_ptr<PntPntArray>(new PntPntArray());
}

} // namespace kvo

// The one copy of each value array's members, vtable and type information;
// programs that see the header's extern declarations link against these.
template class kvo::KvoArray<XPnt2f>;
template class kvo::KvoArray<XPnt2d>;
template class kvo::KvoArray<XPnt3f>;
template class kvo::KvoArray<XPnt3d>;
template class kvo::KvoArray<int>;
template class kvo::KvoArray<unsigned>;
template class kvo::KvoArray<long>;
template class kvo::KvoArray<unsigned char>;
template class kvo::KvoArray<float>;
template class kvo::KvoArray<double>;
template class kvo::KvoArray<kvo::POINT_POINT>;
