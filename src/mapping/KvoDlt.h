#pragma once

// Direct linear transform (DLT): 11 parameters L that take a world point to a
// normalised picture position (0 to 1 on each axis):
//   D = L8 X + L9 Y + L10 Z + 1
//   u = -(L0 X + L1 Y + L2 Z + L3) / D,  v = -(L4 X + L5 Y + L6 Z + L7) / D

#include <vector>

#include "mapping/KvoMatrix.h"
#include "scene/KvoArray.h"
#include "scene/KvoTypes.h"

namespace kvo {

// Results of DLTSimple.
enum : long {
    kvoDltOk = 1,
    // The normal equations are singular (all world points on one plane or line,
    // or fewer than 6 distinct points): L is not written.
    kvoDltSingular = -1,
};

// Least-squares fit of the first min(world, image) pairs; 1, or kvoDltSingular.
QV_EXPORT long DLTSimple(ref_ptr<Pnt3dArray>& world, ref_ptr<Pnt2dArray>& image, double* L);
QV_EXPORT long DLTSimple(std::vector<XPnt3d>& world, std::vector<XPnt2d>& image, double* L);

// Robust fit with a 3-pixel threshold; the caller's arrays stay as they are.
// The mean pixel error of the inliers (above 0), or -1.0 when no usable fit.
QV_EXPORT double DLTRobust(ref_ptr<Pnt3dArray>& world, ref_ptr<Pnt2dArray>& image, double* L, PT2<long> imageSize);
QV_EXPORT double DLTRobust(std::vector<XPnt3d>& world, std::vector<XPnt2d>& image, double* L, PT2<long> imageSize);

// The normalised picture position of a world point; invalid where D is 0.
QV_EXPORT XPnt2d camWorldPntToImgPos(const double* L, double X, double Y, double Z);

// Ten camera values from L: x0, y0, fx, fy, phi, omega, kappa, centre X, Y, Z.
QV_EXPORT void calCameraPramsBy11DLTPrams(double* L, int countL, double* camera, int countCamera);

// The random draws of the robust search: 15-bit values from a fixed linear
// congruential rule, so that a seed gives the same fit on every platform.
// By default each fit seeds from the clock; a fixed seed makes fits repeatable.
QV_EXPORT void setDltRandomSeed(unsigned seed);
QV_EXPORT void clearDltRandomSeed();

// One sample of the robust search: u, v, X, Y, Z.
struct QV_EXPORT CtrlPnt5d {
    double u = 0, v = 0, X = 0, Y = 0, Z = 0;
};

template <class T, class S> class ParameterEstimator {
public:
    virtual ~ParameterEstimator() = default;
    virtual int estimate(std::vector<T*>& samples, std::vector<S>& params) = 0;
    virtual int leastSquaresEstimate(std::vector<T*>& samples, std::vector<S>& params) = 0;
    virtual bool agree(std::vector<S>& params, T& sample) = 0;
    virtual double residual(std::vector<T*>& samples, std::vector<S>& params) = 0;
};

class QV_EXPORT DLTParamEstimator : public ParameterEstimator<CtrlPnt5d, double> {
public:
    DLTParamEstimator(double threshold, int imageHeight, int imageWidth)
        : threshold(threshold), imageHeight(imageHeight), imageWidth(imageWidth)
    {
    }
    int estimate(std::vector<CtrlPnt5d*>& samples, std::vector<double>& params) override;
    int leastSquaresEstimate(std::vector<CtrlPnt5d*>& samples, std::vector<double>& params) override;
    bool agree(std::vector<double>& params, CtrlPnt5d& sample) override;
    double residual(std::vector<CtrlPnt5d*>& samples, std::vector<double>& params) override;

    double threshold;
    int imageHeight;
    int imageWidth;

private:
    double pixelError(const std::vector<double>& params, const CtrlPnt5d& s) const;
};

// The random-sample search over unique subsets with a least-squares tie-break.
// Fills params and one vote per sample; the residual of the best model on its
// inliers, 0.0 when there are too few samples, -1.0 when the final fit fails.
QV_EXPORT double ransacDltSearch(ParameterEstimator<CtrlPnt5d, double>& estimator, std::vector<CtrlPnt5d>& data,
                                 int sampleSize, double probability, double maxOutlierShare,
                                 std::vector<double>& params, std::vector<bool>& votes);

class QV_EXPORT CDltFitter {
public:
    // Fits the control points of an image record; -1.0 when the record is missing.
    double fitImage(long imageId, double* L, int pixelThreshold, bool removeOutliers);
    // Robust fit; with removeOutliers the caller's arrays keep only the inliers
    // (in their order), even when the fit then fails.
    double fitPoints(ref_ptr<Pnt2dArray> image, ref_ptr<Pnt3dArray> world, PT2<long> imageSize, double* L,
                     int pixelThreshold, bool removeOutliers);
};

// Least-squares 2-D affine transform from -> to, 2 rows x 3 columns; false
// (m unchanged) when the points do not determine one.
QV_EXPORT bool calcAffineMatrix(ref_ptr<Pnt2dArray> from, ref_ptr<Pnt2dArray> to, matrix<double>& m);
QV_EXPORT bool calcAffineMatrix(ref_ptr<Pnt2fArray> from, ref_ptr<Pnt2fArray> to, matrix<double>& m);
// Applies such a transform to x and y, keeps z; invalid for a matrix smaller than 2 x 3.
QV_EXPORT XPnt3d calcAffinePnt(matrix<double>& m, XPnt3d p);
QV_EXPORT XPnt3f calcAffinePnt(matrix<double>& m, XPnt3f p);
// The exact transform through the first three pairs, 3 rows x 2 columns (transposed layout).
QV_EXPORT bool getAffineTransformationMatrix(const ref_ptr<Pnt2fArray>& from, const ref_ptr<Pnt2fArray>& to,
                                             matrix<float>& m);
QV_EXPORT bool calcAffineTransformationCoord(const matrix<float>& m, float x, float y, float& outX, float& outY);

} // namespace kvo
