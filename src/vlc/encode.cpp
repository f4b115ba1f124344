// VLC encoding context, encoders and bit counters.
//
// The escape encoders and their counters share one routine per escape rule,
// run once with the word writer and once with a bit-counting sink, so a count
// always equals what the matching encoder writes.
#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>

#include "core/exports.hpp"
#include "vlc/vlc.hpp"

namespace akl::vlc {
namespace {

// Widest index range whose context size still fits in an int.
inline constexpr int kMaxIndexBits = 27;
inline constexpr int kEncodeSizeSlack = 128;  // 64 of header, 64 of alignment

// AAC escapes reach 2^13 - 1 (eight leading ones); Layer III linbits are at most 13.
inline constexpr int kAacEscapeMax = 8191;
inline constexpr int kMaxLinbits = 13;

struct EncodeLayout {
  int smallest = 0;
  int index_bits = 0;
  int bytes = 0;
};

Status AnalyseEncode(const VlcCodeEntry* table, int n, EncodeLayout* out) {
  if (n < 1) return kStsVLCDataErr;
  int lo = table[0].value;
  int hi = table[0].value;
  for (int i = 1; i < n; ++i) {
    lo = std::min(lo, table[i].value);
    hi = std::max(hi, table[i].value);
  }
  // k: binary digits of (largest - smallest + 1).
  const auto span = static_cast<std::uint64_t>(static_cast<std::int64_t>(hi) - lo + 1);
  const int k = 64 - std::countl_zero(span);
  if (k > kMaxIndexBits) return kStsVLCDataErr;
  out->smallest = lo;
  out->index_bits = k;
  out->bytes = kEncodeSizeSlack + 8 * (1 << k);
  return kStsOk;
}

void BuildEncode(void* raw, const EncodeLayout& lay, const VlcCodeEntry* table, int n, int owned) {
  auto* ctx = ContextAt<EncodeSpec>(raw, kVlcContextAlign);
  auto* t = reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(ctx) + kEncodeTableOffset);
  const std::size_t slots = std::size_t{1} << lay.index_bits;
  // Slots of values the book lacks hold length 0, so encoding one writes nothing.
  std::fill(t, t + 2 * slots, 0u);
  // Last entry first: of two entries with one value the first in the book wins.
  for (int i = n - 1; i >= 0; --i) {
    const VlcCodeEntry& e = table[i];
    const auto idx = static_cast<std::size_t>(static_cast<std::int64_t>(e.value) - lay.smallest);
    const int len = std::clamp(e.length, 0, 32);
    t[idx] = static_cast<std::uint32_t>(len);
    t[slots + idx] = static_cast<std::uint32_t>(e.code) & LowMask(len);
  }
  ctx->table = t;
  ctx->valueOffset = static_cast<Akl32s>(-static_cast<std::int64_t>(lay.smallest));
  ctx->indexBits = lay.index_bits;
  ctx->ownedByLibrary = owned;
  ctx->tag = kTagVlcEncode;
}

// (code, length) of a value; values outside the book's range wrap into it.
class CodeTable {
 public:
  explicit CodeTable(const EncodeSpec& s)
      : lengths_(s.table),
        codes_(s.table + (std::size_t{1} << s.indexBits)),
        offset_(static_cast<std::uint32_t>(s.valueOffset)),
        mask_(LowMask(s.indexBits)) {}
  std::size_t Index(int value) const { return (static_cast<std::uint32_t>(value) + offset_) & mask_; }
  int Length(int value) const { return static_cast<int>(lengths_[Index(value)]); }
  std::uint32_t Code(int value) const { return codes_[Index(value)]; }

