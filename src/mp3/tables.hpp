// Layer III standard tables shared by the bitstream stages (header, scale
// factors, Huffman) and available to requantization.
#pragma once

#include <cstdint>

#include "aklac.h"

namespace akl::mp3 {

inline constexpr int kSfbLongRowLen = 23;   // band starts 0..21, then 576
inline constexpr int kSfbShortRowLen = 14;  // band starts 0..12, then 192 (lines of one window)
inline constexpr int kSfbRows = 6;          // row = id * 3 + samplingFreqIndex

// Long scale-factor band boundaries: ISO/IEC 13818-3 Table B.2 (rows 0-2:
// 22.05, 24, 16 kHz) and ISO/IEC 11172-3 Table 3-B.8 (rows 3-5: 44.1, 48,
// 32 kHz).  At 24 kHz band 18 starts at 332.
inline constexpr Akl16s kSfbLong[kSfbRows][kSfbLongRowLen] = {
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 114, 136, 162, 194, 232, 278, 332, 394, 464, 540, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576},
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 42, 50, 60, 72, 88, 106, 128, 156, 190, 230, 276, 330, 384, 576},
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 54, 66, 82, 102, 126, 156, 194, 240, 296, 364, 448, 550, 576},
};

// Short scale-factor band boundaries, same tables and row order.
inline constexpr Akl16s kSfbShort[kSfbRows][kSfbShortRowLen] = {
    {0, 4, 8, 12, 18, 24, 32, 42, 56, 74, 100, 132, 174, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 136, 180, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192},
    {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192},
    {0, 4, 8, 12, 16, 22, 28, 38, 50, 64, 80, 100, 126, 192},
    {0, 4, 8, 12, 16, 22, 30, 42, 58, 78, 104, 138, 180, 192},
};

// MPEG-1 scale-factor lengths by scalefac_compress (ISO/IEC 11172-3, 2.4.2.7).
inline constexpr Akl8s kSlen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
inline constexpr Akl8s kSlen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};

// MPEG-2 scale factors per partition (ISO/IEC 13818-3 Table 7 of 2.4.3.2),
// index range * 12 + kind * 4 + partition; kind 0 long, 1 short, 2 mixed.
// Ranges 0-2: scalefac_compress below 400, 400-499, 500-511; ranges 3-5 the
// intensity-stereo right channel with (scalefac_compress >> 1) below 180,
// 180-243, 244-255.
inline constexpr int kNrOfSfbRanges = 6;
inline constexpr Akl8s kNrOfSfb[kNrOfSfbRanges * 12] = {
    6, 5, 5, 5, 9, 9, 9, 9, 6, 9, 9, 9,         //
    6, 5, 7, 3, 9, 9, 12, 6, 6, 9, 12, 6,       //
    11, 10, 0, 0, 18, 18, 0, 0, 15, 18, 0, 0,   //
    7, 7, 7, 0, 12, 12, 12, 0, 6, 15, 12, 0,    //
    6, 6, 6, 3, 12, 9, 9, 6, 6, 12, 9, 6,       //
    8, 8, 5, 0, 15, 12, 9, 0, 6, 18, 9, 0,      //
};

// MPEG-1 Layer III frame length in bytes without padding,
// floor(144 * bit rate / sampling frequency), by samplingFreqIndex (44.1, 48,
// 32 kHz) and bitrateIndex 0..14; free format (index 0) gives 0.
inline constexpr Akl16s kFrameBytesMpeg1[3][15] = {
    {0, 104, 130, 156, 182, 208, 261, 313, 365, 417, 522, 626, 731, 835, 1044},
    {0, 96, 120, 144, 168, 192, 240, 288, 336, 384, 480, 576, 672, 768, 960},
    {0, 144, 180, 216, 252, 288, 360, 432, 504, 576, 720, 864, 1008, 1152, 1440},
};

// Integer range checks compare unsigned so that negative values fail the
// test of an upper bound.
constexpr bool Above(Akl32s v, std::uint32_t limit) { return static_cast<std::uint32_t>(v) > limit; }

}  // namespace akl::mp3
