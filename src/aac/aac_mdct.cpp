// The AAC filter bank on fixed-point data: the inverse transform with the
// four window sequences, sine and Kaiser-Bessel-derived windows and
// overlap-add (16-bit output, saturated), and the forward transform with the
// same windows.  The transforms are the library's general float MDCTs of
// 2048 and 256 points, built inside this context's own memory.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "aac/predict.hpp"
#include "core/exports.hpp"

namespace akl::aac {
namespace predict {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kLong = 2048, kShort = 256;
constexpr int kOnlyLong = 0, kLongStart = 1, kEightShort = 2, kLongStop = 3;

double BesselI0(double x) {
  double sum = 1.0, term = 1.0;
  for (int k = 1; k < 64; ++k) {
    term *= (x / (2.0 * k)) * (x / (2.0 * k));
    sum += term;
    if (term < 1e-22 * sum) break;
  }
  return sum;
}

// Byte layout of the context inside its memory, from the aligned header on.
struct Layout {
  int fwdLong, fwdShort, invLong, invShort;  // spec sizes of the general MDCTs
  int init;                                  // largest init scratch among them
  int windows;                               // bytes of the four rising halves
  int total;                                 // everything, alignment slack included
};

bool MakeLayout(Layout* l) {
  int spec = 0, init = 0, work = 0;
  int* sizes[4] = {&l->fwdLong, &l->fwdShort, &l->invLong, &l->invShort};
  const int lens[4] = {kLong, kShort, kLong, kShort};
  l->init = 0;
  for (int i = 0; i < 4; ++i) {
    const Status st = i < 2 ? akl::transform::aklsMDCTFwdGetSize_32f(lens[i], &spec, &init, &work)
                            : akl::transform::aklsMDCTInvGetSize_32f(lens[i], &spec, &init, &work);
    if (st != kStsOk || work > kMdctWorkBytes - 64) return false;
    *sizes[i] = (spec + 63) / 64 * 64 + 64;
    l->init = std::max(l->init, init);
  }
  l->windows = static_cast<int>(sizeof(float)) * 2 * (1024 + 128);
  l->total = static_cast<int>(kContextAlign) + (static_cast<int>(sizeof(MdctAacSpec)) + 63) / 64 * 64 + 64 +
             l->windows + l->fwdLong + l->fwdShort + l->invLong + l->invShort + l->init + 64;
  return true;
}

Status Build(void* raw, int owned) {
  Layout l{};
  if (!MakeLayout(&l)) return kStsErr;
  MdctAacSpec* s = ContextAt<MdctAacSpec>(raw, kContextAlign);
  std::memset(s, 0, sizeof(*s));
  Akl8u* p = AlignUp(reinterpret_cast<Akl8u*>(s) + sizeof(MdctAacSpec), 64);
  float* w = reinterpret_cast<float*>(p);
  SineRise(w, kLong);
  KbdRise(w + 1024, kLong, 4.0);
  SineRise(w + 2048, kShort);
  KbdRise(w + 2048 + 128, kShort, 6.0);
  s->riseLong[0] = w;
  s->riseLong[1] = w + 1024;
  s->riseShort[0] = w + 2048;
  s->riseShort[1] = w + 2048 + 128;
  p += l.windows;
  Akl8u* fl = p;
  Akl8u* fs = fl + l.fwdLong;
  Akl8u* il = fs + l.fwdShort;
  Akl8u* is = il + l.invLong;
  Akl8u* init = AlignUp(is + l.invShort, 64);
  MDCTFwdSpec_32f* f = nullptr;
  MDCTInvSpec_32f* v = nullptr;
  if (akl::transform::aklsMDCTFwdInit_32f(&f, kLong, fl, init) != kStsOk) return kStsErr;
  s->fwdLong = reinterpret_cast<const MDCTFwdSpec_32f*>(fl);
  if (akl::transform::aklsMDCTFwdInit_32f(&f, kShort, fs, init) != kStsOk) return kStsErr;
  s->fwdShort = reinterpret_cast<const MDCTFwdSpec_32f*>(fs);
  if (akl::transform::aklsMDCTInvInit_32f(&v, kLong, il, init) != kStsOk) return kStsErr;
  s->invLong = reinterpret_cast<const MDCTInvSpec_32f*>(il);
  if (akl::transform::aklsMDCTInvInit_32f(&v, kShort, is, init) != kStsOk) return kStsErr;
  s->invShort = reinterpret_cast<const MDCTInvSpec_32f*>(is);
  s->ownedByLibrary = owned;
  s->tag = kTagMdctAac;
  return kStsOk;
}

int ContextSize() {
  Layout l{};
  return MakeLayout(&l) ? l.total : 0;
}

void Inv(const MDCTInvSpec_32f* spec, const float* x, float* y) {
  alignas(64) Akl8u work[kMdctWorkBytes];
  akl::transform::aklsMDCTInv_32f(x, y, spec, work);
}
void Fwd(const MDCTFwdSpec_32f* spec, const float* x, float* y) {
  alignas(64) Akl8u work[kMdctWorkBytes];
  akl::transform::aklsMDCTFwd_32f(x, y, spec, work);
}

// The window of one long-block sequence over 2048 samples.
void LongWindow(const MdctAacSpec& s, int seq, int shape, int prev, float* w) {
  const float* rl_prev = s.riseLong[prev];
  const float* rl = s.riseLong[shape];
  const float* rs_prev = s.riseShort[prev];
  const float* rs = s.riseShort[shape];
  for (int n = 0; n < 1024; ++n) {
    if (seq == kLongStop) {
      w[n] = n < 448 ? 0.0f : n < 576 ? rs_prev[n - 448] : 1.0f;
    } else {
      w[n] = rl_prev[n];
    }
  }
  for (int n = 0; n < 1024; ++n) {
    if (seq == kLongStart) {
      w[1024 + n] = n < 448 ? 1.0f : n < 576 ? rs[575 - n] : 0.0f;
    } else {
      w[1024 + n] = rl[1023 - n];
    }
  }
}

}  // namespace

void SineRise(float* w, int n) {
  for (int i = 0; i < n / 2; ++i) w[i] = static_cast<float>(std::sin(kPi / n * (i + 0.5)));
}

void KbdRise(float* w, int n, double alpha) {
  const int half = n / 2;
  double total = 0.0;
  for (int j = 0; j <= half; ++j) {
    const double r = (j - n / 4.0) / (n / 4.0);
    total += BesselI0(kPi * alpha * std::sqrt(std::max(0.0, 1.0 - r * r)));
  }
  double acc = 0.0;
  for (int i = 0; i < half; ++i) {
    const double r = (i - n / 4.0) / (n / 4.0);
    acc += BesselI0(kPi * alpha * std::sqrt(std::max(0.0, 1.0 - r * r)));
    w[i] = static_cast<float>(std::sqrt(acc / total));
  }
}

void MdctInvAac(const MdctAacSpec& s, const Akl32s* src, float* out, Akl32s* overlap, int seq, int shape,
                int prev_shape) {
  alignas(64) float x[1024];
  alignas(64) float y[kLong];
  for (int i = 0; i < 1024; ++i) x[i] = static_cast<float>(src[i]);
  if (seq == kEightShort) {
    alignas(64) float z[kLong] = {};
    const float* rs_prev = s.riseShort[prev_shape];
    const float* rs = s.riseShort[shape];
    for (int j = 0; j < 8; ++j) {
      Inv(s.invShort, x + 128 * j, y);
      const float* rise = j == 0 ? rs_prev : rs;
      float* zw = z + 448 + 128 * j;
      for (int n = 0; n < 128; ++n) zw[n] += y[n] * rise[n];
      for (int n = 0; n < 128; ++n) zw[128 + n] += y[128 + n] * rs[127 - n];
    }
    for (int n = 0; n < 1024; ++n) {
      out[n] = z[n] + static_cast<float>(overlap[n]);
      overlap[n] = SatRound(z[1024 + n]);
    }
    return;
  }
  alignas(64) float w[kLong];
  LongWindow(s, seq, shape, prev_shape, w);
  Inv(s.invLong, x, y);
  for (int n = 0; n < 1024; ++n) out[n] = y[n] * w[n] + static_cast<float>(overlap[n]);
  for (int n = 0; n < 1024; ++n) overlap[n] = SatRound(y[1024 + n] * w[1024 + n]);
}

void MdctFwdAac(const MdctAacSpec& s, const Akl32s* src, Akl32s* dst, int seq, int shape, int prev_shape) {
  alignas(64) float f[kLong];
  for (int n = 0; n < kLong; ++n) f[n] = static_cast<float>(src[n]);
  MdctFwdAacFloat(s, f, dst, seq, shape, prev_shape);
}

void MdctFwdAacFloat(const MdctAacSpec& s, const float* src, Akl32s* dst, int seq, int shape, int prev_shape) {
  alignas(64) float x[kLong];
  alignas(64) float y[1024];
  if (seq == kEightShort) {
    const float* rs_prev = s.riseShort[prev_shape];
    const float* rs = s.riseShort[shape];
    alignas(64) float out[1024];
    for (int j = 0; j < 8; ++j) {
      const float* seg = src + 448 + 128 * j;
      const float* rise = j == 0 ? rs_prev : rs;
      for (int n = 0; n < 128; ++n) x[n] = seg[n] * rise[n];
      for (int n = 0; n < 128; ++n) x[128 + n] = seg[128 + n] * rs[127 - n];
      Fwd(s.fwdShort, x, y);
      std::memcpy(out + 128 * j, y, sizeof(float) * 128);
    }
    for (int k = 0; k < 1024; ++k) dst[k] = SatRound(out[k]);
    return;
  }
  alignas(64) float w[kLong];
  LongWindow(s, seq, shape, prev_shape, w);
  for (int n = 0; n < kLong; ++n) x[n] = src[n] * w[n];
  Fwd(s.fwdLong, x, y);
  for (int k = 0; k < 1024; ++k) dst[k] = SatRound(y[k]);
}

namespace {
// The checks the four transforms share, after their own null checks.
Status CheckSequence(Akl32s seq, Akl32s shape, Akl32s prev_shape) {
  if (static_cast<Akl32u>(seq) > 3u) return kStsAacWinSeqErr;
  if (static_cast<Akl32u>(shape) > 1u || static_cast<Akl32u>(prev_shape) > 1u) return kStsBadArgErr;
  return kStsOk;
}
inline Akl16s Sat16(float v) {
  const Akl32s r = SatRound(v);
  return static_cast<Akl16s>(std::clamp<Akl32s>(r, -32768, 32767));
}
}  // namespace
}  // namespace predict

