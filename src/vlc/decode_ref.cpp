// Reference VLC block decoders: the straightforward per-code loops, kept
// beside the tuned kernels of decode.cpp so tests can compare the two on
// random streams and real code books (values, cursor and status).
//
// Every decoder keeps at least 32 stream bits in a 64-bit accumulator
// (WordReader) before a lookup, so a code of up to 32 bits is resolved from
// the accumulator's top bits without touching memory; the common case is one
// root-table load, one test of the leaf flag, a shift and a store.
#include <bit>
#include <cstdint>
#include <type_traits>

#include "core/exports.hpp"
#include "vlc/decode_ref.hpp"
#include "vlc/vlc.hpp"
#include "vlc/walker.hpp"

namespace akl::vlc::ref {
namespace {

// K codes per refill: a refill leaves at least 32 bits in hand, enough for K
// codes when K times the longest code fits in 32.
template <int K, class W>
void DecodeBlockUnrolled(const W& w, WordReader& r, Akl16s* out, int len) {
  int i = 0;
  for (; i + K <= len; i += K) {
    r.Refill();
    for (int k = 0; k < K; ++k) {
      int n;
      const std::uint32_t e = w.Lookup(r.Acc(), &n);
      r.Skip(n);
      out[i + k] = static_cast<Akl16s>(w.Value(e));
    }
  }
  for (; i < len; ++i) out[i] = static_cast<Akl16s>(DecodeValue(w, r));
}

template <class W>
void DecodeBlockKernel(const W& w, WordReader& reader, Akl16s* out, int len, int max_length) {
  WordReader r = reader;  // a local copy stays in registers
  if (max_length <= 10) {
    DecodeBlockUnrolled<3>(w, r, out, len);
  } else if (max_length <= 16) {
    DecodeBlockUnrolled<2>(w, r, out, len);
  } else {
    DecodeBlockUnrolled<1>(w, r, out, len);
  }
  reader = r;
}

template <class W>
Status EscAacKernel(const W& w, WordReader& reader, Akl16s* out, int pairs) {
  WordReader r = reader;
  for (int i = 0; i < pairs; ++i) {
    const int v = DecodeValue(w, r);
    int first = v >> 8;
    int second = (v & 0xFF) - 128;
    std::uint32_t mag;
    if (first == 16 || first == -16) {
      if (!ReadAacEscape(r, &mag)) return kStsVLCDataErr;
      first = first < 0 ? -static_cast<int>(mag) : static_cast<int>(mag);
    }
    if (second == 16 || second == -16) {
      if (!ReadAacEscape(r, &mag)) return kStsVLCDataErr;
      second = second < 0 ? -static_cast<int>(mag) : static_cast<int>(mag);
    }
    out[2 * i] = static_cast<Akl16s>(first);
    out[2 * i + 1] = static_cast<Akl16s>(second);
  }
  reader = r;
  return kStsOk;
}

template <class W>
void EscMp3Kernel(const W& w, WordReader& reader, int linbits, Akl16s* out, int pairs) {
  WordReader r = reader;
  for (int i = 0; i < pairs; ++i) {
    r.Refill();
    int n;
    const int v = w.Value(w.Lookup(r.Acc(), &n));
    const int x = v >> 8;
    const int y = (v & 0xFF) - 128;
    Akl16s xs = static_cast<Akl16s>(x);
    Akl16s ys = static_cast<Akl16s>(y);
    if (x == 15 || x == -15) {
      // The code's length counts x's sign bit and y's; they come after the
      // linbits field, so only the Huffman part is consumed here.
      const int signs = y != 0 ? 2 : 1;
      r.Skip(n > signs ? n - signs : 0);
      xs = ReadLinbits(r, linbits);
      if (y == 15 || y == -15) {
        ys = ReadLinbits(r, linbits);
      } else if (y != 0) {
        ys = Signed(static_cast<std::uint32_t>(y < 0 ? -y : y), r.ReadBit());
      }
    } else if (y == 15 || y == -15) {
      r.Skip(n > 1 ? n - 1 : 0);
      ys = ReadLinbits(r, linbits);
    } else {
      r.Skip(n);
    }
    out[2 * i] = xs;
    out[2 * i + 1] = ys;
  }
  reader = r;
}

template <bool InHand, class W>
Status TupleEscAacLoop(const W& w, WordReader& r, Akl16s* out, int pairs, int bits) {
  const std::uint32_t mask = LowMask(bits);
  for (int i = 0; i < pairs; ++i) {
    const auto v = static_cast<std::uint32_t>(DecodeValue(w, r));
    std::uint32_t first = static_cast<std::uint32_t>(std::uint64_t{v} >> bits) & mask;
    std::uint32_t second = v & mask;
    const bool neg_first = first != 0 && SignBit<InHand>(r);
    const bool neg_second = second != 0 && SignBit<InHand>(r);
    if (first == 16 && !ReadAacEscape(r, &first)) return kStsVLCDataErr;
    if (second == 16 && !ReadAacEscape(r, &second)) return kStsVLCDataErr;
    out[2 * i] = Signed(first, neg_first);
    out[2 * i + 1] = Signed(second, neg_second);
  }
  return kStsOk;
}

template <class W>
Status TupleEscAacKernel(const W& w, WordReader& reader, Akl16s* out, int pairs, int bits, int max_length) {
  WordReader r = reader;
  const Status st = max_length + 2 <= 32 ? TupleEscAacLoop<true>(w, r, out, pairs, bits)
                                         : TupleEscAacLoop<false>(w, r, out, pairs, bits);
  reader = r;
  return st;
}

template <bool InHand, class W>
void TupleEscMp3Loop(const W& w, WordReader& r, int linbits, Akl16s* out, int pairs, int bits) {
  const std::uint32_t mask = LowMask(bits);
  for (int i = 0; i < pairs; ++i) {
    const auto v = static_cast<std::uint32_t>(DecodeValue(w, r));
    const std::uint32_t x = static_cast<std::uint32_t>(std::uint64_t{v} >> bits) & mask;
    const std::uint32_t y = v & mask;
    if (x != 15 && y != 15) {
      out[2 * i] = x != 0 ? Signed(x, SignBit<InHand>(r)) : Akl16s{0};
      out[2 * i + 1] = y != 0 ? Signed(y, SignBit<InHand>(r)) : Akl16s{0};
      continue;
    }
    // Escapes: x's linbits, x's sign, y's linbits, y's sign.
    for (int k = 0; k < 2; ++k) {
      std::uint32_t mag = k == 0 ? x : y;
      if (mag == 15) mag += r.Read(linbits);
      out[2 * i + k] = mag != 0 ? Signed(mag, r.ReadBit()) : Akl16s{0};
    }
  }
}

template <class W>
void TupleEscMp3Kernel(const W& w, WordReader& reader, int linbits, Akl16s* out, int pairs, int bits,
                       int max_length) {
  WordReader r = reader;
  if (max_length + 2 <= 32) {
    TupleEscMp3Loop<true>(w, r, linbits, out, pairs, bits);
  } else {
    TupleEscMp3Loop<false>(w, r, linbits, out, pairs, bits);
  }
  reader = r;
}

}  // namespace

Status DecodeBlock_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kPlain, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  if (len < 1) return kStsOk;
  WordReader r = WordReader::AtAlignedWord(*ppBitStream, *pBitOffset);
  WithWalker(s, [&](const auto& w) { DecodeBlockKernel(w, r, pData, len, s.maxLength); });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status DecodeEscBlock_AAC_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                       const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kEscape, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  WordReader r = WordReader::AtBytePointer(*ppBitStream, *pBitOffset);
  const Status st = WithWalker(s, [&](const auto& w) { return EscAacKernel(w, r, pData, pairs); });
  if (st != kStsOk) return st;
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status DecodeEscBlock_MP3_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, int linbits, Akl16s* pData, int len,
                                       const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kEscape, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  WordReader r = WordReader::AtBytePointer(*ppBitStream, *pBitOffset);
  WithWalker(s, [&](const auto& w) { EscMp3Kernel(w, r, ClampLinbits(linbits), pData, pairs); });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status DecodeUTupleBlock_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                      const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kPlain, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int tuples = len / s.numElements;
  if (tuples < 1) return kStsOk;
  WordReader r = WordReader::AtAlignedWord(*ppBitStream, *pBitOffset);
  WithWalker(s, [&](const auto& w) { TupleKernel(w, r, pData, tuples, s.numElements, s.numValueBits, s.maxLength); });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status DecodeUTupleEscBlock_AAC_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, Akl16s* pData, int len,
                                             const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kEscape, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  WordReader r = WordReader::AtBytePointer(*ppBitStream, *pBitOffset);
  const Status st =
      WithWalker(s, [&](const auto& w) { return TupleEscAacKernel(w, r, pData, pairs, s.numValueBits, s.maxLength); });
  if (st != kStsOk) return st;
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

Status DecodeUTupleEscBlock_MP3_1u16sRef(Akl8u** ppBitStream, int* pBitOffset, int linbits, Akl16s* pData,
                                             int len, const aklsVLCDecodeSpec_32s* pSpec) {
  const DecodeSpec* ps = nullptr;
  if (const Status st = CheckDecodeArgs(ppBitStream, pBitOffset, pData, pSpec, ArgForm::kEscape, &ps); st != kStsOk)
    return st;
  const DecodeSpec& s = *ps;
  const int pairs = len / 2;
  if (pairs < 1) return kStsOk;
  WordReader r = WordReader::AtBytePointer(*ppBitStream, *pBitOffset);
  WithWalker(s, [&](const auto& w) {
    TupleEscMp3Kernel(w, r, ClampLinbits(linbits), pData, pairs, s.numValueBits, s.maxLength);
  });
  r.WriteBack(ppBitStream, pBitOffset);
  return kStsOk;
}

}  // namespace akl::vlc::ref