 private:
  const std::uint32_t* lengths_;
  const std::uint32_t* codes_;
  std::uint32_t offset_;
  std::uint32_t mask_;
};

struct BitCounter {
  std::int64_t bits = 0;
  void Write(std::uint32_t, int n) { bits += n; }
};

int Magnitude(Akl16s v) { return v < 0 ? -static_cast<int>(v) : v; }
std::uint32_t SignBit(Akl16s v) { return v < 0 ? 1u : 0u; }
int PackPair(int first, int second) { return first * 256 + second + 128; }

// AAC: code of the pair with elements clipped to +-16, then an escape for
// each element of magnitude 16 or more: N ones, a zero and N + 4 bits, with
// 2^(N+4) the largest power of two not above the magnitude.
template <class Sink>
void EscAacPairs(const CodeTable& ct, const Akl16s* src, int pairs, Sink& sink) {
  for (int i = 0; i < pairs; ++i) {
    const Akl16s a = src[2 * i];
    const Akl16s b = src[2 * i + 1];
    const int packed = PackPair(std::clamp<int>(a, -16, 16), std::clamp<int>(b, -16, 16));
    sink.Write(ct.Code(packed), ct.Length(packed));
    for (const Akl16s v : {a, b}) {
      const auto mag = static_cast<std::uint32_t>(Magnitude(v));
      if (mag < 16) continue;
      const int n = 31 - std::countl_zero(mag) - 4;  // 0..8
      sink.Write((LowMask(n) << (n + 5)) | (mag & LowMask(n + 4)), 2 * n + 5);
    }
  }
}

// Layer III: the book's codes include the sign bits of non-zero elements.  An
// element of magnitude 15 or more is coded as +-15; its sign moves behind its
// linbits field (magnitude - 15), so the code is cut before the signs that
// follow the escaped element.
template <class Sink>
void EscMp3Pairs(const CodeTable& ct, const Akl16s* src, int pairs, int linbits, Sink& sink) {
  for (int i = 0; i < pairs; ++i) {
    const Akl16s x = src[2 * i];
    const Akl16s y = src[2 * i + 1];
    const int mx = Magnitude(x);
    const int my = Magnitude(y);
    const int packed = PackPair(std::clamp<int>(x, -15, 15), std::clamp<int>(y, -15, 15));
    const std::uint32_t code = ct.Code(packed);
    const int n = ct.Length(packed);
    auto put_escaped = [&](int mag, Akl16s v) {
      sink.Write((static_cast<std::uint32_t>(mag - 15) << 1) | SignBit(v), linbits + 1);
    };
    if (mx >= 15) {
      const int signs = y != 0 ? 2 : 1;
      const int head = std::max(n - signs, 0);
      sink.Write(head > 0 ? code >> (n - head) : 0u, head);
      put_escaped(mx, x);
      if (my >= 15) {
        put_escaped(my, y);
      } else if (y != 0) {
        sink.Write(SignBit(y), 1);
      }
    } else if (my >= 15) {
      const int head = std::max(n - 1, 0);
      sink.Write(head > 0 ? code >> (n - head) : 0u, head);
      put_escaped(my, y);
    } else {
      sink.Write(code, n);
    }
  }
}

bool AacValuesInRange(const Akl16s* src, int count) {
  for (int i = 0; i < count; ++i) {
    if (Magnitude(src[i]) > kAacEscapeMax) return false;
  }
  return true;
}

bool Mp3ValuesInRange(const Akl16s* src, int count, int linbits) {
  const int limit = 15 + (1 << linbits) - 1;
  for (int i = 0; i < count; ++i) {
    if (Magnitude(src[i]) > limit) return false;
  }
  return true;
}

int SaturatedCount(std::int64_t bits) { return static_cast<int>(std::min<std::int64_t>(bits, INT_MAX)); }

bool BadOffset(int offset) { return static_cast<unsigned>(offset) > 7u; }
bool BadLinbits(int linbits) { return linbits < 0 || linbits > kMaxLinbits; }

}  // namespace

Status aklsVLCEncodeGetSize_32s(const VlcCodeEntry* pInputTable, int inputTableSize, int* pSize) {
  if (!pInputTable || !pSize) return kStsNullPtr;
  EncodeLayout lay;
  if (const Status st = AnalyseEncode(pInputTable, inputTableSize, &lay); st != kStsOk) return st;
  *pSize = lay.bytes;
  return kStsOk;
}

Status aklsVLCEncodeInit_32s(const VlcCodeEntry* pInputTable, int inputTableSize, aklsVLCEncodeSpec_32s* pSpec) {
  if (!pInputTable || !pSpec) return kStsNullPtr;
  EncodeLayout lay;
  if (const Status st = AnalyseEncode(pInputTable, inputTableSize, &lay); st != kStsOk) return st;
  BuildEncode(pSpec, lay, pInputTable, inputTableSize, 0);
  return kStsOk;
}

Status aklsVLCEncodeInitAlloc_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                  aklsVLCEncodeSpec_32s** ppSpec) {
  if (!pInputTable || !ppSpec) return kStsNullPtr;
  EncodeLayout lay;
  if (const Status st = AnalyseEncode(pInputTable, inputTableSize, &lay); st != kStsOk) return st;
  return InitAllocWith(lay.bytes, ppSpec, [&](aklsVLCEncodeSpec_32s* raw) {
    BuildEncode(raw, lay, pInputTable, inputTableSize, 1);
    return kStsOk;
  });
}

void aklsVLCEncodeFree_32s(aklsVLCEncodeSpec_32s* pSpec) {
  FreeClearingTag<EncodeSpec>(static_cast<void*>(pSpec), kVlcContextAlign,
                              [](const EncodeSpec& c) { return IsEncodeContext(c); });
}

