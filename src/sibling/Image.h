// The image base: geometry, sample type, display levels and the pixel store.
// A raw sample is stored in the type of `BitsPixel`; the library's working images
// are 32-bit float. LevelMin/LevelMax/LevelRange per plane map raw values to the
// display scale, with LevelRange == LevelMax - LevelMin at all times.
#pragma once
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>
#include "Export.h"
#include "platform/Exceptions.h"
#include "platform/Object.h"
#include "platform/String.h"
#include "platform/WinTypes.h"
#include "sibling/Header.h"
#include "sibling/Progress.h"
#include "sibling/VmImage.h"

class QORIMG_API CImage : public CObject {
public:
  // FITS-style sample types: unsigned 8-bit, signed 16-bit, 32-bit integer
  // (signed or not by `Signed`), float, double.
  enum DataType : std::int32_t { UInt8 = 8, Int16 = 16, Int32 = 32, Float32 = -32, Float64 = -64 };
  // Bit depth of the source file.
  enum SourceType : std::int32_t {
    Source1 = 1, Source2 = 2, Source4 = 4, Source8 = 8, Source12 = 12, Source14 = 14, Source16 = 16,
    Source24 = 24, Source32 = 32, Source64 = 64, SourceFloat = -32, SourceDouble = -64
  };
  // Two bits: bit 0 read-only, bit 1 lock.
  enum Mode : std::int32_t { Write = 0, ReadOnly = 1, WriteLock = 2, ReadOnlyLock = 3 };
  // What ChangeBits does to the levels: 0 keeps them, 1 maps them with the
  // samples' scale and offset so that the display is unchanged.
  enum ChangeBitsLevel : std::int32_t { KeepLevel = 0, ScaleLevel = 1 };

  CImage();
  ~CImage() override;
  CImage(const std::shared_ptr<CVmManager> &manager, DataType type, int width, int height, int planes,
         double bscale, double bzero, bool isSigned, const std::shared_ptr<lumora::Progress> &progress);
  CImage(const CImage &source, const std::shared_ptr<lumora::Progress> &progress);
  CImage(const CImage &) = delete;
  CImage &operator=(const CImage &) = delete;

  bool AllocImage(const std::shared_ptr<CVmManager> &manager, const std::shared_ptr<lumora::Progress> &progress);
  bool Create(const CImage &source, const std::shared_ptr<lumora::Progress> &progress);
  bool CopyImage(const CImage &source, const std::shared_ptr<lumora::Progress> &progress);
  std::unique_ptr<CImage> Clone(const std::shared_ptr<lumora::Progress> &progress) const;
  std::unique_ptr<CImage> CloneWithoutImage(const std::shared_ptr<lumora::Progress> &progress) const;
  bool ChangeSize(int width, int height, const std::shared_ptr<lumora::Progress> &progress);
  bool ChangePlanes(int planes, const std::shared_ptr<lumora::Progress> &progress);
  bool ChangeBits(DataType type, bool isSigned, ChangeBitsLevel level,
                  const std::shared_ptr<lumora::Progress> &progress);
  bool Fill(int plane, double value);
  bool SetLevelMin(int plane, double value);
  bool SetLevelMax(int plane, double value);
  bool SetLevel(int plane, double min, double max);
  void Swap(CImage &other);
  void Empty();
  bool IsEmpty() const { return !Store; }
  bool AttachDIB(const std::shared_ptr<CVmManager> &manager, HDIB dib, HWND hwnd, const wchar_t *caption);

  std::tuple<double, double> GetMinMax(int plane) const;
  void GetMinMax(int plane, double *min, double *max) const {
    auto [lo, hi] = GetMinMax(plane);
    if (min) *min = lo;
    if (max) *max = hi;
  }
  std::tuple<double, double, double> GetMinMaxAvr(int plane) const;
  // (minimum, maximum, mode); the mode is the centre of the fullest of `bins`
  // equal bins between minimum and maximum, zero samples left out when `skipZero`.
  std::tuple<double, double, double> GetMinMaxMode(int plane, int bins, int skipZero) const;
  std::optional<std::tuple<int, int>> GetHistogramCull() const;
  bool GetHistogramCull(int *x, int *y) const {
    if (!x || !y) return false;
    auto cull = GetHistogramCull();
    if (!cull) return false;
    std::tie(*x, *y) = *cull;
    return true;
  }
  void SetHistogramCull(int x, int y) { HistogramCullStep = std::make_tuple(x, y); }

