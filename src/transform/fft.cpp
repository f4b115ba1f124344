// The internal complex FFT: float and 16-bit kernels, their contexts and sizes.
//
// The constant tables live in fft_tables.hpp; the float passes are kernel
// members (fft_member.inc, compiled once per instruction set in kernels_*.cpp)
// bound at process attach (core/dispatch.hpp).
#include "transform/fft.hpp"

#include <array>
#include <cmath>
#include <cstring>

#include "core/dispatch.hpp"
#include "transform/fft_tables.hpp"
#include "transform/kernel_members.hpp"

namespace akl::transform {

using namespace fft_tables;

namespace {

constexpr int kFlagNoDivide = 8;
constexpr int kFlagSqrtBoth = 4;
constexpr int kFlagDivFwd = 1;
constexpr int kFlagDivInv = 2;

constexpr bool ValidFlag(int flag) {
  return flag == kFlagNoDivide || flag == kFlagSqrtBoth || flag == kFlagDivFwd || flag == kFlagDivInv;
}

constexpr int RoundUp(int v, int a) { return (v + a - 1) / a * a; }

// ---------------------------------------------------------------------------
// 16-bit kernel helpers.

constexpr std::int64_t kQ30One = std::int64_t{1} << 30;
constexpr std::int64_t kHalfSqrt2Q30 = 759250125;  // round(2^30 / sqrt(2))

inline Akl32s MulQ30(std::int64_t a, std::int64_t w) {
  return static_cast<Akl32s>((a * w + (kQ30One >> 1)) >> 30);
}

// Radix-2 twiddles, stage of half size h at pair offset h - 1.
void FillQ30Twiddles(Akl32s* tw, int order) {
  for (int h = 1; h < (1 << order); h *= 2) {
    for (int j = 0; j < h; ++j) {
      const double a = kPi * j / h;
      tw[2 * (h - 1 + j)] = static_cast<Akl32s>(std::llround(std::cos(a) * static_cast<double>(kQ30One)));
      tw[2 * (h - 1 + j) + 1] = static_cast<Akl32s>(std::llround(-std::sin(a) * static_cast<double>(kQ30One)));
    }
  }
}

Akl16s SatRoundFloat(double v) {
  if (!(v == v)) return 0;
  const double r = std::nearbyint(v);
  if (r >= 32767.0) return 32767;
  if (r <= -32768.0) return -32768;
  return static_cast<Akl16s>(r);
}

int SpecSize32fc(int order) {
  const int m = 1 << order;
  if (order <= 5) return 208;
  if (order <= kTableMaxOrder) return RoundUp(8 * m + 8, 64) + RoundUp(m + 4, 64) + 256;
  return 8 * m + 256;  // planner: the stage twiddles take less than 8M bytes
}
// Large orders run through split scratch of M complex floats in the work buffer.
int WorkSize32fc(int order) { return order <= kTableMaxOrder ? 0 : 8 * (1 << order); }
int InitSize32fc(int order) {
  // Large orders compute a quarter-wave sine of their own period first.
  return order <= kTableMaxOrder ? 0 : RoundUp((1 << order) + 4, 64) + 64;
}

}  // namespace

// ---------------------------------------------------------------------------
// Float kernel.

std::uint32_t BitReverseIndex(std::uint32_t i, int order) {
  return order <= kTableMaxOrder ? static_cast<std::uint32_t>(kRev10[i] >> (kTableMaxOrder - order))
                                 : ReverseBits(i, order);
}

// The float transform of the bound kernel member (kernels_*.cpp).
void FftForward(const FFTSpec_C_32fc& spec, const Akl32fc* src, Akl32fc* dst, Akl8u* work) {
  Kernels().fft_forward(spec, src, dst, work);
}

// The split transform stays on the SSE2 member: the MDCT's plain reference
// runs on it, so the reference is the same on every processor.
void FftSplitBitReversed(const FFTSpec_C_32fc& spec, float* re, float* im) {
  sse2::FftSplitBitReversed(spec, re, im);
}

void FftRef(const Akl32fc* src, Akl32fc* dst, int order) {
  const int m = 1 << order;
  for (int i = 0; i < m; ++i) {
    const int r = static_cast<int>(ReverseBits(static_cast<std::uint32_t>(i), order));
    if (src != dst) {
      dst[r] = src[i];
    } else if (i < r) {
      const Akl32fc t = dst[i];
      dst[i] = dst[r];
      dst[r] = t;
    }
  }
  for (int h = 1; h < m; h *= 2) {
    for (int base = 0; base < m; base += 2 * h) {
      for (int j = 0; j < h; ++j) {
        const double a = kPi * j / h;
        const float wr = static_cast<float>(std::cos(a));
        const float wi = static_cast<float>(-std::sin(a));
        Akl32fc& x = dst[base + j];
        Akl32fc& y = dst[base + j + h];
        const float tr = y.re * wr - y.im * wi;
        const float ti = y.re * wi + y.im * wr;
        y.re = x.re - tr;
        y.im = x.im - ti;
        x.re += tr;
        x.im += ti;
      }
    }
  }
}

Status fftGetSize_C_32fc(int order, int flag, int hint, int* pSpecSize, int* pInitBufSize, int* pWorkSize) {
  (void)hint;
  if (order > kFftMaxOrder32fc || order < 0) return kStsFftOrderErr;
  if (!pSpecSize || !pInitBufSize || !pWorkSize) return kStsNullPtr;
  if (!ValidFlag(flag)) return kStsFftFlagErr;
  *pSpecSize = SpecSize32fc(order);
  *pInitBufSize = InitSize32fc(order);
  *pWorkSize = WorkSize32fc(order) > 0 ? WorkSize32fc(order) + 64 : 0;
  return kStsOk;
}

Status fftInit_C_32fc(FFTSpec_C_32fc** ppSpec, int order, int flag, int hint, Akl8u* pMemSpec, Akl8u* pMemInit) {
  if (!ppSpec || !pMemSpec) return kStsNullPtr;
  if (order > kFftMaxOrder32fc || order < 0) return kStsFftOrderErr;
  FFTSpec_C_32fc* s = ContextAt<FFTSpec_C_32fc>(pMemSpec, kTransformContextAlign);
  if (!ValidFlag(flag)) {
    s->tag = 0;
    return kStsFftFlagErr;
  }
  if (order > kTableMaxOrder && !pMemInit) return kStsNullPtr;

  std::memset(s, 0, sizeof(*s));
  const int m = 1 << order;
  s->order = order;
  s->hint = hint;
  s->workSize = WorkSize32fc(order);
  s->normFactor = 1.0f;
  if (flag == kFlagSqrtBoth) {
    s->fwdDivide = s->invDivide = 1;
    s->normFactor = static_cast<float>(1.0 / std::sqrt(static_cast<double>(m)));
  } else if (flag == kFlagDivFwd) {
    s->fwdDivide = 1;
    s->normFactor = static_cast<float>(1.0 / m);
  } else if (flag == kFlagDivInv) {
    s->invDivide = 1;
    s->normFactor = static_cast<float>(1.0 / m);
  }
  float* tables = AlignUp(reinterpret_cast<float*>(reinterpret_cast<Akl8u*>(s) + sizeof(*s)), 64);
  if (order <= 5) {
    s->twiddles = ConstantStages(order);
  } else if (order <= kTableMaxOrder) {
    std::memcpy(tables, ConstantStages(order), sizeof(float) * static_cast<std::size_t>(StageTwiddleFloats(order)));
    s->twiddles = tables;
  } else {
    float* qs = AlignUp(reinterpret_cast<float*>(pMemInit), 64);
    for (int k = 0; k <= m / 4; ++k) qs[k] = static_cast<float>(std::sin(2.0 * kPi * k / m));
    FillStages(tables, order, qs, m);
    s->twiddles = tables;
  }
  s->bitRev = order <= kTableMaxOrder ? kRev10.data() : nullptr;
  s->tag = kTagFft32fc;
  *ppSpec = s;
  return kStsOk;
}

Status fftInitAlloc_C_32fc(FFTSpec_C_32fc** ppSpec, int order, int flag, int hint) {
  if (!ppSpec) return kStsNullPtr;
  int spec_size = 0, init_size = 0, work_size = 0;
  const Status st = fftGetSize_C_32fc(order, flag, hint, &spec_size, &init_size, &work_size);
  if (st != kStsOk) return st;
  Akl8u* mem = static_cast<Akl8u*>(AllocBytes(spec_size));
  if (!mem) return kStsMemAllocErr;
  Akl8u* init = nullptr;
  if (init_size > 0) {
    init = static_cast<Akl8u*>(AllocBytes(init_size));
    if (!init) {
      Release(mem);
      return kStsMemAllocErr;
    }
  }
  FFTSpec_C_32fc* s = nullptr;
  fftInit_C_32fc(&s, order, flag, hint, mem, init);
  Release(init);
  *ppSpec = reinterpret_cast<FFTSpec_C_32fc*>(mem);
  return kStsOk;
}

// Releases a context that fftInitAlloc_C_32fc allocated.
Status fftFree_C_32fc(FFTSpec_C_32fc* pSpec) {
  if (!pSpec) return kStsNullPtr;
  if (ContextAt<FFTSpec_C_32fc>(pSpec, kTransformContextAlign)->tag != kTagFft32fc) return kStsContextMismatch;
  Release(pSpec);
  return kStsOk;
}

Status fftGetBufSize_C_32fc(const FFTSpec_C_32fc* pSpec, int* pSize) {
  if (!pSpec || !pSize) return kStsNullPtr;
  const FFTSpec_C_32fc* s = TaggedContext<FFTSpec_C_32fc>(pSpec, kTransformContextAlign, kTagFft32fc);
  if (!s) return kStsContextMismatch;
  *pSize = s->workSize > 0 ? s->workSize + 64 : 0;
  return kStsOk;
}

Status fftFwd_CToC_32fc(const Akl32fc* pSrc, Akl32fc* pDst, const FFTSpec_C_32fc* pSpec, Akl8u* pBuffer) {
  if (!pSpec) return kStsNullPtr;
  const FFTSpec_C_32fc* s = TaggedContext<FFTSpec_C_32fc>(pSpec, kTransformContextAlign, kTagFft32fc);
  if (!s) return kStsContextMismatch;
  if (!pSrc || !pDst) return kStsNullPtr;
  Akl8u* work = pBuffer;
  if (!work && s->workSize > 0) {
    work = static_cast<Akl8u*>(AllocBytes(s->workSize + 64));
    if (!work) return kStsMemAllocErr;
  }
  FftForward(*s, pSrc, pDst, work);
  if (work != pBuffer) Release(work);
  return kStsOk;
}

// ---------------------------------------------------------------------------
// 16-bit kernel.

namespace {

bool IntegerKernel(int order, int hint) { return (hint == 0 || hint == 1) && order < kFftIntegerOrderLimit; }

}  // namespace

Status fftGetSize_C_16sc(int order, int flag, int hint, int* pSpecSize, int* pInitBufSize, int* pWorkSize) {
  if (order > kFftMaxOrder16sc || order < 0) return kStsFftOrderErr;
  if (!pSpecSize || !pInitBufSize || !pWorkSize) return kStsNullPtr;
  if (!ValidFlag(flag)) return kStsFftFlagErr;
  const int m = 1 << order;
  if (order == 0) {
    *pSpecSize = 136;
    *pInitBufSize = 0;
    *pWorkSize = 0;
  } else if (IntegerKernel(order, hint)) {
    *pSpecSize = RoundUp(8 * m, 64) + RoundUp(m + 4, 64) + 192;
    *pInitBufSize = RoundUp(m / 2 + 2, 64) + 64;
    *pWorkSize = 8 * m + 64;
  } else {
    int fs = 0, fi = 0, fw = 0;
    const Status st = fftGetSize_C_32fc(order, flag, hint, &fs, &fi, &fw);
    if (st != kStsOk) return st;
    // The float data (M complex floats, 64 bytes to align them) before the
    // float kernel's own work.
    *pSpecSize = fs + 192;
    *pInitBufSize = fi;
    *pWorkSize = fw + 8 * m + 64;
  }
  return kStsOk;
}

Status fftInit_C_16sc(FFTSpec_C_16sc** ppSpec, int order, int flag, int hint, Akl8u* pMemSpec, Akl8u* pMemInit) {
  if (!ppSpec || !pMemSpec) return kStsNullPtr;
  if (order > kFftMaxOrder16sc || order < 0) return kStsFftOrderErr;
  FFTSpec_C_16sc* s = ContextAt<FFTSpec_C_16sc>(pMemSpec, kTransformContextAlign);
  if (!ValidFlag(flag)) {
    s->tag = 0;
    return kStsFftFlagErr;
  }
  int spec_size = 0, init_size = 0, work_size = 0;
  const Status st = fftGetSize_C_16sc(order, flag, hint, &spec_size, &init_size, &work_size);
  if (st != kStsOk) return st;
  if (init_size > 0 && !pMemInit && !IntegerKernel(order, hint)) return kStsNullPtr;

  std::memset(s, 0, sizeof(*s));
  s->order = order;
  s->hint = hint;
  s->workSize = work_size;
  if (flag == kFlagSqrtBoth) {
    s->fwdShift = s->invShift = order >> 1;
    s->halfSqrt2 = order & 1;
  } else if (flag == kFlagDivFwd) {
    s->fwdShift = order;
  } else if (flag == kFlagDivInv) {
    s->invShift = order;
  }
  Akl8u* after_header = AlignUp(reinterpret_cast<Akl8u*>(s) + sizeof(*s), 64);
  if (order > 0 && IntegerKernel(order, hint)) {
    Akl32s* tw = reinterpret_cast<Akl32s*>(after_header);
    FillQ30Twiddles(tw, order);
    s->twiddles = tw;
    s->bitRev = kRev10.data();
  } else if (order > 0) {
    FFTSpec_C_32fc* fs = nullptr;
    const Status fst = fftInit_C_32fc(&fs, order, flag, hint, after_header, pMemInit);
    if (fst != kStsOk) return fst;
    s->floatKernel = 1;
    s->floatSpec = fs;
  }
  s->tag = kTagFft16sc;
  *ppSpec = s;
  return kStsOk;
}

Status fftInitAlloc_C_16sc(FFTSpec_C_16sc** ppSpec, int order, int flag, int hint) {
  if (!ppSpec) return kStsNullPtr;
  int spec_size = 0, init_size = 0, work_size = 0;
  const Status st = fftGetSize_C_16sc(order, flag, hint, &spec_size, &init_size, &work_size);
  if (st != kStsOk) return st;
  Akl8u* mem = static_cast<Akl8u*>(AllocBytes(spec_size));
  if (!mem) return kStsMemAllocErr;
  Akl8u* init = nullptr;
  if (init_size > 0) {
    init = static_cast<Akl8u*>(AllocBytes(init_size));
    if (!init) {
      Release(mem);
      return kStsMemAllocErr;
    }
  }
  FFTSpec_C_16sc* s = nullptr;
  const Status ist = fftInit_C_16sc(&s, order, flag, hint, mem, init);
  Release(init);
  if (ist != kStsOk) {
    Release(mem);
    return ist;
  }
  s->ownedByLibrary = 1;
  *ppSpec = reinterpret_cast<FFTSpec_C_16sc*>(mem);
  return kStsOk;
}

Status fftFree_C_16sc(FFTSpec_C_16sc* pSpec) {
  return FreeKeepingTag<FFTSpec_C_16sc>(pSpec, kTransformContextAlign, kTagFft16sc);
}

Status fftGetBufSize_C_16sc(const FFTSpec_C_16sc* pSpec, int* pSize) {
  if (!pSpec || !pSize) return kStsNullPtr;
  const FFTSpec_C_16sc* s = TaggedContext<FFTSpec_C_16sc>(pSpec, kTransformContextAlign, kTagFft16sc);
  if (!s) return kStsContextMismatch;
  *pSize = s->workSize;
  return kStsOk;
}

void Fft16Forward(const FFTSpec_C_16sc& spec, const Akl16sc* src, Akl16sc* dst, int scale_factor, Akl8u* work) {
  const int order = spec.order;
  const int m = 1 << order;
  if (order == 0) {
    const Akl16sc v = src[0];
    dst[0].re = ShiftToS16(v.re, scale_factor);
    dst[0].im = ShiftToS16(v.im, scale_factor);
    return;
  }
  if (spec.floatKernel) {
    Akl32fc* f = AlignUp(reinterpret_cast<Akl32fc*>(work), 64);
    for (int i = 0; i < m; ++i) {
      f[i].re = static_cast<float>(src[i].re);
      f[i].im = static_cast<float>(src[i].im);
    }
    const FFTSpec_C_32fc* fs = ContextAt<FFTSpec_C_32fc>(spec.floatSpec, kTransformContextAlign);
    FftForward(*fs, f, f, reinterpret_cast<Akl8u*>(f + m));
    // 2^-scale_factor; beyond +-200 every float result is 0 or saturated alike (and -INT_MIN is no int).
    const std::int64_t e = -std::int64_t{scale_factor};
    const double scale = std::ldexp(1.0, static_cast<int>(e < -200 ? -200 : (e > 200 ? 200 : e)));
    for (int i = 0; i < m; ++i) {
      dst[i].re = SatRoundFloat(static_cast<double>(f[i].re) * scale);
      dst[i].im = SatRoundFloat(static_cast<double>(f[i].im) * scale);
    }
    return;
  }
  // Integer kernel: inputs widened by 15 - order bits, so that the growth of
  // at most M through the passes stays below 2^31.
  Akl32s* w = AlignUp(reinterpret_cast<Akl32s*>(work), 64);
  const int up = 15 - order;
  for (int i = 0; i < m; ++i) {
    const std::uint32_t r = ReverseBits(static_cast<std::uint32_t>(i), order);
    Akl32s re = src[i].re * (1 << up);
    Akl32s im = src[i].im * (1 << up);
    if (spec.halfSqrt2) {
      re = MulQ30(re, kHalfSqrt2Q30);
      im = MulQ30(im, kHalfSqrt2Q30);
    }
    w[2 * r] = re;
    w[2 * r + 1] = im;
  }
  const Akl32s* tw_all = spec.twiddles;
  for (int h = 1; h < m; h *= 2) {
    const Akl32s* tw = tw_all + 2 * (h - 1);
    for (int base = 0; base < m; base += 2 * h) {
      for (int j = 0; j < h; ++j) {
        Akl32s* x = w + 2 * (base + j);
        Akl32s* y = x + 2 * h;
        const std::int64_t wr = tw[2 * j], wi = tw[2 * j + 1];
        const std::int64_t yr = y[0], yi = y[1];
        const std::int64_t tr = (yr * wr - yi * wi + (kQ30One >> 1)) >> 30;
        const std::int64_t ti = (yr * wi + yi * wr + (kQ30One >> 1)) >> 30;
        y[0] = static_cast<Akl32s>(x[0] - tr);
        y[1] = static_cast<Akl32s>(x[1] - ti);
        x[0] = static_cast<Akl32s>(x[0] + tr);
        x[1] = static_cast<Akl32s>(x[1] + ti);
      }
    }
  }
  // Any scale factor: the sum is formed wide and clamped to the shifts ShiftToS16 uses.
  const int down = ClampShift(std::int64_t{up} + spec.fwdShift + scale_factor);
  for (int i = 0; i < m; ++i) {
    dst[i].re = ShiftToS16(w[2 * i], down);
    dst[i].im = ShiftToS16(w[2 * i + 1], down);
  }
}

Status fftFwd_CToC_16sc_Sfs(const Akl16sc* pSrc, Akl16sc* pDst, const FFTSpec_C_16sc* pSpec, int scaleFactor,
                            Akl8u* pBuffer) {
  if (!pSpec) return kStsNullPtr;
  const FFTSpec_C_16sc* s = TaggedContext<FFTSpec_C_16sc>(pSpec, kTransformContextAlign, kTagFft16sc);
  if (!s) return kStsContextMismatch;
  if (!pSrc || !pDst) return kStsNullPtr;
  Akl8u* work = pBuffer;
  if (!work && s->workSize > 0) {
    work = static_cast<Akl8u*>(AllocBytes(s->workSize));
    if (!work) return kStsMemAllocErr;
  }
  Fft16Forward(*s, pSrc, pDst, scaleFactor, work);
  if (work != pBuffer) Release(work);
  return kStsOk;
}

}  // namespace akl::transform
