// The image base: geometry, sample type, levels and attributes around the store.
// Operations that make a new store build it completely before they change
// anything, so a failure (an exception from the store) leaves the image as it was.
#include "sibling/Image.h"

#include <cstring>
#include <utility>

#include "sibling/ProgressStepsInternal.h"
#include "sibling/SamplesInternal.h"

namespace {

// Sample bits of a data type as the store counts them; 0 for an unknown type.
long long StoreBits(CImage::DataType type) {
  switch (type) {
    case CImage::UInt8: return 8;
    case CImage::Int16: return 16;
    case CImage::Int32: return 32;
    case CImage::Float32: return 32;
    case CImage::Float64: return 64;
  }
  return 0;
}

// Default display levels of a new plane: the full range of an 8-bit sample,
// 0..65535 for the wider integers (camera data), 0..1 for floating point.
double DefaultLevelMax(CImage::DataType type) {
  switch (type) {
    case CImage::UInt8: return 255.0;
    case CImage::Int16:
    case CImage::Int32: return 65535.0;
    default: return 1.0;
  }
}

std::unique_ptr<CVmImage> NewStore(const std::shared_ptr<CVmManager> &manager, CImage::DataType type, int width,
                                   int height, int planes, const std::shared_ptr<lumora::Progress> &progress) {
  if (!manager) throw lumora::CVmManagerHandleDeletedError();
  const long long bits = StoreBits(type);
  if (bits == 0) throw lumora::CLumoraImageException("unknown data type");
  return std::make_unique<CVmImage>(manager, bits, width, height, planes, progress);
}

}  // namespace

CImage::CImage() = default;

CImage::~CImage() = default;

CImage::CImage(const std::shared_ptr<CVmManager> &manager, DataType type, int width, int height, int planes,
               double bscale, double bzero, bool isSigned, const std::shared_ptr<lumora::Progress> &progress)
    : BitsPixel(type), Signed(isSigned), Bscale(bscale), Bzero(bzero) {
  Store = NewStore(manager, type, width, height, planes, progress);
  SetWidth(width);
  SetHeight(height);
  SetPlanes(planes);
  ResizeLevels(planes);
}

CImage::CImage(const CImage &source, const std::shared_ptr<lumora::Progress> &progress) {
  if (source.Store) Store = std::make_unique<CVmImage>(*source.Store, progress);
  CopyAttributes(source);
}

void CImage::CopyAttributes(const CImage &source) {
  if (&source == this) return;
  BitsPixel = source.BitsPixel;
  Signed = source.Signed;
  Dimension = source.Dimension;
  std::memcpy(Axes, source.Axes, sizeof(Axes));
  Bscale = source.Bscale;
  Bzero = source.Bzero;
  LevelMin = source.LevelMin;
  LevelMax = source.LevelMax;
  LevelRange = source.LevelRange;
  OwnLevel = source.OwnLevel;
  SaveableFormat = source.SaveableFormat;
  SaveableFile = source.SaveableFile;
  OrgFileName = source.OrgFileName;
  OrgFileFormat = source.OrgFileFormat;
  OrgBitsPixel = source.OrgBitsPixel;
  OrgPlanes = source.OrgPlanes;
  OrgBayerImage = source.OrgBayerImage;
  OrgHoneyCombImage = source.OrgHoneyCombImage;
  OrgDevelopmentImage = source.OrgDevelopmentImage;
  OrgWidth = source.OrgWidth;
  OrgHeight = source.OrgHeight;
  BayerImage = source.BayerImage;
  HoneyCombImage = source.HoneyCombImage;
  RawImageBits = source.RawImageBits;
  DevelopmentImage = source.DevelopmentImage;
  Header = source.Header ? std::make_unique<CHeader>(*source.Header) : nullptr;
  HistogramCullStep = source.HistogramCullStep;
  HistogramCullX = source.HistogramCullX;
  HistogramCullY = source.HistogramCullY;
}

void CImage::ResizeLevels(int planes) {
  const std::size_t count = planes > 0 ? static_cast<std::size_t>(planes) : 0;
  const double max = DefaultLevelMax(BitsPixel);
  LevelMin.resize(count, 0.0);
  LevelMax.resize(count, max);
  LevelRange.resize(count, max);
}

bool CImage::AllocImage(const std::shared_ptr<CVmManager> &manager,
                        const std::shared_ptr<lumora::Progress> &progress) {
  // A two-dimensional image without a plane count has one plane.
  const int planes = Axes[2] < 1 && Dimension <= 2 ? 1 : Axes[2];
  if (!manager || StoreBits(BitsPixel) == 0 || Axes[0] < 0 || Axes[1] < 0 || planes < 1) return false;
  Store = NewStore(manager, BitsPixel, Axes[0], Axes[1], planes, progress);
  SetPlanes(planes);
  ResizeLevels(planes);
  return true;
}