  // Physical value: sample * Bscale + Bzero, whatever the type.
  double GetPixel(int x, int y, int plane) const;
  double GetPixel(const unsigned char *p) const;
  double ApplyBaseScaleOffset(double sample) const { return sample * Bscale + Bzero; }

  // Geometry and type.
  DataType GetDataType() const { return BitsPixel; }
  void SetDataType(DataType type) { BitsPixel = type; }
  bool IsSigned() const { return Signed; }
  void SetSigned(bool s) { Signed = s; }
  int GetDimension() const { return Dimension; }
  bool IsColor() const { return Dimension > 2; }
  const int *GetAxes() const { return Axes; }
  int GetWidth() const { return Axes[0]; }
  int GetHeight() const { return Axes[1]; }
  int GetPlanes() const { return Axes[2]; }
  void SetWidth(int w) { Axes[0] = w; }
  void SetHeight(int h) { Axes[1] = h; }
  void SetPlanes(int n) { Axes[2] = n; Dimension = n < 2 ? 2 : 3; }
  double GetBscale() const { return Bscale; }
  double GetBzero() const { return Bzero; }
  void SetBscale(double v) { Bscale = v; }
  void SetBzero(double v) { Bzero = v; }
  long long GetPixelCount() const { return static_cast<long long>(Axes[0]) * Axes[1] * Axes[2]; }
  int GetBytesPixel() const;
  long long GetImageSize() const { return static_cast<long long>(Axes[0]) * Axes[1] * Axes[2] * GetBytesPixel(); }

  // Levels.
  const std::vector<double> &GetLevelMin() const { return LevelMin; }
  const std::vector<double> &GetLevelMax() const { return LevelMax; }
  const std::vector<double> &GetLevelRange() const { return LevelRange; }
  // Raises the invalid-argument exception unless the image has `plane`, with its levels.
  void CheckPlane(int plane) const {
    const auto p = static_cast<std::size_t>(plane);
    if (plane < 0 || plane >= Axes[2] || p >= LevelMin.size() || p >= LevelMax.size() || p >= LevelRange.size())
      AfxThrowInvalidArgException();
  }
  double GetLevelMin(int plane) const {
    CheckPlane(plane);
    return LevelMin[static_cast<std::size_t>(plane)];
  }
  double GetLevelMax(int plane) const {
    CheckPlane(plane);
    return LevelMax[static_cast<std::size_t>(plane)];
  }
  double GetLevelRange(int plane) const {
    CheckPlane(plane);
    return LevelRange[static_cast<std::size_t>(plane)];
  }
  std::vector<double> &LevelMinRef() { return LevelMin; }
  std::vector<double> &LevelMaxRef() { return LevelMax; }
  std::vector<double> &LevelRangeRef() { return LevelRange; }
  bool HasOwnLevel() const { return OwnLevel; }
  void SetOwnLevel(bool own) { OwnLevel = own; }

