// CInterp: sub-pixel reading of a source image, the common ground of every
// operator that moves pixels. It owns the five interpolation methods (0
// bilinear, 1 bicubic a = -0.5, 2 Lanczos2, 3 Lanczos3, 4 nearest neighbour)
// with their names, and reads a source shifted, rotated and scaled about a
// centre: whole output lines for composites and stacks, single pixels, and the
// L and ab samples of Lab work.
//
// The kernel methods refuse a position left of or above the image or beyond its
// far edge (a position on the far edge, x == width, is accepted and reads the
// clamped last column); nearest never refuses. Bicubic and Lanczos weights are
// not renormalised, so Lanczos may change a flat image slightly at fractional
// positions.
//
// The line table: the address of each source line is kept once it has been
// read. On a block store a line is locked when first read (from any thread) and
// unlocked by the destructor or the next SetBParam, so that a reader holds in
// memory only the lines it reads and frames larger than the store's budget can
// be read band by band. A copy builds its own table.
#pragma once
#include <atomic>
#include <memory>
#include <mutex>
#include <vector>
#include "Export.h"
#include "core/FPoint.h"
#include "core/LmrImage.h"
#include "platform/String.h"

class QORIMG_API CInterp {
public:
  enum Method { BilinearMethod = 0, BicubicMethod = 1, Lanczos2Method = 2, Lanczos3Method = 3, NearestMethod = 4 };

  explicit CInterp(int nMethod);
  // Pixel reading of `image` with nMode 1 and the line table built; the third
  // argument is not used.
  CInterp(int nMethod, CLmrImage *image, int);
  CInterp(const CInterp &other);
  CInterp &operator=(const CInterp &other);
  ~CInterp();

  // The English name of a method code, empty for another code.
  static CString GetEngString(int nMethod);
  // The name shown to the user.
  static CString GetString(int nMethod);
  // The code of an English name, without regard to case; -1 when unknown.
  static int GetMethod(CString &name);

  // Prepares line reading: nMode 0 whole-pixel shift, 1 fractional shift, 2
  // rotation; output columns fStartX .. fEndX (end exclusive); b256 maps samples
  // to the 0..255 scale of their plane; fOutside for output pixels outside the
  // source; nPlane -1 reads all planes of a colour source. The centre is the
  // image's stored centre with bImageCenter, else (width * 0.5, height * 0.5).
  void SetBParam(int nMode, CLmrImage *image, double fStartX, double fEndX, int b256, float fOutside, int nPlane,
                 double fSin, double fCos, double fScale, int bImageCenter);
  // Prepares pixel reading: the mode follows from the shift and rotation; no table.
  void SetBParam(CLmrImage *image, double fShiftX, double fShiftY, double fSin, double fCos, double fScale,
                 int bImageCenter, int nPlane, float fOutside);
  // Drops the table (and its locks) and builds it afresh.
  void GetImageYaddress();

  // One sample at (x, y) of plane nPlane by the method; 0.0 for a refused or NaN
  // position, an unknown method, or a plane the source lacks.
  float Do(double x, double y, int nPlane);
  // A source pixel, through the table when there is one.
  float GetPixData(int x, int y, int nPlane);

  // One output line at output row y (fEndX - fStartX columns, floors taken).
  void GetBLine(double y, float *line);
  // The same with nPlane -1 on a colour source: the three planes into r, g, b;
  // with another nPlane a colour source gives its brightness in r.
  void GetBLine(double y, float *r, float *g, float *b);
  // nPlane planes of a line, plane after plane at a stride of the source width,
  // with 1 in `valid` for a sample inside the source and 0 (and fOutside) outside.
  void GetBLineMed(double y, float *lines, int *valid);

  // One output pixel through the pixel form's shift and rotation (scale
  // ignored), bilinear whatever the method; fOutside (and *pOutside 1) outside
  // the source. pX, pY receive the source position when not null.
  float GetBPixelGrayRaw(int x, int y, int *pOutside, double *pX, double *pY);
  float GetBPixelGray256f(int x, int y, int *pOutside, double *pX, double *pY);
  // Plane 0 (and planes 0 and 1) at the mapped position with the scale, bilinear;
  // fOutside outside the source.
  float GetPixelL(int x, int y);
  void GetPixelAb(int x, int y, double *pA, double *pB);

protected:
  int Bilinear(CLmrImage *image, int nPlane, double x, double y, float *pOut);
  int Bicubic(CLmrImage *image, int nPlane, double x, double y, float *pOut);
  int Lanczos2(CLmrImage *image, int nPlane, double x, double y, float *pOut);
  int Lanczos3(CLmrImage *image, int nPlane, double x, double y, float *pOut);
  int Nearest(CLmrImage *image, int nPlane, double x, double y, float *pOut);
  // sum over rows j of wy[j] * (sum over columns i of wx[i] * samples[j * n + i]),
  // in double, unnormalised, rounded to float at the end.
  float Calc(double *wy, float *samples, double *wx, int n);
  double KernelBicubic(double t, double a);
  double KernelLanczos(double t, double n);
  float GetBPixelGrayRaw(double x, double y, int nPlane);
  float GetBPixelGray256f(double x, double y, int nPlane);

  // The three modes of the line readers, one plane into one output.
  void GetBLine_int(int y, int nPlane, float *out);
  void GetBLine_float(double y, int nPlane, float *out);
  void GetBLine_rotate(double y, int nPlane, float *out);
  void GetBLineMed_int(int y, int nPlane, float *out, int *valid);
  void GetBLineMed_float(double y, int nPlane, float *out, int *valid);
  void GetBLineMed_rotate(double y, int nPlane, float *out, int *valid);

  int nMethod;
  int nMode = 1;
  CLmrImage *image = nullptr;
  double fStartX = 0.0, fEndX = 0.0;
  int nStartX = 0, nEndX = 0;
  int b256 = 0;
  float fOutside = 0.0f;
  int nPlane = 0;
  double fSin = 0.0, fCos = 1.0;
  double fScale = 1.0;
  double fShiftX = 0.0, fShiftY = 0.0;
  CfPoint center;
  int nWidth = 0, nHeight = 0;
  int nColour = 0;
  float fLevelMin[3] = {0, 0, 0};
  float fLevelMul[3] = {0, 0, 0};
  // Line addresses, filled as lines are first read (see the header comment).
  std::unique_ptr<std::atomic<const float *>[]> lines;
  int nPlanes = 0;
  std::vector<int> lineBase;

private:
  int KernelSample(int nPlane, double x, double y, float *pOut, int taps, double (CInterp::*weight)(double));
  double WeightBicubic(double t) { return KernelBicubic(t, -0.5); }
  double WeightLanczos2(double t) { return KernelLanczos(t, 2.0); }
  double WeightLanczos3(double t) { return KernelLanczos(t, 3.0); }
  const float *Line(int y, int plane);
  void ReleaseTable();
  void CopySettings(const CInterp &other);
  void SetLevels();
  void SetCentre(int bImageCenter);
  float Map256(float v, int plane) const;
  float ReadPixel(int x, int y, int *pOutside, double *pX, double *pY, bool map256);
  // The sample or the brightness of a line reader's output, mapped with b256.
  float LineSample(double x, double y, int plane, bool brightness);
  void ReadLine(double y, int plane, float *out, int *valid, bool brightness);

  // Levels in double for the 0..255 mapping of the line readers.
  double levelMin_[3] = {0, 0, 0};
  double levelRange_[3] = {1, 1, 1};
  // Locks taken by the table on a block store, released with the table.
  std::mutex lockMutex_;
  std::vector<CVmImage::AddressHandle> locks_;
};
