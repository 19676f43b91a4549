// CSpline: a natural cubic spline through a list of points kept by abscissa,
// from which tone curves and background models are drawn. Each point also says
// how the segment to its right is drawn: straight, cubic, or held at one end.
// The member GetValue recomputes stale coefficients and evaluates the segment
// after the one holding x (with a negative offset into it); callers that want
// the segment holding x, or that evaluate from several threads, use
// CalcSpline once and then the static GetValue.
#pragma once
#include <cstdint>
#include "Export.h"
#include "platform/Array.h"

struct tagSplinePoint {
  double dX;             // abscissa
  double dY;             // ordinate
  std::uint64_t nType;   // segment to the right: 0 straight, 1 cubic, 2 held at dY, 3 held at the next dY
  double dM;             // second derivative at the point
  double dB;             // first derivative at the point
  double dC;             // quadratic coefficient of the segment ending here
  double dD;             // cubic coefficient of the segment ending here
};

class QORIMG_API CSpline : public CArray<tagSplinePoint, tagSplinePoint> {
public:
  CSpline();
  ~CSpline() override;

  // dM, dB, dC, dD of every point: 1, or 0 for a null list, fewer than 3
  // points or abscissas out of order.
  static int CalcSpline(CArray<tagSplinePoint, tagSplinePoint> *pPoints);
  // Status: 1 success, 0 failure, -2 below the first point, -1 above the last.
  static double GetValue(double x, CArray<tagSplinePoint, tagSplinePoint> *pPoints, int *pStatus);
  double GetValue(double x, int *pStatus);

  // The index the point went to, or -1 when a point with that abscissa exists.
  std::int64_t SetPoint(tagSplinePoint point);
  std::int64_t SetPoint(double x, double y, std::uint64_t nType);
  // Both test the index against the count in the reverse sense: an index up to
  // the count gives 0, one above it raises std::out_of_range.
  int GetPoint(std::int64_t nIndex, tagSplinePoint *pPoint);
  int RemoveAtPoint(std::int64_t nIndex, std::int64_t nCount);
  void Init();
  void RemoveAllPoint();

protected:
  int bDirty = 0;
};
