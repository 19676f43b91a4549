// The palette builder of 8-bit colour bitmaps, in seven steps.
#include "display/PaletteBuilder.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace qorimg {
namespace {

constexpr int kClasses = 8;
// Slots per lightness class before scaling, lightest first: the mid-tones get most.
constexpr double kClassWeight[kClasses] = {20, 28, 37, 48, 45, 32, 20, 10};
constexpr double kClassSlots = 240.0;

int Centre(int cell, int shift) { return 8 * ((cell >> shift) & 31) + 4; }

// (255 - L) >> 5 with L = (max + min) / 2 of the centre colour: 0 the lightest.
int ClassOf(int cell) {
  const int r = Centre(cell, 10), g = Centre(cell, 5), b = Centre(cell, 0);
  const int lightness = (std::max({r, g, b}) + std::min({r, g, b})) / 2;
  return (255 - lightness) >> 5;
}

int Distance2(int cell, int r, int g, int b) {
  const int dr = Centre(cell, 10) - r, dg = Centre(cell, 5) - g, db = Centre(cell, 0) - b;
  return dr * dr + dg * dg + db * db;
}

}  // namespace

PaletteBuilder::PaletteBuilder() : Cells(new int[kCells]()) {}

void PaletteBuilder::Take(int cell, int slot, RGBQUAD *palette) {
  const int r = Centre(cell, 10), g = Centre(cell, 5), b = Centre(cell, 0);
  Palette[slot] = Entry{true, r, g, b};
  palette[slot] = RGBQUAD{static_cast<BYTE>(b), static_cast<BYTE>(g), static_cast<BYTE>(r), 0};
  Cells[cell] = -slot;
}

void PaletteBuilder::Build(RGBQUAD *palette) {
  for (int s = 0; s < kSlots; ++s) {
    Palette[s] = Entry{false, 0, 0, 0};
    palette[s] = RGBQUAD{0, 0, 0, 0};
  }

  // Step 2: the occupied cells of each class, their pixel count and number.
  std::vector<int> members[kClasses];
  double pixels[kClasses] = {};
  for (int c = 0; c < kCells; ++c) {
    if (Cells[c] <= 0) continue;
    const int k = ClassOf(c);
    members[k].push_back(c);
    pixels[k] += Cells[c];
  }

  // Step 3: each class's share of the 240 slots, and its first slot.
  double total = 0.0;  // sum of the square roots of the pixel counts
  for (int k = 0; k < kClasses; ++k) total += std::sqrt(pixels[k]);
  if (!(total > 0.0)) return;  // no pixel at all
  double share[kClasses], sum = 0.0;
  for (int k = 0; k < kClasses; ++k) {
    double s = kClassWeight[k] * std::sqrt(pixels[k]) / total * 8.0;
    s = std::max(s, 8.0);
    s = std::min(s, static_cast<double>(members[k].size()));
    s = std::min(s, 1.5 * kClassWeight[k]);
    share[k] = s;
    sum += s;
  }
  int first[kClasses + 1];
  double running = 0.0;
  for (int k = 0; k <= kClasses; ++k) {
    first[k] = std::min(static_cast<int>(running + 0.5), kSlots);
    if (k < kClasses) running += share[k] * (kClassSlots / sum);
  }

  // Step 4: each class's slots take its most frequent free cells (the later
  // cell on a tie), at the cell's centre colour.
  for (int k = 0; k < kClasses; ++k)
    for (int slot = first[k]; slot < first[k + 1]; ++slot) {
      int best = -1;
      for (int c : members[k])
        if (Cells[c] > 0 && (best < 0 || Cells[c] >= Cells[best])) best = c;
      if (best < 0) break;  // the class has no free cell left; the slot stays open
      Take(best, slot, palette);
    }

  // Step 5: free cells hold their squared distance to the nearest entry so far.
  std::vector<int> free;
  for (const auto &list : members)
    for (int c : list)
      if (Cells[c] > 0) free.push_back(c);
  std::sort(free.begin(), free.end());
  for (int c : free) {
    int d = kMaxDistance;
    for (const Entry &e : Palette)
      if (e.used) d = std::min(d, Distance2(c, e.r, e.g, e.b));
    Cells[c] = d;
  }

  // Step 6: the open slots (the last 16, and any a class could not fill) take
  // the farthest free cell, one after the other.
  for (int slot = 0; slot < kSlots; ++slot) {
    if (Palette[slot].used) continue;
    int best = -1;
    for (int c : free)
      if (Cells[c] > 0 && (best < 0 || Cells[c] >= Cells[best])) best = c;
    if (best < 0) break;
    Take(best, slot, palette);
    const Entry &e = Palette[slot];
    for (int c : free)
      if (Cells[c] > 0) Cells[c] = std::min(Cells[c], Distance2(c, e.r, e.g, e.b));
  }

  // Step 7: every remaining free cell takes the slot of its nearest entry (the
  // lower slot on a tie); marked cells already hold theirs.
  for (int c : free) {
    if (Cells[c] <= 0) continue;
    int bestSlot = 0, bestDistance = -1;
    for (int s = 0; s < kSlots; ++s) {
      if (!Palette[s].used) continue;
      const int d = Distance2(c, Palette[s].r, Palette[s].g, Palette[s].b);
      if (bestDistance < 0 || d < bestDistance) {
        bestDistance = d;
        bestSlot = s;
      }
    }
    Cells[c] = -bestSlot;
  }
}

}  // namespace qorimg
