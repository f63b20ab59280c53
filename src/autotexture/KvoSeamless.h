#pragma once

// Texture meshes that overlap: a triangle held by several texture meshes is
// shown by the last of them, unless that one's picture is transparent there.

#include "autotexture/KvoBestImage.h"

namespace kvo {

// Whether some pixel of the picture inside the UV triangle (uv2, uv1, uv0) is
// not fully opaque. Pixels whose centre lies inside or on the triangle count,
// and so do the pixels under its three corners, so that a triangle thinner
// than a pixel is still looked at. False for a null or empty picture.
QV_EXPORT bool isAlphaTri(const IKvoImage* image, const XPnt2f& uv2, const XPnt2f& uv1, const XPnt2f& uv0);

} // namespace kvo
