// General MDCT: float forward and inverse of length 12, 36 and every power of
// two from 32, and the 16-bit forward transform with block normalisation.
//
// A transform of length N runs through Q = N/4 complex points: a pre-twiddle
// folds the input into Q complex values, a Q-point DFT (the FFT for powers of
// two, fixed 3- and 9-point transforms for N = 12 and 36) turns them, and a
// post-twiddle unfolds the result.  The twiddle table carries the scale:
// sqrt(2) in each twiddle of the forward float transform (overall factor 2),
// 1/sqrt(N/2) in each of the inverse (overall 2/N).  The pre-twiddle stores
// its values in bit-reversed order so that the FFT needs no permutation pass.
#include <cmath>
#include <cstring>

#include "core/context.hpp"
#include "core/dispatch.hpp"
#include "core/exports.hpp"
#include "transform/fft.hpp"
#include "transform/kernel_members.hpp"
#include "transform/mdct.hpp"

namespace akl::transform {

namespace {

constexpr int kMaxLen = 1 << 28;  // keeps every size below 2^31

bool IsPow2(int v) { return v > 0 && (v & (v - 1)) == 0; }
bool IsPow2Len(int len) { return len >= 32 && len <= kMaxLen && IsPow2(len); }
bool IsFloatLen(int len) { return len == 12 || len == 36 || IsPow2Len(len); }
int Log2(int v) {
  int n = 0;
  while ((1 << n) < v) ++n;
  return n;
}
constexpr int RoundUp(int v, int a) { return (v + a - 1) / a * a; }

constexpr double kPi = 3.14159265358979323846;
constexpr int kFftFlagNoDivide = 8;
constexpr int kFftHint = 0;

// ---------------------------------------------------------------------------
// Short DFTs for N = 12 (Q = 3) and N = 36 (Q = 9).

constexpr float kHalf = 0.5f;
constexpr float kSqrt3Half = 0.8660254f;  // sqrt(3)/2
// cos and sin of 20, 40 and 80 degrees.
constexpr float kCos20 = 0.9396926f, kSin20 = 0.34202015f;
constexpr float kCos40 = 0.76604444f, kSin40 = 0.64278764f;
constexpr float kCos80 = 0.17364818f, kSin80 = 0.9848077f;

inline void Dft3(Akl32fc& z0, Akl32fc& z1, Akl32fc& z2) {
  const float tr = z1.re + z2.re, ti = z1.im + z2.im;
  const float dr = (z1.re - z2.re) * kSqrt3Half, di = (z1.im - z2.im) * kSqrt3Half;
  const float mr = z0.re - kHalf * tr, mi = z0.im - kHalf * ti;
  z0.re += tr;
  z0.im += ti;
  // X1 = m - i d, X2 = m + i d.
  z1.re = mr + di;
  z1.im = mi - dr;
  z2.re = mr - di;
  z2.im = mi + dr;
}

inline Akl32fc Rotate(Akl32fc v, float c, float s) {  // v * (c - i s)
  return {v.re * c + v.im * s, v.im * c - v.re * s};
}

// 9 points as 3 x 3: n = 3 n1 + n2, k = k1 + 3 k2.
void Dft9(Akl32fc* z) {
  Akl32fc a[9];
  for (int n2 = 0; n2 < 3; ++n2) {
    Akl32fc v0 = z[n2], v1 = z[3 + n2], v2 = z[6 + n2];
    Dft3(v0, v1, v2);
    a[3 * n2] = v0;
    a[3 * n2 + 1] = v1;
    a[3 * n2 + 2] = v2;
  }
  // Inner factors e^(-2 pi i n2 k1 / 9): exponents 1, 2 and 4 (40, 80, 160 degrees).
  a[4] = Rotate(a[4], kCos40, kSin40);
  a[5] = Rotate(a[5], kCos80, kSin80);
  a[7] = Rotate(a[7], kCos80, kSin80);
  a[8] = Rotate(a[8], -kCos20, kSin20);
  for (int k1 = 0; k1 < 3; ++k1) {
    Akl32fc v0 = a[k1], v1 = a[3 + k1], v2 = a[6 + k1];
    Dft3(v0, v1, v2);
    z[k1] = v0;
    z[k1 + 3] = v1;
    z[k1 + 6] = v2;
  }
}

// ---------------------------------------------------------------------------
// Layout.

// Float spec memory: header at the first 64-byte boundary, the table at the
// next, the FFT context 4 * round_up(N/2, 64) bytes after the table start.
struct FloatLayout {
  MdctSpec* header;
  float* table;
  Akl8u* fft_mem;
};
FloatLayout LayOutFloat(Akl8u* mem, int len) {
  FloatLayout l{};
  l.header = ContextAt<MdctSpec>(mem, kTransformContextAlign);
  l.table = AlignUp(reinterpret_cast<float*>(reinterpret_cast<Akl8u*>(l.header) + sizeof(MdctSpec)), 64);
  l.fft_mem = reinterpret_cast<Akl8u*>(l.table) + 4 * RoundUp(len / 2, 64);
  return l;
}

// Pair j: (first, second) = (sin a_j, cos a_j) times `scale`, a_j = 2 pi (j + 1/8) / N.
void FillFloatTable(float* t, int len, double scale) {
  for (int j = 0; j < len / 4; ++j) {
    const double a = 2.0 * kPi * (j + 0.125) / len;
    t[2 * j] = static_cast<float>(std::sin(a) * scale);
    t[2 * j + 1] = static_cast<float>(std::cos(a) * scale);
  }
}

void FillQ14Table(Akl16s* t, int len) {
  for (int j = 0; j < len / 4; ++j) {
    const double a = 2.0 * kPi * (j + 0.125) / len;
    t[2 * j] = static_cast<Akl16s>(static_cast<int>(std::sin(a) * 16384.0 + 0.5));
    t[2 * j + 1] = static_cast<Akl16s>(static_cast<int>(std::cos(a) * 16384.0 + 0.5));
  }
}

double TableScale(ContextTag tag, int len) {
  return tag == kTagMdctFwd32f ? std::sqrt(2.0) : 1.0 / std::sqrt(len / 2.0);
}

Status GetSizeFloat(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
  if (!pSpecSize || !pSpecBufferSize || !pBufferSize) return kStsNullPtr;
  if (!IsFloatLen(len)) return kStsSizeErr;
  if (len == 12 || len == 36) {
    *pSpecSize = 4 * (len / 2) + 168;
    *pSpecBufferSize = 0;
    *pBufferSize = 128 + 4 * len;
    return kStsOk;
  }
  int fs = 0, fi = 0, fw = 0;
  const Status st = fftGetSize_C_32fc(Log2(len / 4), kFftFlagNoDivide, kFftHint, &fs, &fi, &fw);
  if (st != kStsOk) return st;
  *pSpecSize = fs + 64 + 4 * (len / 2) + 168;
  *pSpecBufferSize = fi;
  *pBufferSize = fw + 64 + 128 + 4 * len;
  return kStsOk;
}

Status InitFloat(ContextTag tag, MdctSpec** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit) {
  if (!IsFloatLen(len)) return kStsSizeErr;
  const bool pow2 = IsPow2(len);
  if (!ppSpec || !pMemSpec || (pow2 && !pMemInit)) return kStsNullPtr;
  const FloatLayout l = LayOutFloat(pMemSpec, len);
  MdctSpec* s = l.header;
  std::memset(s, 0, sizeof(*s));
  s->len = len;
  int fft_work = 0;
  if (pow2) {
    s->order = Log2(len / 4);
    FFTSpec_C_32fc* fft = nullptr;
    const Status st = fftInit_C_32fc(&fft, s->order, kFftFlagNoDivide, kFftHint, l.fft_mem, pMemInit);
    if (st != kStsOk) return st;
    s->fft = l.fft_mem;
    fftGetBufSize_C_32fc(fft, &fft_work);
  }
  s->bufSize = fft_work + 64 + 4 * len;
  s->table = l.table;
  FillFloatTable(l.table, len, TableScale(tag, len));
  s->tag = tag;
  *ppSpec = s;
  return kStsOk;
}

Status InitAllocFloat(ContextTag tag, MdctSpec** ppSpec, int len) {
  if (!ppSpec) return kStsNullPtr;
  if (!IsFloatLen(len)) return kStsSizeErr;
  MdctSpec* s = static_cast<MdctSpec*>(AllocContextBytes(static_cast<int>(sizeof(MdctSpec))));
  if (!s) return kStsMemAllocErr;
  std::memset(s, 0, sizeof(*s));
  s->tag = tag;
  s->len = len;
  s->ownedByLibrary = 1;
  int fft_work = 0;
  if (IsPow2(len)) {
    s->order = Log2(len / 4);
    FFTSpec_C_32fc* fft = nullptr;
    const Status st = fftInitAlloc_C_32fc(&fft, s->order, kFftFlagNoDivide, kFftHint);
    if (st != kStsOk) {
      Release(s);
      return st;
    }
    s->fft = fft;
    fftGetBufSize_C_32fc(fft, &fft_work);
  }
  float* table = static_cast<float*>(AllocBytes(4 * (len / 2)));
  if (!table) {
    if (s->fft) fftFree_C_32fc(static_cast<FFTSpec_C_32fc*>(s->fft));
    Release(s);
    return kStsMemAllocErr;
  }
  s->bufSize = fft_work + 64 + 4 * len;
  s->table = table;
  FillFloatTable(table, len, TableScale(tag, len));
  *ppSpec = s;
  return kStsOk;
}

Status FreeSpec(void* raw, ContextTag tag) {
  if (!raw) return kStsNullPtr;
  MdctSpec* s = ContextAt<MdctSpec>(raw, kTransformContextAlign);
  if (s->tag != tag) return kStsContextMismatch;
  s->tag = 0;
  if (s->ownedByLibrary == 1) {
    if (tag == kTagMdctFwd16s) {
      if (s->fft) fftFree_C_16sc(static_cast<FFTSpec_C_16sc*>(s->fft));
    } else {
      Release(s->table);
      if (s->fft) fftFree_C_32fc(static_cast<FFTSpec_C_32fc*>(s->fft));
    }
    Release(raw);
  }
  return kStsOk;
}

Status GetBufSize(const void* raw, int* pSize, ContextTag tag) {
  if (!raw || !pSize) return kStsNullPtr;
  const MdctSpec* s = TaggedContext<MdctSpec>(raw, kTransformContextAlign, tag);
  if (!s) return kStsContextMismatch;
  *pSize = s->bufSize;
  return kStsOk;
}

// Runs `kernel(work)` on the caller's buffer from its first 64-byte boundary,
// or on a buffer of the context's size allocated for this call.
template <class Kernel>
Status WithWorkBuffer(const MdctSpec& s, Akl8u* pBuffer, Kernel kernel) {
  if (pBuffer) {
    kernel(AlignUp(pBuffer, 64));
    return kStsOk;
  }
  Akl8u* own = static_cast<Akl8u*>(AllocBytes(s.bufSize));
  if (!own) return kStsMemAllocErr;
  kernel(AlignUp(own, 64));
  Release(own);
  return kStsOk;
}

// Where the complex values z live in the work buffer: interleaved in natural
// order for N = 12 and 36; for powers of two split into real and imaginary
// arrays of Q floats, in bit-reversed order until the FFT has run.
struct Quarter {
  const MdctSpec& s;
  float* re;
  float* im;
  const FFTSpec_C_32fc* fft;
  Quarter(const MdctSpec& spec, Akl32fc* z)
      : s(spec),
        re(reinterpret_cast<float*>(z)),
        im(reinterpret_cast<float*>(z) + spec.len / 4),
        fft(spec.fft ? ContextAt<FFTSpec_C_32fc>(spec.fft, kTransformContextAlign) : nullptr) {}
  void Put(int i, float r, float m) {
    if (fft) {
      const std::uint32_t p = BitReverseIndex(static_cast<std::uint32_t>(i), s.order);
      re[p] = r;
      im[p] = m;
    } else {
      re[2 * i] = r;
      re[2 * i + 1] = m;
    }
  }
  float Re(int k) const { return fft ? re[k] : re[2 * k]; }
  float Im(int k) const { return fft ? im[k] : re[2 * k + 1]; }
  // The Q-point forward DFT, unnormalised.
  void Dft() {
    Akl32fc* z = reinterpret_cast<Akl32fc*>(re);
    if (fft) {
      FftSplitBitReversed(*fft, re, im);
    } else if (s.len == 12) {
      Dft3(z[0], z[1], z[2]);
    } else {
      Dft9(z);
    }
  }
};

}  // namespace

// ---------------------------------------------------------------------------
// Float kernels.

void MdctFwdRef(const MdctSpec& s, const float* x, float* y, Akl32fc* zbuf) {
  const int n = s.len, q = n / 4, h = (q + 1) >> 1;
  const float* t = static_cast<const float*>(s.table);
  Quarter z(s, zbuf);
  auto put = [&](int i, float a, float b) {
    const float sn = t[2 * i], cs = t[2 * i + 1];
    z.Put(i, cs * a + sn * b, cs * b - sn * a);
  };
  for (int i = 0; i < h; ++i) {
    put(i, -x[3 * n / 4 + 2 * i] - x[3 * n / 4 - 1 - 2 * i], x[n / 4 - 1 - 2 * i] - x[n / 4 + 2 * i]);
  }
  for (int i = h; i < q; ++i) {
    put(i, x[2 * i - n / 4] - x[3 * n / 4 - 1 - 2 * i], -x[5 * n / 4 - 1 - 2 * i] - x[n / 4 + 2 * i]);
  }
  z.Dft();
  for (int k = 0; k < q; ++k) {
    const float sn = t[2 * k], cs = t[2 * k + 1];
    y[2 * k] = cs * z.Re(k) + sn * z.Im(k);
    y[n / 2 - 1 - 2 * k] = sn * z.Re(k) - cs * z.Im(k);
  }
}

void MdctInvRef(const MdctSpec& s, const float* x, float* y, Akl32fc* zbuf) {
  const int n = s.len, q = n / 4, h = (q + 1) >> 1;
  const float* t = static_cast<const float*>(s.table);
  Quarter z(s, zbuf);
  for (int k = 0; k < q; ++k) {
    const float sn = t[2 * k], cs = t[2 * k + 1];
    const float a = x[2 * k], b = x[n / 2 - 1 - 2 * k];
    z.Put(k, cs * a + sn * b, cs * b - sn * a);
  }
  z.Dft();
  for (int m = 0; m < h; ++m) {
    const float sn = t[2 * m], cs = t[2 * m + 1];
    const float p = cs * z.Im(m) - sn * z.Re(m);
    const float r = -(cs * z.Re(m) + sn * z.Im(m));
    y[3 * n / 4 + 2 * m] = r;
    y[3 * n / 4 - 1 - 2 * m] = r;
    y[n / 4 + 2 * m] = p;
    y[n / 4 - 1 - 2 * m] = -p;
  }
  for (int m = h; m < q; ++m) {
    const float sn = t[2 * m], cs = t[2 * m + 1];
    const float p = cs * z.Re(m) + sn * z.Im(m);
    const float r = cs * z.Im(m) - sn * z.Re(m);
    y[2 * m - n / 4] = p;
    y[3 * n / 4 - 1 - 2 * m] = -p;
    y[n / 4 + 2 * m] = r;
    y[5 * n / 4 - 1 - 2 * m] = r;
  }
}

// The SIMD forms for powers of two from 64 are kernel members
// (mdct_member.inc), bound at process attach.

void MdctFwdSse2(const MdctSpec& s, const float* x, float* y, Akl32fc* z) { sse2::MdctFwd(s, x, y, z); }
void MdctInvSse2(const MdctSpec& s, const float* x, float* y, Akl32fc* z) { sse2::MdctInv(s, x, y, z); }

void MdctFwdKernel(const MdctSpec& s, const float* x, float* y, Akl32fc* z) {
  if (s.fft && s.len >= 64) {
    Kernels().mdct_fwd(s, x, y, z);
  } else {
    MdctFwdRef(s, x, y, z);
  }
}

void MdctInvKernel(const MdctSpec& s, const float* x, float* y, Akl32fc* z) {
  if (s.fft && s.len >= 64) {
    Kernels().mdct_inv(s, x, y, z);
  } else {
    MdctInvRef(s, x, y, z);
  }
}

// ---------------------------------------------------------------------------
// 16-bit forward kernel.

namespace {

struct Layout16 {
  MdctSpec* header;
  Akl16s* table;
  Akl8u* fft_mem;
};
Layout16 LayOut16(Akl8u* mem, int len) {
  Layout16 l{};
  l.header = ContextAt<MdctSpec>(mem, kTransformContextAlign);
  l.table = AlignUp(reinterpret_cast<Akl16s*>(reinterpret_cast<Akl8u*>(l.header) + sizeof(MdctSpec)), 64);
  l.fft_mem = reinterpret_cast<Akl8u*>(l.table) + RoundUp(len, 64);
  return l;
}

// Doublings of the peak m that bring it above 32768, minus one, plus one more
// when the doubled peak stays at or below 2 * 23168 (about 32768/sqrt(2)):
// the pre-twiddle's rotation may grow a value by sqrt(2).
int BlockShift(int m) {
  int s = -1;
  do {
    m *= 2;
    ++s;
  } while (m < 32769);
  if (m / 2 <= 23168) ++s;
  return s;
}

}  // namespace

void MdctFwd16Kernel(const MdctSpec& spec, const Akl16s* x, Akl16s* y, int scale_factor, Akl8u* work) {
  const int n = spec.len, q = n / 4, h = q >> 1;
  int mx = 0, mn = 0;
  for (int i = 0; i < n; ++i) {
    mx = x[i] > mx ? x[i] : mx;
    mn = x[i] < mn ? x[i] : mn;
  }
  const int peak = mx > -mn ? mx : -mn;
  if (peak == 0) {
    std::memset(y, 0, sizeof(Akl16s) * static_cast<std::size_t>(n / 2));
    return;
  }
  const int s = BlockShift(peak);
  const Akl32s r = s < 16 ? (1 << (15 - s)) : 0;
  const int down = 16 - s;
  const Akl16s* t = static_cast<const Akl16s*>(spec.table);
  Akl16sc* z = reinterpret_cast<Akl16sc*>(work);
  auto put = [&](int i, Akl32s a, Akl32s b) {
    const Akl32s sn = t[2 * i], cs = t[2 * i + 1];
    z[i].re = static_cast<Akl16s>((cs * a + sn * b + r) >> down);
    z[i].im = static_cast<Akl16s>((cs * b - sn * a + r) >> down);
  };
  for (int i = 0; i < h; ++i) {
    put(i, -x[3 * n / 4 + 2 * i] - x[3 * n / 4 - 1 - 2 * i], x[n / 4 - 1 - 2 * i] - x[n / 4 + 2 * i]);
  }
  for (int i = h; i < q; ++i) {
    put(i, x[2 * i - n / 4] - x[3 * n / 4 - 1 - 2 * i], -x[5 * n / 4 - 1 - 2 * i] - x[n / 4 + 2 * i]);
  }
  Akl8u* rest = work + n;  // after the Q complex int16 values
  const FFTSpec_C_16sc* fft = ContextAt<FFTSpec_C_16sc>(spec.fft, kTransformContextAlign);
  Fft16Forward(*fft, z, z, spec.order + 1, rest);
  Akl32s* out = reinterpret_cast<Akl32s*>(rest);
  for (int k = 0; k < q; ++k) {
    const Akl32s sn = t[2 * k], cs = t[2 * k + 1];
    out[2 * k] = cs * z[k].re + sn * z[k].im;
    out[n / 2 - 1 - 2 * k] = sn * z[k].re - cs * z[k].im;
  }
  const int f = ClampShift(std::int64_t{scale_factor} - spec.order + 10 + s);  // any int scale factor
  for (int k = 0; k < n / 2; ++k) y[k] = ShiftToS16(out[k], f);
}

// ---------------------------------------------------------------------------
// Exports.

Status aklsMDCTFwdGetSize_32f(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
  return GetSizeFloat(len, pSpecSize, pSpecBufferSize, pBufferSize);
}

Status aklsMDCTInvGetSize_32f(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
  return GetSizeFloat(len, pSpecSize, pSpecBufferSize, pBufferSize);
}

Status aklsMDCTFwdGetSize_16s(int len, int* pSpecSize, int* pSpecBufferSize, int* pBufferSize) {
  if (!pSpecSize || !pSpecBufferSize || !pBufferSize) return kStsNullPtr;
  if (!IsPow2Len(len)) return kStsSizeErr;
  int fs = 0, fi = 0, fw = 0;
  const Status st = fftGetSize_C_16sc(Log2(len / 4), kFftFlagNoDivide, kFftHint, &fs, &fi, &fw);
  if (st != kStsOk) return st;
  *pSpecSize = fs + 232 + len;
  *pSpecBufferSize = fi;
  *pBufferSize = (fw > 4 * len ? fw : 4 * len) + 64 + 4 * (len / 4);
  return kStsOk;
}

Status aklsMDCTFwdInit_32f(MDCTFwdSpec_32f** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit) {
  return InitFloat(kTagMdctFwd32f, reinterpret_cast<MdctSpec**>(ppSpec), len, pMemSpec, pMemInit);
}

Status aklsMDCTInvInit_32f(MDCTInvSpec_32f** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit) {
  return InitFloat(kTagMdctInv32f, reinterpret_cast<MdctSpec**>(ppSpec), len, pMemSpec, pMemInit);
}

Status aklsMDCTFwdInit_16s(MDCTFwdSpec_16s** ppSpec, int len, Akl8u* pMemSpec, Akl8u* pMemInit) {
  if (!ppSpec || !pMemSpec || !pMemInit) return kStsNullPtr;
  if (!IsPow2Len(len)) return kStsSizeErr;
  const Layout16 l = LayOut16(pMemSpec, len);
  MdctSpec* s = l.header;
  std::memset(s, 0, sizeof(*s));
  s->len = len;
  s->order = Log2(len / 4);
  FFTSpec_C_16sc* fft = nullptr;
  // The tag is written only once the FFT context stands.
  const Status st = fftInit_C_16sc(&fft, s->order, kFftFlagNoDivide, kFftHint, l.fft_mem, pMemInit);
  if (st != kStsOk) return st;
  s->fft = l.fft_mem;
  s->bufSize = fft->workSize + 64 + 4 * (len / 4);
  s->table = l.table;
  FillQ14Table(l.table, len);
  s->tag = kTagMdctFwd16s;
  *ppSpec = reinterpret_cast<MDCTFwdSpec_16s*>(s);
  return kStsOk;
}

Status aklsMDCTFwdInitAlloc_32f(MDCTFwdSpec_32f** ppSpec, int len) {
  return InitAllocFloat(kTagMdctFwd32f, reinterpret_cast<MdctSpec**>(ppSpec), len);
}

Status aklsMDCTInvInitAlloc_32f(MDCTInvSpec_32f** ppSpec, int len) {
  return InitAllocFloat(kTagMdctInv32f, reinterpret_cast<MdctSpec**>(ppSpec), len);
}

Status aklsMDCTFwdInitAlloc_16s(MDCTFwdSpec_16s** ppSpec, int len) {
  if (!ppSpec) return kStsNullPtr;
  if (!IsPow2Len(len)) return kStsSizeErr;
  // Header and Q14 table in one block: 40 bytes, padding to 64, N bytes.
  Akl8u* block = static_cast<Akl8u*>(AllocContextBytes(len + 104));
  if (!block) return kStsMemAllocErr;
  MdctSpec* s = ContextAt<MdctSpec>(block, kTransformContextAlign);
  std::memset(s, 0, sizeof(*s));
  s->tag = kTagMdctFwd16s;
  s->len = len;
  s->order = Log2(len / 4);
  s->ownedByLibrary = 1;
  FFTSpec_C_16sc* fft = nullptr;
  const Status st = fftInitAlloc_C_16sc(&fft, s->order, kFftFlagNoDivide, kFftHint);
  if (st != kStsOk) {
    Release(block);
    return st;
  }
  s->fft = fft;
  s->bufSize = ContextAt<FFTSpec_C_16sc>(fft, kTransformContextAlign)->workSize + 64 + 4 * (len / 4);
  Akl16s* table = AlignUp(reinterpret_cast<Akl16s*>(reinterpret_cast<Akl8u*>(s) + sizeof(MdctSpec)), 64);
  s->table = table;
  FillQ14Table(table, len);
  *ppSpec = reinterpret_cast<MDCTFwdSpec_16s*>(block);
  return kStsOk;
}

Status aklsMDCTFwdFree_32f(MDCTFwdSpec_32f* pSpec) { return FreeSpec(pSpec, kTagMdctFwd32f); }
Status aklsMDCTInvFree_32f(MDCTInvSpec_32f* pSpec) { return FreeSpec(pSpec, kTagMdctInv32f); }
Status aklsMDCTFwdFree_16s(MDCTFwdSpec_16s* pSpec) { return FreeSpec(pSpec, kTagMdctFwd16s); }

Status aklsMDCTFwdGetBufSize_32f(const MDCTFwdSpec_32f* pSpec, int* pSize) {
  return GetBufSize(pSpec, pSize, kTagMdctFwd32f);
}
Status aklsMDCTInvGetBufSize_32f(const MDCTInvSpec_32f* pSpec, int* pSize) {
  return GetBufSize(pSpec, pSize, kTagMdctInv32f);
}
Status aklsMDCTFwdGetBufSize_16s(const MDCTFwdSpec_16s* pSpec, int* pSize) {
  return GetBufSize(pSpec, pSize, kTagMdctFwd16s);
}

Status aklsMDCTFwd_32f(const Akl32f* pSrc, Akl32f* pDst, const MDCTFwdSpec_32f* pSpec, Akl8u* pBuffer) {
  if (!pSpec) return kStsNullPtr;
  const MdctSpec* s = TaggedContext<MdctSpec>(pSpec, kTransformContextAlign, kTagMdctFwd32f);
  if (!s) return kStsContextMismatch;
  if (!pSrc || !pDst) return kStsNullPtr;
  return WithWorkBuffer(*s, pBuffer,
                        [&](Akl8u* w) { MdctFwdKernel(*s, pSrc, pDst, reinterpret_cast<Akl32fc*>(w)); });
}

Status aklsMDCTInv_32f(const Akl32f* pSrc, Akl32f* pDst, const MDCTInvSpec_32f* pSpec, Akl8u* pBuffer) {
  if (!pSpec) return kStsNullPtr;
  const MdctSpec* s = TaggedContext<MdctSpec>(pSpec, kTransformContextAlign, kTagMdctInv32f);
  if (!s) return kStsContextMismatch;
  if (!pSrc || !pDst) return kStsNullPtr;
  return WithWorkBuffer(*s, pBuffer,
                        [&](Akl8u* w) { MdctInvKernel(*s, pSrc, pDst, reinterpret_cast<Akl32fc*>(w)); });
}

Status aklsMDCTFwd_32f_I(Akl32f* pSrcDst, const MDCTFwdSpec_32f* pSpec, Akl8u* pBuffer) {
  return transform::aklsMDCTFwd_32f(pSrcDst, pSrcDst, pSpec, pBuffer);
}

Status aklsMDCTInv_32f_I(Akl32f* pSrcDst, const MDCTInvSpec_32f* pSpec, Akl8u* pBuffer) {
  return transform::aklsMDCTInv_32f(pSrcDst, pSrcDst, pSpec, pBuffer);
}

Status aklsMDCTFwd_16s_Sfs(const Akl16s* pSrc, Akl16s* pDst, const MDCTFwdSpec_16s* pSpec, int scaleFactor,
                           Akl8u* pBuffer) {
  if (!pSpec) return kStsNullPtr;
  const MdctSpec* s = TaggedContext<MdctSpec>(pSpec, kTransformContextAlign, kTagMdctFwd16s);
  if (!s) return kStsContextMismatch;
  if (!pSrc || !pDst) return kStsNullPtr;
  return WithWorkBuffer(*s, pBuffer, [&](Akl8u* w) { MdctFwd16Kernel(*s, pSrc, pDst, scaleFactor, w); });
}

}  // namespace akl::transform
