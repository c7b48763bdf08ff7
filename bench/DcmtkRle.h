// dcmtk's RLE decoder, called in this process, as a peer of bench_codec.
#pragma once

#include <string>

#if defined(BENCH_DCMTK)
constexpr bool kHasDcmtkRle = true;
#else
constexpr bool kHasDcmtkRle = false;
#endif

/// Reads a file with RLE pixel data and returns the seconds that decoding it takes, without reading. 0 where the
/// benchmark was built without dcmtk.
double SecondsOfDcmtkRle(const std::string& path);
