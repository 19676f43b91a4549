// A point with integer and double coordinates side by side.
#pragma once
#include "Export.h"
#include "core/PixelMath.h"
#include "platform/Geometry.h"

class QORIMG_API CfPoint : public CPoint {
public:
  double fx = 0.0;
  double fy = 0.0;

  // The integers are 0. The doubles start at 0.0 too: leaving them unset would
  // make a later read indeterminate.
  CfPoint() = default;
  CfPoint(int px, int py) { Set(px, py); }
  CfPoint(double px, double py) { Set(px, py); }
  virtual ~CfPoint() = default;
  CfPoint(const CfPoint &) = default;
  CfPoint &operator=(const CfPoint &) = default;

  // Stores the integers and their double values.
  void Set(int px, int py) { x = px; y = py; fx = px; fy = py; }
  // Stores the doubles and the integers truncated toward zero (saturated, and 0
  // for NaN, so that no value is out of int range).
  void Set(double px, double py) {
    fx = px;
    fy = py;
    x = qorimg::TruncateToInt(px);
    y = qorimg::TruncateToInt(py);
  }
};