// The plain encoders check the offset with the tag (one status for both),
// so a bad offset can never address memory outside the cursor's word.
Status aklsVLCEncodeOne_16s1u(Akl16s value, Akl8u** ppBitStream, int* pBitOffset,
                              const aklsVLCEncodeSpec_32s* pSpec) {
  if (!ppBitStream || !*ppBitStream || !pBitOffset || !pSpec) return kStsNullPtr;
  const EncodeSpec& s = *EncodeSpecAt(pSpec);
  if (BadOffset(*pBitOffset) || !IsEncodeContext(s)) return kStsVLCDataErr;
  const CodeTable ct(s);
  WordWriter w(*ppBitStream, *pBitOffset);
  w.Write(ct.Code(value), ct.Length(value));
  w.Finish(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCEncodeBlock_16s1u(const Akl16s* pSrc, int len, Akl8u** ppBitStream, int* pBitOffset,
                                const aklsVLCEncodeSpec_32s* pSpec) {
  if (!pSrc || !ppBitStream || !*ppBitStream || !pBitOffset || !pSpec) return kStsNullPtr;
  const EncodeSpec& s = *EncodeSpecAt(pSpec);
  if (BadOffset(*pBitOffset) || !IsEncodeContext(s)) return kStsVLCDataErr;
  if (len < 1) return kStsOk;
  const CodeTable ct(s);
  WordWriter w(*ppBitStream, *pBitOffset);
  for (int i = 0; i < len; ++i) w.Write(ct.Code(pSrc[i]), ct.Length(pSrc[i]));
  w.Finish(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCEncodeEscBlock_AAC_16s1u(const Akl16s* pSrc, int len, Akl8u** ppBitStream, int* pBitOffset,
                                       const aklsVLCEncodeSpec_32s* pSpec) {
  if (!pSrc || !ppBitStream || !*ppBitStream || !pBitOffset || !pSpec) return kStsNullPtr;
  if (BadOffset(*pBitOffset)) return kStsBitOffsetErr;
  const EncodeSpec& s = *EncodeSpecAt(pSpec);
  if (!IsEncodeContext(s)) return kStsContextMismatch;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  if (!AacValuesInRange(pSrc, 2 * pairs)) return kStsVLCEscValueErr;
  WordWriter w(*ppBitStream, *pBitOffset);
  EscAacPairs(CodeTable(s), pSrc, pairs, w);
  w.Finish(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCEncodeEscBlock_MP3_16s1u(const Akl16s* pSrc, int len, int linbits, Akl8u** ppBitStream,
                                       int* pBitOffset, const aklsVLCEncodeSpec_32s* pSpec) {
  if (!pSrc || !ppBitStream || !*ppBitStream || !pBitOffset || !pSpec) return kStsNullPtr;
  if (BadOffset(*pBitOffset)) return kStsBitOffsetErr;
  if (BadLinbits(linbits)) return kStsVLCLinbitsErr;
  const EncodeSpec& s = *EncodeSpecAt(pSpec);
  if (!IsEncodeContext(s)) return kStsContextMismatch;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  if (!Mp3ValuesInRange(pSrc, 2 * pairs, linbits)) return kStsVLCEscValueErr;
  WordWriter w(*ppBitStream, *pBitOffset);
  EscMp3Pairs(CodeTable(s), pSrc, pairs, linbits, w);
  w.Finish(ppBitStream, pBitOffset);
  return kStsOk;
}

Status aklsVLCCountBits_16s32s(const Akl16s* pSrc, int len, int* pCountBits, const aklsVLCEncodeSpec_32s* pSpec) {
  if (!pSrc || !pCountBits || !pSpec) return kStsNullPtr;
  if (len < 1) return kStsVLCDataErr;
  const EncodeSpec& s = *EncodeSpecAt(pSpec);
  if (!IsEncodeContext(s)) return kStsVLCDataErr;
  const CodeTable ct(s);
  std::int64_t bits = 0;
  for (int i = 0; i < len; ++i) bits += ct.Length(pSrc[i]);
  *pCountBits = SaturatedCount(bits);
  return kStsOk;
}

Status aklsVLCCountEscBits_AAC_16s32s(const Akl16s* pSrc, int len, int* pCountBits,
                                      const aklsVLCEncodeSpec_32s* pSpec) {
  if (!pSrc || !pCountBits || !pSpec) return kStsNullPtr;
  const EncodeSpec& s = *EncodeSpecAt(pSpec);
  if (!IsEncodeContext(s)) return kStsContextMismatch;
  const int pairs = len > 1 ? len / 2 : 0;
  if (!AacValuesInRange(pSrc, 2 * pairs)) return kStsVLCEscValueErr;
  BitCounter counter;
  EscAacPairs(CodeTable(s), pSrc, pairs, counter);
  *pCountBits = SaturatedCount(counter.bits);
  return kStsOk;
}

Status aklsVLCCountEscBits_MP3_16s32s(const Akl16s* pSrc, int len, int linbits, int* pCountBits,
                                      const aklsVLCEncodeSpec_32s* pSpec) {
  if (!pSrc || !pCountBits || !pSpec) return kStsNullPtr;
  if (BadLinbits(linbits)) return kStsVLCLinbitsErr;
  const EncodeSpec& s = *EncodeSpecAt(pSpec);
  if (!IsEncodeContext(s)) return kStsContextMismatch;
  const int pairs = len > 1 ? len / 2 : 0;
  if (!Mp3ValuesInRange(pSrc, 2 * pairs, linbits)) return kStsVLCEscValueErr;
  BitCounter counter;
  EscMp3Pairs(CodeTable(s), pSrc, pairs, linbits, counter);
  *pCountBits = SaturatedCount(counter.bits);
  return kStsOk;
}

}  // namespace akl::vlc