  // What the source file was.
  bool IsSaveableFormat() const { return SaveableFormat; }
  void SetSaveableFormat(bool b) { SaveableFormat = b; }
  bool IsSaveableFile() const { return SaveableFile; }
  void SetSaveableFile(bool b) { SaveableFile = b; }
  const std::wstring &GetOrgFileName() const { return OrgFileName; }
  void SetOrgFileName(const CString &s) { OrgFileName = s.str(); }
  void SetOrgFileName(const std::wstring &s) { OrgFileName = s; }
  void SetOrgFileName(const wchar_t *s) { OrgFileName = s ? s : L""; }
  const std::wstring &GetOrgFileFormat() const { return OrgFileFormat; }
  void SetOrgFileFormat(const CString &s) { OrgFileFormat = s.str(); }
  void SetOrgFileFormat(const std::wstring &s) { OrgFileFormat = s; }
  void SetOrgFileFormat(const wchar_t *s) { OrgFileFormat = s ? s : L""; }
  SourceType GetOrgBitsPixel() const { return OrgBitsPixel; }
  void SetOrgBitsPixel(SourceType t) { OrgBitsPixel = t; }
  int GetOrgPlanes() const { return OrgPlanes; }
  void SetOrgPlanes(int n) { OrgPlanes = n; }
  bool IsOrgBayerImage() const { return OrgBayerImage; }
  void SetOrgBayerImage(bool b) { OrgBayerImage = b; }
  bool IsOrgHoneyCombImage() const { return OrgHoneyCombImage; }
  void SetOrgHoneyCombImage(bool b) { OrgHoneyCombImage = b; }
  bool IsOrgDevelopmentImage() const { return OrgDevelopmentImage; }
  void SetOrgDevelopmentImage(bool b) { OrgDevelopmentImage = b; }
  int GetOrgWidth() const { return OrgWidth; }
  int GetOrgHeight() const { return OrgHeight; }
  void SetOrgSize(int w, int h) { OrgWidth = w; OrgHeight = h; }
  bool IsBayerImage() const { return BayerImage; }
  void SetBayerImage(bool b) { BayerImage = b; }
  bool IsHoneyCombImage() const { return HoneyCombImage; }
  void SetHoneyCombImage(bool b) { HoneyCombImage = b; }
  int GetRawImageBits() const { return RawImageBits; }
  void SetRawImageBits(int bits) { RawImageBits = bits; }
  bool IsDevelopmentImage() const { return DevelopmentImage; }
  void SetDevelopmentImage(bool b) { DevelopmentImage = b; }
  CHeader *GetHeader() { return Header.get(); }
  const CHeader *GetHeader() const { return Header.get(); }
  bool IsCcd() const { return !Header || Header->GetCameraModel()[0] == L'\0'; }
  std::vector<int> &GetHistogramCullXRef() { return HistogramCullX; }
  std::vector<int> &GetHistogramCullYRef() { return HistogramCullY; }
  bool IsHistogramCullParam() const { return !HistogramCullX.empty() && !HistogramCullY.empty(); }

  // The store.
  unsigned char *GetImageAdr(long long x, long long y, long long plane, bool readOnly, bool lock,
                             CVmImage::AddressHandle *handle) const {
    if (!Store) throw lumora::CLumoraImageException("the image has no pixels");
    return Store->GetImageAdr(x, y, plane, readOnly, lock, handle);
  }
  int GetAllocationPolicy() const;
  long long GetLinesPerBlock() const { return Store ? Store->GetLinesPerBlock() : 0; }
  long long GetBlockCount() const { return Store ? Store->GetBlockCount() : 0; }
  std::tuple<long long, long long> GetBlockShape() const {
    return Store ? Store->GetBlockShape() : std::tuple<long long, long long>{0, 0};
  }
  bool Unlock(const CVmImage::AddressHandle &handle) const { return Store ? Store->Unlock(handle) : false; }
  void UnlockAll() const { if (Store) Store->UnlockAll(); }
  std::shared_ptr<CVmManager> VmManager() const { return Store ? Store->VmManager() : nullptr; }
  bool IsOnMemory() const { return !Store || Store->IsOnMemory(); }
  CVmImage *GetVmImage() const { return Store.get(); }

protected:
  void CopyAttributes(const CImage &source);
  void ResizeLevels(int planes);

  DataType BitsPixel = Float32;
  bool Signed = true;
  std::int32_t Dimension = 2;
  std::int32_t Axes[3] = {0, 0, 0};
  double Bscale = 1.0;
  double Bzero = 0.0;
  std::unique_ptr<CVmImage> Store;
  std::vector<double> LevelMin;
  std::vector<double> LevelMax;
  std::vector<double> LevelRange;
  bool OwnLevel = false;
  bool SaveableFormat = false;
  bool SaveableFile = false;
  std::wstring OrgFileName;
  std::wstring OrgFileFormat;
  SourceType OrgBitsPixel = SourceFloat;
  std::int32_t OrgPlanes = 0;
  bool OrgBayerImage = false;
  bool OrgHoneyCombImage = false;
  bool OrgDevelopmentImage = false;
  std::int32_t OrgWidth = 0;
  std::int32_t OrgHeight = 0;
  bool BayerImage = false;
  bool HoneyCombImage = false;
  std::int32_t RawImageBits = 0;
  bool DevelopmentImage = false;
  std::unique_ptr<CHeader> Header;
  std::optional<std::tuple<int, int>> HistogramCullStep;
  std::vector<int> HistogramCullX;
  std::vector<int> HistogramCullY;
};
