// The frame-edit pipelines against plain references, on odd strides and
// offsets. Tolerance 0: copies and pastes move samples unchanged. Crop, the
// thresholds and the level cut run through their operators' route tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "KernelTestSupport.h"
#include "kernels/FrameEdits.h"

namespace qorimg::kernels::test {
namespace {

struct Rect {
  int start_x, end_x, start_y, end_y, shift_x, shift_y;
};

// Rectangles of a 23 x 9 target, read from a 30 x 14 input: whole target,
// single corner samples, an edge column, the last row, an inner block.
const Rect kPasteRects[] = {{0, 23, 0, 9, 5, 3},   {0, 1, 0, 1, 0, 0},   {22, 23, 8, 9, 29, 13},
                            {22, 23, 2, 9, 29, 0}, {4, 19, 8, 9, 0, 13}, {3, 10, 2, 7, 3, 2},
                            {1, 22, 1, 8, 8, 6}};
constexpr int kTargetWidth = 23, kTargetHeight = 9, kInputWidth = 30, kInputHeight = 14;

template <typename T>
Grid<T> ReferencePaste(const Grid<T> &input, const Rect &r, Grid<T> paste) {
  for (int y = r.start_y; y < r.end_y; ++y)
    for (int x = r.start_x; x < r.end_x; ++x) paste.at(x, y) = input.at(x - r.start_x + r.shift_x, y - r.start_y + r.shift_y);
  return paste;
}

template <typename T, typename Pipeline>
void ExpectPasteMatchesReference(Pipeline pipeline) {
  const Grid<T> input = CountingGrid<T>(kInputWidth, kInputHeight, T(1));
  for (const Rect &r : kPasteRects) {
    // The target's own samples must survive outside the rectangle.
    const Grid<T> before = CountingGrid<T>(kTargetWidth, kTargetHeight, T(200));
    Grid<T> paste = before;
    ASSERT_EQ(pipeline(input.input(), r.start_x, r.end_x, r.start_y, r.end_y, r.shift_x, r.shift_y, paste.buffer()), 0);
    EXPECT_EQ(paste.samples, ReferencePaste(input, r, before).samples)
        << "rectangle x " << r.start_x << ".." << r.end_x << ", y " << r.start_y << ".." << r.end_y;
  }
}

TEST(KernelFrameEdits, PastesWriteOnlyTheirRectangle) {
  ExpectPasteMatchesReference<std::uint8_t>(paste_uint8);
  ExpectPasteMatchesReference<std::uint32_t>(paste_uint32);
  ExpectPasteMatchesReference<float>(paste_float);
}

TEST(KernelFrameEdits, EmptyOrInvertedRectanglePastesNothingButFill) {
  const Plane input = SamplePlane(kInputWidth, kInputHeight, 6);
  // The shift of the last one points past the input: nothing may be read.
  for (Rect r : {Rect{5, 5, 1, 8, 0, 0}, Rect{9, 4, 1, 8, 0, 0}, Rect{2, 8, 6, 6, 0, 0}, Rect{3, 3, 2, 5, 30, 0}}) {
    Plane paste(kTargetWidth, kTargetHeight, 42.0f);
    EXPECT_EQ(paste_float(input.input(), r.start_x, r.end_x, r.start_y, r.end_y, r.shift_x, r.shift_y, paste.buffer()), 0);
    EXPECT_TRUE(SameSamples(paste, Plane(kTargetWidth, kTargetHeight, 42.0f)));
    EXPECT_EQ(paste_with_fill_float(input.input(), -3.5f, r.start_x, r.end_x, r.start_y, r.end_y, r.shift_x, r.shift_y,
                                    paste.buffer()),
              0);
    EXPECT_TRUE(SameSamples(paste, Plane(kTargetWidth, kTargetHeight, -3.5f)));
  }
}

// Interleaved bytes with padded rows: dimension 0 the channel, 1 x, 2 y.
struct Interleaved {
  int channels, width, height, rowBytes;
  std::vector<std::uint8_t> bytes;
  Interleaved(int c, int w, int h, int padding, std::uint8_t first)
      : channels(c), width(w), height(h), rowBytes(c * w + padding), bytes(std::size_t(rowBytes) * h) {
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = std::uint8_t(first + i * 13u);
  }
  std::uint8_t &at(int c, int x, int y) { return bytes[std::size_t(y) * rowBytes + x * channels + c]; }
  KernelBuffer<std::uint8_t, 3> buffer() { return InterleavedBuffer(bytes.data(), channels, width, height, rowBytes); }
};

TEST(KernelFrameEdits, Paste3dCopiesAllChannelsOfTheRectangle) {
  for (int channels : {4, 3, 1}) {  // 4 is the packed BGRX case with its own schedule
    Interleaved input(channels, kInputWidth, kInputHeight, 8, 1);
    for (const Rect &r : kPasteRects) {
      const Interleaved before(channels, kTargetWidth, kTargetHeight, 4, 100);
      Interleaved paste = before;
      Interleaved expected = before;
      for (int y = r.start_y; y < r.end_y; ++y)
        for (int x = r.start_x; x < r.end_x; ++x)
          for (int c = 0; c < channels; ++c) expected.at(c, x, y) = input.at(c, x - r.start_x + r.shift_x, y - r.start_y + r.shift_y);
      ASSERT_EQ(paste3d_uint8(input.buffer(), r.start_x, r.end_x, r.start_y, r.end_y, r.shift_x, r.shift_y, paste.buffer()), 0);
      // Padding bytes are compared too: they must stay as they were.
      EXPECT_EQ(paste.bytes, expected.bytes) << channels << " channels, rectangle x " << r.start_x << ".." << r.end_x;
    }
  }
}

TEST(KernelFrameEdits, PasteWithFillFillsOutsideTheRectangle) {
  const Plane input = SamplePlane(kInputWidth, kInputHeight, 7);
  for (const Rect &r : kPasteRects) {
    Plane paste(kTargetWidth, kTargetHeight, 42.0f);
    ASSERT_EQ(paste_with_fill_float(input.input(), -3.5f, r.start_x, r.end_x, r.start_y, r.end_y, r.shift_x, r.shift_y,
                                    paste.buffer()),
              0);
    EXPECT_TRUE(SameSamples(paste, ReferencePaste(input, r, Plane(kTargetWidth, kTargetHeight, -3.5f))))
        << "rectangle x " << r.start_x << ".." << r.end_x << ", y " << r.start_y << ".." << r.end_y;
  }
}

Plane ReferencePasteRect(const Plane &input, const Rect &r, int width, int height) {
  Plane output(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      output.at(x, y) = input.at(std::clamp(x + r.shift_x, r.start_x, r.end_x - 1), std::clamp(y + r.shift_y, r.start_y, r.end_y - 1));
  return output;
}

TEST(KernelFrameEdits, PasteRectClampsEveryOutputSampleIntoTheRectangle) {
  const Plane input = SamplePlane(kInputWidth, kInputHeight, 8);
  // The last one includes a lift by 3 lines (the image edits' LiftUp): the last line repeats.
  const Rect rects[] = {{0, 30, 0, 14, 0, 0}, {4, 11, 2, 6, -3, 5}, {29, 30, 13, 14, 0, 0}, {0, 30, 3, 14, 7, 3}};
  for (const Rect &r : rects)
    for (PlaneSize size : kOddSizes) {
      Plane output(size.width, size.height);
      ASSERT_EQ(paste_rect_float(input.input(), r.start_x, r.end_x, r.start_y, r.end_y, r.shift_x, r.shift_y, output.buffer()), 0);
      EXPECT_TRUE(SameSamples(output, ReferencePasteRect(input, r, size.width, size.height)))
          << "rectangle x " << r.start_x << ".." << r.end_x << " on " << size.width << "x" << size.height;
    }
}

TEST(KernelFrameEdits, CopyMovesSamplesUnchanged) {
  for (PlaneSize size : kOddSizes) {
    const Plane input = SamplePlane(size.width, size.height, 10);
    Plane copy(size.width, size.height);
    ASSERT_EQ(copy_float(input.input(), copy.buffer()), 0);
    EXPECT_TRUE(SameSamples(copy, input)) << size.width << "x" << size.height;
  }
}

}  // namespace
}  // namespace qorimg::kernels::test
