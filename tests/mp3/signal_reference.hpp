// Plain double-precision models of the Layer III signal stages, written from
// the standard's formulas without any of the library's factorisations, for
// the kernels' accuracy tests.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace akl::test {

inline constexpr double kPiD = 3.14159265358979323846;

// One channel of the hybrid synthesis's frequency-to-time step, in the
// library's short-block layout (window w of subband s at 18 s + 6 w + k).
struct ImdctRef {
  double overlap[32][18] = {};

  // spec: 576 lines (standard's scale); returns 576 slot-major samples.
  std::vector<double> Run(std::vector<double> spec, int block_type, int mixed) {
    static const double c[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
    const int boundaries = block_type == 2 ? (mixed ? 1 : 0) : 31;
    for (int sb = 0; sb < boundaries; ++sb)
      for (int i = 0; i < 8; ++i) {
        const double cs = 1.0 / std::sqrt(1.0 + c[i] * c[i]), ca = c[i] * cs;
        const double x = spec[18 * sb + 17 - i], y = spec[18 * (sb + 1) + i];
        spec[18 * sb + 17 - i] = x * cs - y * ca;
        spec[18 * (sb + 1) + i] = y * cs + x * ca;
      }
    std::vector<double> out(576);
    for (int sb = 0; sb < 32; ++sb) {
      double z[36] = {};
      const bool is_short = block_type == 2 && !(mixed && sb < 2);
      const int bt = (mixed && sb < 2) ? 0 : block_type;
      if (is_short) {
        for (int w = 0; w < 3; ++w)
          for (int i = 0; i < 12; ++i) {
            double y = 0;
            for (int k = 0; k < 6; ++k)
              y += spec[18 * sb + 6 * w + k] * std::cos(kPiD / 24 * (2 * i + 1 + 6) * (2 * k + 1));
            z[6 + 6 * w + i] += y * std::sin(kPiD / 12 * (i + 0.5));
          }
      } else {
        for (int i = 0; i < 36; ++i) {
          double x = 0;
          for (int k = 0; k < 18; ++k) x += spec[18 * sb + k] * std::cos(kPiD / 72 * (2 * i + 1 + 18) * (2 * k + 1));
          z[i] = x * Window(bt, i);
        }
      }
      for (int i = 0; i < 18; ++i) {
        double v = z[i] + overlap[sb][i];
        overlap[sb][i] = z[18 + i];
        if ((sb & 1) && (i & 1)) v = -v;
        out[32 * i + sb] = v;
      }
    }
    return out;
  }

  static double Window(int bt, int i) {
    const double s36 = std::sin(kPiD / 36 * (i + 0.5));
    if (bt == 1) return i < 18 ? s36 : i < 24 ? 1.0 : i < 30 ? std::sin(kPiD / 12 * (i - 18 + 0.5)) : 0.0;
    if (bt == 3) return i < 6 ? 0.0 : i < 12 ? std::sin(kPiD / 12 * (i - 6 + 0.5)) : i < 18 ? 1.0 : s36;
    return s36;
  }
};

// The standard's synthesis: 1024-value V shift register, U, window, sum.
struct SynthRef {
  double v[1024] = {};
  std::vector<double> window;  // D[i], filled by the caller

  void Slot(const double* s, double* pcm) {
    for (int i = 1023; i >= 64; --i) v[i] = v[i - 64];
    for (int i = 0; i < 64; ++i) {
      double acc = 0;
      for (int k = 0; k < 32; ++k) acc += std::cos((16 + i) * (2 * k + 1) * kPiD / 64) * s[k];
      v[i] = acc;
    }
    for (int j = 0; j < 32; ++j) {
      double acc = 0;
      for (int i = 0; i < 8; ++i) {
        acc += v[128 * i + j] * window[64 * i + j];
        acc += v[128 * i + 96 + j] * window[64 * i + 32 + j];
      }
      pcm[j] = acc;
    }
  }
};

}  // namespace akl::test
