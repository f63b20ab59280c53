#pragma once

// Procedural ground-truth textures of the sample scenes.

#include <opencv2/core.hpp>

#include <string>

namespace qvsample {

// A widthPx x heightPx texture (CV_8UC3, BGR, rows top-down) of a material:
// "brick", "plaster", "tiles", "paving", "stone" or "poster", or one of the
// things in front of the building that a reconstruction leaves out:
// "foliage", "bark", "cloth", "metal". The same seed
// gives the same picture on every platform's standard library.
//
// Building materials are drawn at a fixed size in texels, meant for about 96
// texels a metre (bricks, windows and paving slabs come out life-sized then);
// a poster scales its design to the size asked for.
//
// No texture is symmetric: a yellow block near the top-left corner and a
// magenta one near the bottom-right corner give away any flip or half turn,
// even on a texture with little else on it.
//
// Throws std::invalid_argument for an unknown material or a size below 1.
cv::Mat makeSurfaceTexture(const std::string& material, int widthPx, int heightPx, unsigned seed);

} // namespace qvsample