using namespace predict;

Status aklsMDCTGetSize_AAC_32s(int* pSize) {
  if (!pSize) return kStsNullPtr;
  *pSize = ContextSize();
  return kStsOk;
}

Status aklsMDCTInit_AAC_32s(AklsMDCTSpec_AAC_32s* pSpec) {
  if (!pSpec) return kStsNullPtr;
  return Build(pSpec, 0);
}

Status aklsMDCTInitAlloc_AAC_32s(AklsMDCTSpec_AAC_32s** ppSpec) {
  if (!ppSpec) return kStsNullPtr;
  return InitAllocWith(ContextSize(), ppSpec, [](AklsMDCTSpec_AAC_32s* raw) { return Build(raw, 1); });
}

Status aklsMDCTFree_AAC_32s(AklsMDCTSpec_AAC_32s* pSpec) {
  return FreeKeepingTag<MdctAacSpec>(pSpec, kContextAlign, kTagMdctAac);
}

Status aklsMDCTInv_AAC_32s16s(const Akl32s* pSrc, Akl16s* pDst, Akl32s* pOverlap, Akl32s windowSequence,
                              Akl32s windowShape, Akl32s prevWindowShape, const AklsMDCTSpec_AAC_32s* pSpec) {
  if (!pSrc || !pDst || !pOverlap || !pSpec) return kStsNullPtr;
  if (const Status st = CheckSequence(windowSequence, windowShape, prevWindowShape); st != kStsOk) return st;
  const MdctAacSpec* s = TaggedContext<MdctAacSpec>(pSpec, kContextAlign, kTagMdctAac);
  if (!s) return kStsContextMismatch;
  alignas(64) float out[1024];
  MdctInvAac(*s, pSrc, out, pOverlap, windowSequence, windowShape, prevWindowShape);
  for (int n = 0; n < 1024; ++n) pDst[n] = Sat16(out[n] * 0.125f);
  return kStsOk;
}