// An empty source gives nothing to create from: false, and this image is unchanged.
bool CImage::Create(const CImage &source, const std::shared_ptr<lumora::Progress> &progress) {
  if (!source.Store) return false;
  std::unique_ptr<CVmImage> store =
      NewStore(source.VmManager(), source.BitsPixel, source.Axes[0], source.Axes[1], source.Axes[2], progress);
  CopyAttributes(source);
  Store = std::move(store);
  return true;
}

// A copy of an empty source is an empty image with the source's attributes.
bool CImage::CopyImage(const CImage &source, const std::shared_ptr<lumora::Progress> &progress) {
  if (&source == this) return true;
  std::unique_ptr<CVmImage> store = source.Store ? std::make_unique<CVmImage>(*source.Store, progress) : nullptr;
  CopyAttributes(source);
  Store = std::move(store);
  return true;
}

std::unique_ptr<CImage> CImage::Clone(const std::shared_ptr<lumora::Progress> &progress) const {
  return std::make_unique<CImage>(*this, progress);
}

std::unique_ptr<CImage> CImage::CloneWithoutImage(const std::shared_ptr<lumora::Progress> &progress) const {
  auto image = std::make_unique<CImage>();
  if (Store)
    image->Create(*this, progress);
  else
    image->CopyAttributes(*this);
  return image;
}

// The new store starts as zeros; callers rewrite every pixel.
bool CImage::ChangeSize(int width, int height, const std::shared_ptr<lumora::Progress> &progress) {
  if (!Store || width < 0 || height < 0) return false;
  Store = NewStore(VmManager(), BitsPixel, width, height, GetPlanes(), progress);
  SetWidth(width);
  SetHeight(height);
  return true;
}

// Planes up to the new count are kept; planes added are copies of plane 0,
// with plane 0's levels.
bool CImage::ChangePlanes(int planes, const std::shared_ptr<lumora::Progress> &progress) {
  if (!Store || planes < 1) return false;
  const int oldPlanes = GetPlanes();
  if (planes != oldPlanes) {
    std::unique_ptr<CVmImage> store = NewStore(VmManager(), BitsPixel, GetWidth(), GetHeight(), planes, progress);
    const auto lineBytes = static_cast<std::size_t>(Store->GetBytesPerLine());
    const int height = GetHeight();
    store_internal::ProgressSteps steps(progress, static_cast<long long>(planes) * height);
    for (int p = 0; p < planes; ++p) {
      const int from = p < oldPlanes ? p : 0;
      for (int y = 0; y < height; ++y) {
        const unsigned char *source = Store->GetImageAdr(0, y, from, true, false, nullptr);
        std::memcpy(store->GetImageAdr(0, y, p, false, false, nullptr), source, lineBytes);
        steps.Step(static_cast<long long>(p) * height + y);
      }
    }
    Store = std::move(store);
  }
  const double min0 = LevelMin.empty() ? 0.0 : LevelMin[0];
  const double max0 = LevelMax.empty() ? DefaultLevelMax(BitsPixel) : LevelMax[0];
  const auto count = static_cast<std::size_t>(planes);
  LevelMin.resize(count, min0);
  LevelMax.resize(count, max0);
  LevelRange.resize(count, max0 - min0);
  SetPlanes(planes);
  return true;
}

// With ScaleLevel the samples become physical values (sample * Bscale + Bzero),
// Bscale and Bzero become 1 and 0, and the levels, which are in raw units, are
// mapped the same way so that the display does not change. With KeepLevel the
// raw numbers are converted as they are and scale, offset and levels stay.
bool CImage::ChangeBits(DataType type, bool isSigned, ChangeBitsLevel level,
                        const std::shared_ptr<lumora::Progress> &progress) {
  if (!Store || StoreBits(type) == 0) return false;
  const bool scale = level == ScaleLevel && (Bscale != 1.0 || Bzero != 0.0);
  const bool sameSamples = type == BitsPixel && (type != Int32 || isSigned == Signed);
  if (sameSamples && !scale) {
    Signed = isSigned;
    return true;
  }

  const int width = GetWidth();
  const int height = GetHeight();
  const int planes = GetPlanes();
  std::unique_ptr<CVmImage> store = NewStore(VmManager(), type, width, height, planes, progress);
  std::vector<double> line(static_cast<std::size_t>(width));
  store_internal::ProgressSteps steps(progress, static_cast<long long>(planes) * height);
  for (int p = 0; p < planes; ++p) {
    for (int y = 0; y < height; ++y) {
      store_internal::ReadSamples(Store->GetImageAdr(0, y, p, true, false, nullptr), width, BitsPixel, Signed,
                                  line.data());
      if (scale)
        for (double &v : line) v = v * Bscale + Bzero;
      store_internal::WriteSamples(line.data(), width, type, isSigned,
                                   store->GetImageAdr(0, y, p, false, false, nullptr));
      steps.Step(static_cast<long long>(p) * height + y);
    }
  }

  if (scale) {
    for (std::size_t p = 0; p < LevelMin.size() && p < LevelMax.size() && p < LevelRange.size(); ++p) {
      LevelMin[p] = LevelMin[p] * Bscale + Bzero;
      LevelMax[p] = LevelMax[p] * Bscale + Bzero;
      LevelRange[p] = LevelMax[p] - LevelMin[p];
    }
    Bscale = 1.0;
    Bzero = 0.0;
  }
  BitsPixel = type;
  Signed = isSigned;
  Store = std::move(store);
  return true;
}

