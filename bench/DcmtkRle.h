// dcmtk's RLE decoder in this process.
#pragma once

#include <string>

#if defined(BENCH_DCMTK)
constexpr bool kHasDcmtkRle = true;
#else
constexpr bool kHasDcmtkRle = false;
#endif

/// Reads a file, then takes the time of decoding its pixel data. 0 where dcmtk is not there.
double SecondsOfDcmtkRle(const std::string& path);
