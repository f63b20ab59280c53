#pragma once

// Turning a rendered view into a photograph: exposure, white balance and
// sensor noise, and a JPEG file with the EXIF a camera would write.

#include <opencv2/core.hpp>

#include <string>

#include "SampleScene.h"

namespace qvsample {

// Changes bgr (CV_8UC3) in place the way cam's photograph differs from the
// ground truth: every channel is multiplied by cam.exposure and its own
// white-balance gain (cam.whiteBalance is R, G, B), then gaussian noise of
// standard deviation cam.noiseSigma grey levels is added, independently for
// each pixel and channel, and the result rounded and clamped to 0..255. Every
// pixel is treated alike, the black sky too. The noise depends only on
// cam.noiseSeed and the picture size. Throws cv::Exception for another type.
void applyPhotoEffects(cv::Mat& bgr, const SampleCamera& cam);

// Writes bgr (CV_8UC3) as a JPEG of the given quality (1 to 100) with EXIF:
// make, model, focal length, the focal-plane resolution in pixels a
// centimetre that gives the sensor size, pixel dimensions, 35 mm equivalent
// focal length, orientation, plausible exposure settings, a date made from the
// number in cam.name and the software. The file is written in one go, so a
// failure leaves no JPEG without EXIF behind. False with a reason in *error
// (when given) on failure.
bool writePhotoJpeg(const std::string& path, const cv::Mat& bgr, const SampleCamera& cam, int quality,
                    std::string* error);

// Reads back what a camera's EXIF says of the lens and sensor: make and model
// (empty when missing), focal length and sensor size in mm from the focal-plane
// resolution (inch, centimetre, millimetre or micrometre units) and the pixel
// dimensions (those of the picture when EXIF has none). False when the file
// can't be read or lacks the focal length or the focal-plane resolution.
bool readPhotoExif(const std::string& path, std::string& make, std::string& model, double& focalMm,
                   double& sensorWidthMm, double& sensorHeightMm);

} // namespace qvsample
