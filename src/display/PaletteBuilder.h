// The 256-colour palette of an 8-bit colour bitmap, built from the image's own
// colours. Colours fall into 32768 cells of 5 bits per channel. The cells are
// sorted into eight lightness classes, each class gets a share of 240 slots (more
// for the mid-tones, and more for classes with many pixels, but never more slots
// than cells), the most frequent cells of each class take its slots, and the
// last 16 slots (and any a class could not fill) go to the cells farthest from
// the palette so far. Every pixel then takes the slot of its cell, or of the
// nearest palette colour. An image with at most 256 distinct cells gets every
// cell exactly, at the cell's centre colour.
#pragma once
#include <memory>
#include "platform/Bitmap.h"

namespace qorimg {

class PaletteBuilder {
public:
  static constexpr int kCells = 32768;
  static constexpr int kSlots = 256;

  // Allocates the cell table; throws std::bad_alloc.
  PaletteBuilder();

  static int CellOf(unsigned char r, unsigned char g, unsigned char b) {
    return (r >> 3) << 10 | (g >> 3) << 5 | (b >> 3);
  }
  // Counts one pixel of `cell`; a cell stops at 32000.
  void Count(int cell) {
    if (Cells[cell] < kMaxCount) ++Cells[cell];
  }
  // Fills the 256 entries of `palette` (slots no cell took stay black) and
  // leaves the slot of every counted cell for SlotOf.
  void Build(RGBQUAD *palette);
  unsigned char SlotOf(int cell) const { return static_cast<unsigned char>(-Cells[cell]); }

private:
  static constexpr int kMaxCount = 32000;
  static constexpr int kMaxDistance = 65536;

  struct Entry {
    bool used;
    int r, g, b;
  };

  // Counts, then distances, and from the end a cell's slot as its negative.
  // Positive: an occupied cell that holds no slot yet ("free"); a cell marked with
  // slot 0 reads 0 like an empty one, which is harmless as no pixel lies in an
  // empty cell.
  std::unique_ptr<int[]> Cells;
  Entry Palette[kSlots] = {};

  // Puts the centre colour of `cell` into `slot` and marks the cell.
  void Take(int cell, int slot, RGBQUAD *palette);
};

}  // namespace qorimg
