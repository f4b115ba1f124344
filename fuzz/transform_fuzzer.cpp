// Transforms under hostile sizes and samples: the general MDCT (float both
// ways, 16-bit forward), the internal FFT kernels (float and 16-bit) and the
// block FIR.  Leading bytes choose the operation, the length or order, the
// flag, the scale factor and the misalignment of every caller block; the rest
// are the samples.  Every caller block (spec memory, init scratch, work
// buffer, input, output) is a heap block of exactly the size the library
// reports, so a write or read past it is an ASan report.  Samples given as raw
// floats may be NaN, infinite or denormal (no oracle then); bounded samples are
// checked against a double-precision formula for the smaller sizes.
#include <climits>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "aklac.h"
#include "fuzz_util.hpp"
#include "transform/fft.hpp"

namespace {

using akl::fuzz::Params;

void Trap(bool ok) {
  if (!ok) __builtin_trap();
}

// A heap block of exactly `size` bytes that starts `mis` bytes into its
// allocation, so its end is the allocation's end and ASan reports any access
// past it.
class Block {
 public:
  Block(std::size_t size, std::size_t mis)
      : raw_(static_cast<std::uint8_t*>(std::malloc(size + mis > 0 ? size + mis : 1))), mis_(mis) {
    std::memset(raw_, 0xA5, size + mis);
  }
  ~Block() { std::free(raw_); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  std::uint8_t* data() { return raw_ + mis_; }
  template <class T>
  T* as() {
    return reinterpret_cast<T*>(data());
  }

 private:
  std::uint8_t* raw_;
  std::size_t mis_;
};

// A scale factor: mostly small, sometimes anywhere in int (extremes included).
int ScaleFrom(Params& p, int small_range) {
  const int b = static_cast<std::int8_t>(p.Byte());
  if (b != -128) return b % small_range;
  static constexpr int kExtremes[] = {INT_MIN, INT_MIN + 1, -100000, -33, 33, 100000, INT_MAX - 1, INT_MAX};
  return kExtremes[p.Byte() % 8];
}

float SampleFrom(Params& p, bool raw) {
  const std::uint32_t bits = static_cast<std::uint32_t>(p.Byte()) | static_cast<std::uint32_t>(p.Byte()) << 8 |
                             static_cast<std::uint32_t>(p.Byte()) << 16 | static_cast<std::uint32_t>(p.Byte()) << 24;
  if (raw) {
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
  }
  return static_cast<float>(static_cast<std::int32_t>(bits)) / 2147483648.0f;  // -1..1
}

// y[k] = scale * sum x[n] cos(2 pi / N (n + 1/2 + N/4)(k + 1/2))
double MdctTerm(int n_len, int n, int k) {
  return std::cos(2.0 * M_PI / n_len * (n + 0.5 + n_len / 4.0) * (k + 0.5));
}

void FuzzMdct32f(Params& p, bool inverse) {
  static const int kLens[] = {12, 36, 32, 64, 128, 256, 512, 1024, 2048, 4096, 8192, 16, 24, 0, -32, 48};
  const int len = kLens[p.Byte() % 16];
  const std::uint8_t how = p.Byte();
  const bool raw = (how & 1) != 0;
  int spec_size = 0, init_size = 0, buf_size = 0;
  const Status gs = inverse ? aklsMDCTInvGetSize_32f(len, &spec_size, &init_size, &buf_size)
                            : aklsMDCTFwdGetSize_32f(len, &spec_size, &init_size, &buf_size);
  const bool valid = len == 12 || len == 36 || (len >= 32 && (len & (len - 1)) == 0);
  Trap(valid == (gs == kStsOk));
  if (!valid) {
    Trap(gs == kStsSizeErr);
    return;
  }
  Block spec_mem(static_cast<std::size_t>(spec_size), (how >> 1) % 64);
  Block init_mem(static_cast<std::size_t>(init_size), (how >> 2) % 16);
  void* spec = nullptr;
  Status st;
  const bool alloc = (how & 0x80) != 0;
  if (alloc) {
    st = inverse ? aklsMDCTInvInitAlloc_32f(reinterpret_cast<MDCTInvSpec_32f**>(&spec), len)
                 : aklsMDCTFwdInitAlloc_32f(reinterpret_cast<MDCTFwdSpec_32f**>(&spec), len);
  } else {
    // Only the lengths 12 and 36 may go without init memory.
    Akl8u* init = (len == 12 || len == 36) && (how & 0x40) ? nullptr : init_mem.data();
    st = inverse ? aklsMDCTInvInit_32f(reinterpret_cast<MDCTInvSpec_32f**>(&spec), len, spec_mem.data(), init)
                 : aklsMDCTFwdInit_32f(reinterpret_cast<MDCTFwdSpec_32f**>(&spec), len, spec_mem.data(), init);
  }
  Trap(st == kStsOk);
  int work = 0;
  st = inverse ? aklsMDCTInvGetBufSize_32f(static_cast<MDCTInvSpec_32f*>(spec), &work)
               : aklsMDCTFwdGetBufSize_32f(static_cast<MDCTFwdSpec_32f*>(spec), &work);
  Trap(st == kStsOk && work <= buf_size);
  if (alloc) {  // passed on at +1..63: refused by the tag test, nothing read past the block
    void* moved = static_cast<Akl8u*>(spec) + 1 + p.Byte() % 63;
    int w = 0;
    st = inverse ? aklsMDCTInvGetBufSize_32f(static_cast<MDCTInvSpec_32f*>(moved), &w)
                 : aklsMDCTFwdGetBufSize_32f(static_cast<MDCTFwdSpec_32f*>(moved), &w);
    Trap(st == kStsContextMismatch);
    st = inverse ? aklsMDCTInvFree_32f(static_cast<MDCTInvSpec_32f*>(moved))
                 : aklsMDCTFwdFree_32f(static_cast<MDCTFwdSpec_32f*>(moved));
    Trap(st == kStsContextMismatch);
  }
  const int in_len = inverse ? len / 2 : len;
  const int out_len = inverse ? len : len / 2;
  Block in(sizeof(float) * static_cast<std::size_t>(in_len), 4 * ((how >> 3) % 4));
  Block out(sizeof(float) * static_cast<std::size_t>(out_len), 4 * ((how >> 5) % 4));
  Block buf(static_cast<std::size_t>(work), (how >> 4) % 64);
  float* x = in.as<float>();
  for (int i = 0; i < in_len; ++i) x[i] = SampleFrom(p, raw);
  std::vector<float> x_copy(x, x + in_len);
  Akl8u* b = (how & 0x20) ? nullptr : buf.data();
  const bool in_place = (how & 0x04) != 0 && !inverse;
  if (in_place) {
    st = aklsMDCTFwd_32f_I(x, static_cast<MDCTFwdSpec_32f*>(spec), b);
  } else {
    st = inverse ? aklsMDCTInv_32f(x, out.as<float>(), static_cast<MDCTInvSpec_32f*>(spec), b)
                 : aklsMDCTFwd_32f(x, out.as<float>(), static_cast<MDCTFwdSpec_32f*>(spec), b);
  }
  Trap(st == kStsOk);
  const float* y = in_place ? x : out.as<float>();
  if (!raw && len <= 512) {
    // Forward carries a factor 2, inverse 2/N.  Float error grows with log N;
    // 1e-4 of the input's scale is generous for these sizes.
    double peak = 0, err = 0;
    for (int k = 0; k < out_len; ++k) {
      double want = 0;
      if (inverse) {
        for (int n = 0; n < in_len; ++n) want += x_copy[static_cast<std::size_t>(n)] * MdctTerm(len, k, n);
        want *= 2.0 / len;
      } else {
        for (int n = 0; n < in_len; ++n) want += x_copy[static_cast<std::size_t>(n)] * MdctTerm(len, n, k);
        want *= 2.0;
      }
      peak = std::max(peak, std::fabs(want));
      err = std::max(err, std::fabs(want - y[k]));
    }
    Trap(err <= 1e-4 * (peak + 1.0) * std::sqrt(static_cast<double>(len)));
  }
  st = inverse ? aklsMDCTInvFree_32f(static_cast<MDCTInvSpec_32f*>(spec))
               : aklsMDCTFwdFree_32f(static_cast<MDCTFwdSpec_32f*>(spec));
  Trap(st == kStsOk);
}

void FuzzMdct16s(Params& p) {
  const int len = 1 << (p.Byte() % 14);  // 1..8192; below 32 refused
  const std::uint8_t how = p.Byte();
  const int scale = ScaleFrom(p, 48);
  int spec_size = 0, init_size = 0, buf_size = 0;
  const Status gs = aklsMDCTFwdGetSize_16s(len, &spec_size, &init_size, &buf_size);
  if (len < 32) {
    Trap(gs == kStsSizeErr);
    return;
  }
  Trap(gs == kStsOk);
  Block spec_mem(static_cast<std::size_t>(spec_size), (how >> 1) % 64);
  Block init_mem(static_cast<std::size_t>(init_size), (how >> 2) % 16);
  MDCTFwdSpec_16s* spec = nullptr;
  Status st = (how & 0x80) ? aklsMDCTFwdInitAlloc_16s(&spec, len)
                           : aklsMDCTFwdInit_16s(&spec, len, spec_mem.data(), init_mem.data());
  Trap(st == kStsOk);
  int work = 0;
  Trap(aklsMDCTFwdGetBufSize_16s(spec, &work) == kStsOk && work <= buf_size);
  Block in(2 * static_cast<std::size_t>(len), 2 * ((how >> 3) % 8));
  Block out(2 * static_cast<std::size_t>(len / 2), 2 * ((how >> 4) % 8));
  Block buf(static_cast<std::size_t>(work), (how >> 5) % 64);
  auto* x = in.as<Akl16s>();
  for (int i = 0; i < len; ++i) x[i] = static_cast<Akl16s>(p.Byte() | p.Byte() << 8);
  st = aklsMDCTFwd_16s_Sfs(x, out.as<Akl16s>(), spec, scale, (how & 1) ? nullptr : buf.data());
  Trap(st == kStsOk);
  if (how & 0x80) {  // an InitAlloc'ed context passed on at +1..63 is refused, nothing read past its block
    auto* moved = reinterpret_cast<MDCTFwdSpec_16s*>(reinterpret_cast<Akl8u*>(spec) + 1 + p.Byte() % 63);
    Trap(aklsMDCTFwd_16s_Sfs(x, out.as<Akl16s>(), moved, scale, nullptr) == kStsContextMismatch);
    Trap(aklsMDCTFwdFree_16s(moved) == kStsContextMismatch);
  }
  Trap(aklsMDCTFwdFree_16s(spec) == kStsOk);
}

void FuzzFft32(Params& p) {
  using namespace akl::transform;
  const int order = p.Byte() % 15;
  static const int kFlags[] = {8, 4, 1, 2, 3, 0};
  const int flag = kFlags[p.Byte() % 6];
  const std::uint8_t how = p.Byte();
  const bool raw = (how & 1) != 0;
  int spec_size = 0, init_size = 0, work_size = 0;
  const Status gs = fftGetSize_C_32fc(order, flag, 0, &spec_size, &init_size, &work_size);
  if (flag != 8 && flag != 4 && flag != 1 && flag != 2) {
    Trap(gs == kStsFftFlagErr);
    return;
  }
  Trap(gs == kStsOk);
  Block spec_mem(static_cast<std::size_t>(spec_size), (how >> 1) % 64);
  Block init_mem(static_cast<std::size_t>(init_size), (how >> 2) % 16);
  FFTSpec_C_32fc* spec = nullptr;
  Status st = (how & 0x80) ? fftInitAlloc_C_32fc(&spec, order, flag, 0)
                           : fftInit_C_32fc(&spec, order, flag, 0, spec_mem.data(), init_mem.data());
  Trap(st == kStsOk);
  int buf_size = 0;
  Trap(fftGetBufSize_C_32fc(spec, &buf_size) == kStsOk);
  const std::size_t m = std::size_t{1} << order;
  Block in(sizeof(Akl32fc) * m, 8 * ((how >> 3) % 2));
  Block out(sizeof(Akl32fc) * m, 8 * ((how >> 4) % 2));
  Block buf(static_cast<std::size_t>(buf_size), (how >> 5) % 64);
  auto* x = in.as<Akl32fc>();
  for (std::size_t i = 0; i < m; ++i) x[i] = {SampleFrom(p, raw), SampleFrom(p, raw)};
  std::vector<Akl32fc> x_copy(x, x + m);
  const bool in_place = (how & 0x40) != 0;
  Akl32fc* y = in_place ? x : out.as<Akl32fc>();
  st = fftFwd_CToC_32fc(x, y, spec, (how & 0x20) ? nullptr : buf.data());
  Trap(st == kStsOk);
  if (!raw && order <= 9) {
    const double scale = flag == 4 ? 1.0 / std::sqrt(static_cast<double>(m)) : flag == 1 ? 1.0 / m : 1.0;
    double peak = 0, err = 0;
    for (std::size_t k = 0; k < m; ++k) {
      std::complex<double> want = 0;
      for (std::size_t n = 0; n < m; ++n) {
        want += std::complex<double>(x_copy[n].re, x_copy[n].im) *
                std::polar(1.0, -2.0 * M_PI * static_cast<double>((n * k) % m) / static_cast<double>(m));
      }
      want *= scale;
      peak = std::max(peak, std::abs(want));
      err = std::max(err, std::abs(want - std::complex<double>(y[k].re, y[k].im)));
    }
    Trap(err <= 1e-4 * (peak + 1.0));
  }
  if (!(how & 0x80)) return;
  Trap(fftFree_C_32fc(spec) == kStsOk);
}

void FuzzFft16(Params& p) {
  using namespace akl::transform;
  const int order = p.Byte() % 14;
  static const int kFlags[] = {8, 4, 1, 2};
  const int flag = kFlags[p.Byte() % 4];
  const int hint = p.Byte() % 3;
  const std::uint8_t how = p.Byte();
  const int scale = ScaleFrom(p, 40);
  int spec_size = 0, init_size = 0, work_size = 0;
  Trap(fftGetSize_C_16sc(order, flag, hint, &spec_size, &init_size, &work_size) == kStsOk);
  Block spec_mem(static_cast<std::size_t>(spec_size), (how >> 1) % 64);
  Block init_mem(static_cast<std::size_t>(init_size), (how >> 2) % 16);
  FFTSpec_C_16sc* spec = nullptr;
  Status st = (how & 0x80) ? fftInitAlloc_C_16sc(&spec, order, flag, hint)
                           : fftInit_C_16sc(&spec, order, flag, hint, spec_mem.data(), init_mem.data());
  Trap(st == kStsOk);
  int buf_size = 0;
  Trap(fftGetBufSize_C_16sc(spec, &buf_size) == kStsOk);
  const std::size_t m = std::size_t{1} << order;
  Block in(sizeof(Akl16sc) * m, 4 * ((how >> 3) % 4));
  Block out(sizeof(Akl16sc) * m, 4 * ((how >> 4) % 4));
  Block buf(static_cast<std::size_t>(buf_size), (how >> 5) % 64);
  auto* x = in.as<Akl16sc>();
  for (std::size_t i = 0; i < m; ++i) {
    x[i].re = static_cast<Akl16s>(p.Byte() | p.Byte() << 8);
    x[i].im = static_cast<Akl16s>(p.Byte() | p.Byte() << 8);
  }
  Akl16sc* y = (how & 0x40) ? x : out.as<Akl16sc>();
  st = fftFwd_CToC_16sc_Sfs(x, y, spec, scale, (how & 1) ? nullptr : buf.data());
  Trap(st == kStsOk);
  if (how & 0x80) Trap(fftFree_C_16sc(spec) == kStsOk);
}

void FuzzFir(Params& p) {
  int order = p.Int(-1, 24);
  int len = p.Int(-1, 400);
  const std::uint8_t how = p.Byte();
  if ((how & 0x81) == 0x81) {  // any int: only the low 16 bits are kept, nothing overflows
    static constexpr int kExtremes[] = {INT_MIN, -65536, 65536 + 3, 65536 * 2 + 5, 32767, 40000, INT_MAX - 3, INT_MAX};
    if (how & 2) order = kExtremes[p.Byte() % 8];
    if (how & 4) len = kExtremes[p.Byte() % 8];
    FIRBlockState_32f* st = nullptr;
    const Status s = aklsFIRBlockInitAlloc_32f(&st, order, len);
    if (order <= 0 || len <= 0) {
      Trap(s == kStsFIRLenErr);
      return;
    }
    if (s != kStsOk) {
      Trap(s == kStsMemAllocErr);  // a kept size too large for the allocator
      return;
    }
    const int kept_order = static_cast<Akl16s>(order), kept_len = static_cast<Akl16s>(len);
    std::vector<float> small(64, 1.0f);
    const bool usable = kept_order > 0 && kept_len > 0 && kept_order <= 64 && kept_len <= 64;
    if (usable || kept_order <= 0 || kept_len <= 0 || kept_len > 32764) {
      const Status r = aklsFIRBlockOne_32f(small.data(), small.data(), st, small.data());
      Trap(usable ? (r == kStsOk || r == kStsMisalignedWarn) : r == kStsFIRLenErr);
    }
    auto* moved = reinterpret_cast<FIRBlockState_32f*>(reinterpret_cast<Akl8u*>(st) + 1 + p.Byte() % 63);
    Trap(aklsFIRBlockFree_32f(moved) == kStsContextMismatch);
    Trap(aklsFIRBlockFree_32f(st) == kStsOk);
    return;
  }
  FIRBlockState_32f* st = nullptr;
  const Status s = aklsFIRBlockInitAlloc_32f(&st, order, len);
  if (order <= 0 || len <= 0) {
    Trap(s == kStsFIRLenErr);
    return;
  }
  Trap(s == kStsOk);
  const int calls = 1 + p.Byte() % 8;
  std::vector<std::vector<float>> history;
  Block taps(sizeof(float) * static_cast<std::size_t>(order), 4 * ((how >> 1) % 4));
  for (int i = 0; i < order; ++i) taps.as<float>()[i] = SampleFrom(p, false);
  for (int c = 0; c < calls; ++c) {
    Block in(sizeof(float) * static_cast<std::size_t>(len), 4 * ((how >> 3) % 4));
    Block out(sizeof(float) * static_cast<std::size_t>(len), 4 * ((how >> 5) % 4));
    for (int i = 0; i < len; ++i) in.as<float>()[i] = SampleFrom(p, false);
    history.emplace_back(in.as<float>(), in.as<float>() + len);
    const Status r = aklsFIRBlockOne_32f(in.as<float>(), out.as<float>(), st, taps.as<float>());
    Trap(r == kStsOk || r == kStsMisalignedWarn);
    // out[i] = sum_t taps[t] * block(now - t)[i], blocks before the first zero.
    for (int i = 0; i < len; ++i) {
      double want = 0, mag = 0;
      for (int t = 0; t < order && t <= c; ++t) {
        const double term = static_cast<double>(taps.as<float>()[t]) *
                            history[static_cast<std::size_t>(c - t)][static_cast<std::size_t>(i)];
        want += term;
        mag += std::fabs(term);
      }
      Trap(std::fabs(want - out.as<float>()[i]) <= 1e-5 * (mag + 1e-30) + 1e-30);
    }
  }
  Trap(aklsFIRBlockFree_32f(st) == kStsOk);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Params p(data, size);
  switch (p.Byte() % 6) {
    case 0:
      FuzzMdct32f(p, false);
      break;
    case 1:
      FuzzMdct32f(p, true);
      break;
    case 2:
      FuzzMdct16s(p);
      break;
    case 3:
      FuzzFft32(p);
      break;
    case 4:
      FuzzFft16(p);
      break;
    default:
      FuzzFir(p);
      break;
  }
  return 0;
}