Status aklsMDCTInv_AAC_32s_I(Akl32s* pSrcDst, Akl32s* pOverlap, Akl32s windowSequence, Akl32s windowShape,
                             Akl32s prevWindowShape, const AklsMDCTSpec_AAC_32s* pSpec) {
  if (!pSrcDst || !pOverlap || !pSpec) return kStsNullPtr;
  if (const Status st = CheckSequence(windowSequence, windowShape, prevWindowShape); st != kStsOk) return st;
  const MdctAacSpec* s = TaggedContext<MdctAacSpec>(pSpec, kContextAlign, kTagMdctAac);
  if (!s) return kStsContextMismatch;
  alignas(64) float out[1024];
  MdctInvAac(*s, pSrcDst, out, pOverlap, windowSequence, windowShape, prevWindowShape);
  for (int n = 0; n < 1024; ++n) pSrcDst[n] = SatRound(out[n]);
  return kStsOk;
}

Status aklsMDCTFwd_AAC_32s(const Akl32s* pSrc, Akl32s* pDst, Akl32s windowSequence, Akl32s windowShape,
                           Akl32s prevWindowShape, const AklsMDCTSpec_AAC_32s* pSpec) {
  if (!pSrc || !pDst || !pSpec) return kStsNullPtr;
  if (const Status st = CheckSequence(windowSequence, windowShape, prevWindowShape); st != kStsOk) return st;
  const MdctAacSpec* s = TaggedContext<MdctAacSpec>(pSpec, kContextAlign, kTagMdctAac);
  if (!s) return kStsContextMismatch;
  alignas(64) Akl32s tmp[1024];  // pDst may overlap pSrc
  MdctFwdAac(*s, pSrc, tmp, windowSequence, windowShape, prevWindowShape);
  std::memcpy(pDst, tmp, sizeof(tmp));
  return kStsOk;
}

Status aklsMDCTFwd_AAC_32s_I(Akl32s* pSrcDst, Akl32s windowSequence, Akl32s windowShape, Akl32s prevWindowShape,
                             const AklsMDCTSpec_AAC_32s* pSpec) {
  return akl::aac::aklsMDCTFwd_AAC_32s(pSrcDst, pSrcDst, windowSequence, windowShape, prevWindowShape, pSpec);
}

}  // namespace akl::aac
