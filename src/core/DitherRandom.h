// The generator behind the histogram dither: a linear congruential generator
// with 15-bit results (0..32767), private to the library and kept per thread, so
// that histograms taken on different threads do not race and a test can seed it.
#pragma once

namespace qorimg {

// Next value in 0..32767 of the calling thread's generator.
int DitherRandom();
// Restarts the calling thread's generator.
void SeedDitherRandom(unsigned int seed);

}  // namespace qorimg
