// CImgExpansion: maps the disc of a sphere (a planet, the moon) photographed
// from afar onto a 2:1 longitude-latitude map in this image, with an optional
// 10-degree grid. The map panel has the full width and half of it in height,
// centred in y, or twice the height in width, centred in x when the image is
// flatter than 2:1. Map pixel (x, y) of the panel stands for
//   lon = (x - left) / width * 360 - 180,  lat = 90 - (y - top) / height * 180;
// the sphere is turned by fAzimuth in longitude and fAltitude about the y axis
// (the latitude of the disc's centre), and the point is read orthographically
// at (fRadius * q + fCenterX, fCenterY - fRadius * r) of src, bilinearly. The
// far side and points off src read 0; pixels outside the panel take plane 0's
// level minimum; grid lines the level maximum of each plane.
//
// fRotation (the turn of the disc in the picture) is not used by the mapping.
// Grid lines lie at k * height / 18 and k * width / 36 of the panel (integer
// division, the last one clamped into the panel) and are drawn only inside the
// rectangle. One route: the pixel reader on every store.
#pragma once
#include "Export.h"
#include "core/LmrImage.h"

class QORIMG_API CImgExpansion : public CLmrImage {
public:
  CImgExpansion() = default;
  ~CImgExpansion() override = default;

  // Writes the rectangle (clamped; null: all of it) of every plane of this
  // image from the same plane of src, whose levels it takes. An empty target is
  // first made like src. A non-finite centre, radius or angle does nothing.
  void Do(CLmrImage *src, double fCenterX, double fCenterY, double fRadius, double fAzimuth, double fAltitude,
          double fRotation, int bGrid, CRect *rect, int bProgress);
};