// `value` is a raw sample value, converted to the data type once.
bool CImage::Fill(int plane, double value) {
  if (!Store || plane < 0 || plane >= GetPlanes()) return false;
  const int width = GetWidth();
  if (width == 0) return true;
  const std::vector<double> values(static_cast<std::size_t>(width), value);
  std::vector<unsigned char> line(static_cast<std::size_t>(Store->GetBytesPerLine()));
  store_internal::WriteSamples(values.data(), width, BitsPixel, Signed, line.data());
  for (int y = 0; y < GetHeight(); ++y)
    std::memcpy(Store->GetImageAdr(0, y, plane, false, false, nullptr), line.data(), line.size());
  return true;
}

bool CImage::SetLevelMin(int plane, double value) {
  if (plane < 0 || static_cast<std::size_t>(plane) >= LevelMin.size()) return false;
  return SetLevel(plane, value, LevelMax[static_cast<std::size_t>(plane)]);
}

bool CImage::SetLevelMax(int plane, double value) {
  if (plane < 0 || static_cast<std::size_t>(plane) >= LevelMin.size()) return false;
  return SetLevel(plane, LevelMin[static_cast<std::size_t>(plane)], value);
}

bool CImage::SetLevel(int plane, double min, double max) {
  const auto p = static_cast<std::size_t>(plane);
  if (plane < 0 || p >= LevelMin.size() || p >= LevelMax.size() || p >= LevelRange.size()) return false;
  LevelMin[p] = min;
  LevelMax[p] = max;
  LevelRange[p] = max - min;
  return true;
}

void CImage::Swap(CImage &other) {
  using std::swap;
  swap(BitsPixel, other.BitsPixel);
  swap(Signed, other.Signed);
  swap(Dimension, other.Dimension);
  swap(Axes, other.Axes);
  swap(Bscale, other.Bscale);
  swap(Bzero, other.Bzero);
  swap(Store, other.Store);
  swap(LevelMin, other.LevelMin);
  swap(LevelMax, other.LevelMax);
  swap(LevelRange, other.LevelRange);
  swap(OwnLevel, other.OwnLevel);
  swap(SaveableFormat, other.SaveableFormat);
  swap(SaveableFile, other.SaveableFile);
  swap(OrgFileName, other.OrgFileName);
  swap(OrgFileFormat, other.OrgFileFormat);
  swap(OrgBitsPixel, other.OrgBitsPixel);
  swap(OrgPlanes, other.OrgPlanes);
  swap(OrgBayerImage, other.OrgBayerImage);
  swap(OrgHoneyCombImage, other.OrgHoneyCombImage);
  swap(OrgDevelopmentImage, other.OrgDevelopmentImage);
  swap(OrgWidth, other.OrgWidth);
  swap(OrgHeight, other.OrgHeight);
  swap(BayerImage, other.BayerImage);
  swap(HoneyCombImage, other.HoneyCombImage);
  swap(RawImageBits, other.RawImageBits);
  swap(DevelopmentImage, other.DevelopmentImage);
  swap(Header, other.Header);
  swap(HistogramCullStep, other.HistogramCullStep);
  swap(HistogramCullX, other.HistogramCullX);
  swap(HistogramCullY, other.HistogramCullY);
}

void CImage::Empty() { Store.reset(); }

std::optional<std::tuple<int, int>> CImage::GetHistogramCull() const { return HistogramCullStep; }

int CImage::GetBytesPixel() const {
  switch (BitsPixel) {
    case UInt8: return 1;
    case Int16: return 2;
    case Int32:
    case Float32: return 4;
    case Float64: return 8;
  }
  return 0;
}

int CImage::GetAllocationPolicy() const {
  if (!Store) return 0;
  std::shared_ptr<CVmManager> manager = Store->VmManager();
  return manager ? manager->GetAllocationPolicy() : 0;
}
