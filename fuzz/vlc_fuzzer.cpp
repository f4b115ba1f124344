// VLC engine under hostile input.  The first bytes grow a random prefix code
// (a binary tree split leaf by leaf, so the book is prefix-free by
// construction, optionally with one leaf dropped so some streams reach empty
// slots), give it values shaped for one decoder family, and choose sub-table
// sizes.  The context is built with GetSize/Init in a heap block of exactly
// the reported size (at a random misalignment) or with InitAlloc.  Then one
// decoder runs:
//   - on a stream synthesised from leaf choices, for the plain decoders, whose
//     values must come back exactly (the oracle);
//   - on the remaining raw bytes, for every decoder.
// Each decode runs twice: first over a generously padded copy to learn how
// many bits it consumes, then over a block that ends at the aligned word after
// the last bit used, where any read beyond the contract is an ASan report and
// the result must be identical.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <vector>

#include "aklac.h"
#include "fuzz_util.hpp"
#include "vlc/vlc.hpp"

namespace {

using akl::fuzz::Params;

enum Mode { kPlain, kEscAac, kEscMp3, kTuple, kTupleEscAac, kTupleEscMp3, kNumModes };

struct Leaf {
  std::uint32_t code;
  int length;
};

struct Book {
  std::vector<VlcCodeEntry> entries;
  std::vector<int> sub_sizes;
  int num_elements = 0;
  int num_value_bits = 0;
  int max_length = 0;
  bool complete = true;
};

void Trap(bool ok) {
  if (!ok) __builtin_trap();
}

// Grows the tree: every split replaces a leaf by its two children.
std::vector<Leaf> GrowTree(Params& p) {
  const int max_len = 1 + p.Byte() % 32;
  const int splits = 1 + p.Byte() % 80;
  std::vector<Leaf> leaves{{0u, 1}, {1u, 1}};
  for (int i = 0; i < splits; ++i) {
    const std::size_t k = p.Byte() % leaves.size();
    if (leaves[k].length >= max_len) continue;
    const Leaf l = leaves[k];
    leaves[k] = {l.code << 1, l.length + 1};
    leaves.push_back({(l.code << 1) | 1u, l.length + 1});
  }
  return leaves;
}

int SignedByte(Params& p, int magnitude) {  // -magnitude..magnitude
  return static_cast<int>(p.Byte() % (2 * magnitude + 1)) - magnitude;
}

Book MakeBook(Params& p, Mode mode) {
  Book b;
  std::vector<Leaf> leaves = GrowTree(p);
  if (p.Byte() & 1) {  // drop a leaf: the code is then incomplete
    leaves.erase(leaves.begin() + static_cast<std::ptrdiff_t>(p.Byte() % leaves.size()));
    b.complete = false;
  }
  switch (mode) {
    case kTuple: {
      // Mostly small shapes; sometimes the extremes the tuple Init accepts.
      static constexpr int kExtremes[][2] = {{1, 32}, {32, 1}, {2, 16}, {16, 2}, {1, 31}, {4, 8}};
      const int e = p.Byte();
      const int v = p.Byte();
      b.num_elements = e >= 0xF0 ? kExtremes[e % 6][0] : 1 + e % 4;
      b.num_value_bits = e >= 0xF0 ? kExtremes[e % 6][1] : 1 + v % 4;
      break;
    }
    case kTupleEscAac:
      b.num_elements = 2;
      b.num_value_bits = 5;
      break;
    case kTupleEscMp3:
      b.num_elements = 2;
      b.num_value_bits = 4;
      break;
    default:
      break;
  }
  for (const Leaf& l : leaves) {
    int value = 0;
    switch (mode) {
      case kPlain: {
        const int wide = p.Byte();
        value = static_cast<std::int16_t>(static_cast<unsigned>(p.Byte()) | (static_cast<unsigned>(wide) << 8));
        if ((wide & 0xC0) != 0) value = SignedByte(p, 3 + (wide & 0x3F));  // mostly small books
        break;
      }
      case kEscAac:
        value = SignedByte(p, 16) * 256 + SignedByte(p, 16) + 128;
        break;
      case kEscMp3: {
        // The code length includes one sign bit per non-zero element, after
        // at least one bit of Huffman code.
        int x = SignedByte(p, 15);
        int y = SignedByte(p, 15);
        if (l.length < 1 + (x != 0) + (y != 0)) y = 0;
        if (l.length < 1 + (x != 0) + (y != 0)) x = 0;
        value = x * 256 + y + 128;
        break;
      }
      case kTuple: {
        const int bits = b.num_elements * b.num_value_bits;
        const std::uint32_t mask = bits >= 32 ? 0xFFFFFFFFu : (1u << bits) - 1u;
        const std::uint32_t raw = (static_cast<unsigned>(p.Byte()) << 8 | p.Byte()) * 0x9E3779B1u;  // spread
        value = static_cast<int>(raw & mask);
        break;
      }
      case kTupleEscAac:
        value = (p.Byte() % 17) << 5 | (p.Byte() % 17);
        break;
      case kTupleEscMp3:
        value = (p.Byte() % 16) << 4 | (p.Byte() % 16);
        break;
      default:
        break;
    }
    b.entries.push_back({value, static_cast<Akl32s>(l.code), l.length});
    if (l.length > b.max_length) b.max_length = l.length;
  }
  // Input order matters only for overwrites; shuffle a little.
  for (std::size_t i = 1; i < b.entries.size(); ++i) {
    const std::size_t j = p.Byte() % (i + 1);
    std::swap(b.entries[i], b.entries[j]);
  }
  const int levels = 1 + p.Byte() % 4;
  for (int i = 0; i < levels; ++i) b.sub_sizes.push_back(1 + p.Byte() % 12);
  if (p.Byte() == 0xFF) b.sub_sizes.back() = -1;  // sometimes a bad size
  return b;
}

// Upper bound of the bits one output value (or pair, for escape decoders) takes.
int MaxBitsPerCall(const Book& b, Mode mode, int linbits) {
  const int l = b.max_length;
  switch (mode) {
    case kPlain:
      return l;
    case kEscAac:
      return l + 2 * 21;
    case kEscMp3:
      return l + 2 * (linbits + 1);
    case kTuple:
      return l + b.num_elements;
    case kTupleEscAac:
      return l + 2 + 2 * 21;
    case kTupleEscMp3:
      return l + 2 * (linbits + 1);
    default:
      return 64;
  }
}

struct Run {
  Status status = kStsOk;
  std::size_t bits_used = 0;  // from the start of the block
  std::vector<Akl16s> out;
};

enum Call { kOne, kBlock, kEsc };

Run Decode(const std::uint8_t* block, std::size_t start_byte, int start_bit, const aklsVLCDecodeSpec_32s* spec,
           Mode mode, Call call, int len, int linbits, int num_elements) {
  Run r;
  Akl8u* ptr = const_cast<Akl8u*>(block) + start_byte;
  int off = start_bit;
  const bool tuple = mode == kTuple || mode == kTupleEscAac || mode == kTupleEscMp3;
  r.out.assign(static_cast<std::size_t>(len) + 4, static_cast<Akl16s>(0x5A5A));
  Akl16s* out = r.out.data();
  switch (call) {
    case kOne:
      if (tuple) {  // len counts elements: len / numElements tuples
        for (int i = 0; i + num_elements <= len && r.status == kStsOk; i += num_elements) {
          r.status = aklsVLCDecodeUTupleOne_1u16s(&ptr, &off, out + i, spec);
        }
      } else {
        for (int i = 0; i < len && r.status == kStsOk; ++i) r.status = aklsVLCDecodeOne_1u16s(&ptr, &off, out + i, spec);
      }
      break;
    case kBlock:
      r.status = tuple ? aklsVLCDecodeUTupleBlock_1u16s(&ptr, &off, out, len, spec)
                       : aklsVLCDecodeBlock_1u16s(&ptr, &off, out, len, spec);
      break;
    case kEsc:
      if (mode == kEscAac) r.status = aklsVLCDecodeEscBlock_AAC_1u16s(&ptr, &off, out, len, spec);
      if (mode == kEscMp3) r.status = aklsVLCDecodeEscBlock_MP3_1u16s(&ptr, &off, linbits, out, len, spec);
      if (mode == kTupleEscAac) r.status = aklsVLCDecodeUTupleEscBlock_AAC_1u16s(&ptr, &off, out, len, spec);
      if (mode == kTupleEscMp3) r.status = aklsVLCDecodeUTupleEscBlock_MP3_1u16s(&ptr, &off, linbits, out, len, spec);
      break;
  }
  Trap(off >= 0 && off <= 7);
  Trap(ptr >= block);
  r.bits_used = static_cast<std::size_t>(ptr - block) * 8 + static_cast<std::size_t>(off);
  return r;
}

// Runs the decode over a padded copy, then over an exact block ending at the
// aligned word after the last bit used; both must agree.
void DecodeTwice(const std::vector<std::uint8_t>& stream, std::size_t start_byte, int start_bit,
                 const aklsVLCDecodeSpec_32s* spec, Mode mode, Call call, int len, int linbits, int per_call_bits,
                 int num_elements) {
  const std::size_t budget_bits = static_cast<std::size_t>(len) * static_cast<std::size_t>(per_call_bits) + 64;
  std::vector<std::uint8_t> padded(start_byte + 1 + stream.size() + budget_bits / 8 + 8, 0);
  if (!stream.empty()) std::memcpy(padded.data() + start_byte, stream.data(), stream.size());
  const Run first = Decode(padded.data(), start_byte, start_bit, spec, mode, call, len, linbits, num_elements);
  // A decoder never runs further than its worst case.
  Trap(first.bits_used <= start_byte * 8 + static_cast<std::size_t>(start_bit) + budget_bits - 64);
  std::size_t end_bits = first.bits_used;
  if (first.status != kStsOk) {
    // A failing escape leaves the cursor at its entry position; the bits
    // examined end within one pair after the last pair that decodes.  Find
    // that pair count by bisection over len.
    Trap(call == kEsc && first.status == kStsVLCDataErr);
    int good = 0, bad = len / 2;  // pairs: `good` decode, `bad` fail
    while (bad - good > 1) {
      const int mid = (good + bad) / 2;
      const Run r = Decode(padded.data(), start_byte, start_bit, spec, mode, call, 2 * mid, linbits, num_elements);
      (r.status == kStsOk ? good : bad) = mid;
    }
    const Run ok = Decode(padded.data(), start_byte, start_bit, spec, mode, call, 2 * good, linbits, num_elements);
    Trap(ok.status == kStsOk);
    end_bits = std::min(ok.bits_used + static_cast<std::size_t>(per_call_bits), padded.size() * 8);
  }
  const std::size_t used_bytes = (end_bits + 7) / 8;
  akl::fuzz::ExactBuffer exact(padded.data(), used_bytes);
  const Run second = Decode(exact.data(), start_byte, start_bit, spec, mode, call, len, linbits, num_elements);
  Trap(second.status == first.status);
  Trap(second.bits_used == first.bits_used);
  Trap(second.out == first.out);
}

// Writes the codes of the chosen entries MSB first; returns the stream.
std::vector<std::uint8_t> Synthesize(const Book& b, Params& p, int count, std::vector<int>* values) {
  std::vector<std::uint8_t> s;
  std::uint64_t acc = 0;
  int n = 0;
  for (int i = 0; i < count; ++i) {
    const VlcCodeEntry& e = b.entries[p.Byte() % b.entries.size()];
    values->push_back(e.value);
    for (int k = e.length - 1; k >= 0; --k) {
      acc = (acc << 1) | ((static_cast<std::uint32_t>(e.code) >> k) & 1u);
      if (++n == 8) {
        s.push_back(static_cast<std::uint8_t>(acc));
        acc = 0;
        n = 0;
      }
    }
  }
  if (n) s.push_back(static_cast<std::uint8_t>(acc << (8 - n)));
  return s;
}

std::vector<std::uint8_t> stream_bytes(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> v(data, data + size);
  v.resize(v.size() + 64, 0);  // room for every reader on raw bytes
  return v;
}

// The hostile-argument classes beside the decoding oracle:
//  - the tuple escape decoders on whatever context was built (any tuple
//    shape, 16- or 32-bit entries), with exact-size outputs;
//  - the context passed on at +1..63: refused with the tag status, and a VLC
//    Free of such a pointer leaves the real context alone;
//  - the encoders on the same book (values it lacks have length 0) into an
//    output of exactly the words their counters say, the cursor ending at
//    the counted bit.
void HostileExtras(Params& p, const Book& b, aklsVLCDecodeSpec_32s* spec, bool use_alloc,
                   std::vector<std::uint8_t> bytes) {
  const auto* ctx = akl::AlignUp(reinterpret_cast<const akl::vlc::DecodeSpec*>(spec), 64);
  const int len = p.Int(0, 64);
  if (ctx->entryWidth != 8 && len > 0) {
    // A hostile book can make these decoders consume far more than the
    // stream's own bytes, so each runs first on a generously padded copy;
    // then again on a copy cut right after the aligned word that follows the
    // word holding the last bit consumed (as far as the read contract lets a
    // decoder look), which must give the same values and cursor.
    const auto exact_replay = [&](int bit_offset, auto&& decode) {
      std::vector<std::uint8_t> padded = bytes;
      padded.resize(padded.size() + 4096, 0);
      std::vector<Akl16s> out(static_cast<std::size_t>(len));
      Akl8u* ptr = padded.data();
      int off = bit_offset;
      const Status s = decode(&ptr, &off, out.data());
      if (s != kStsOk) return s;
      const std::size_t bits = static_cast<std::size_t>(ptr - padded.data()) * 8 + static_cast<std::size_t>(off);
      const std::size_t need = std::min(padded.size(), 4 * ((bits + 31) / 32 + 1));
      std::vector<std::uint8_t> cut(padded.begin(), padded.begin() + static_cast<std::ptrdiff_t>(need));
      std::vector<Akl16s> again(static_cast<std::size_t>(len));
      Akl8u* ptr2 = cut.data();
      int off2 = bit_offset;
      Trap(decode(&ptr2, &off2, again.data()) == kStsOk);
      Trap(ptr2 - cut.data() == ptr - padded.data() && off2 == off && again == out);
      return s;
    };
    const int aac_offset = p.Byte() % 8;
    const Status s1 = exact_replay(aac_offset, [&](Akl8u** pp, int* po, Akl16s* o) {
      return aklsVLCDecodeUTupleEscBlock_AAC_1u16s(pp, po, o, len, spec);
    });
    Trap(s1 == kStsOk || s1 == kStsVLCDataErr);
    const int linbits = p.Byte() % 14;
    Trap(exact_replay(0, [&](Akl8u** pp, int* po, Akl16s* o) {
           return aklsVLCDecodeUTupleEscBlock_MP3_1u16s(pp, po, linbits, o, len, spec);
         }) == kStsOk);
  }
  if (use_alloc) {
    const int k = 1 + p.Byte() % 63;
    auto* moved = reinterpret_cast<aklsVLCDecodeSpec_32s*>(reinterpret_cast<Akl8u*>(spec) + k);
    Akl8u* ptr = bytes.data();
    int off = 0;
    Akl16s out[2];
    Trap(aklsVLCDecodeOne_1u16s(&ptr, &off, out, moved) == kStsVLCDataErr);
    Trap(aklsVLCDecodeEscBlock_AAC_1u16s(&ptr, &off, out, 2, moved) == kStsContextMismatch);
    aklsVLCDecodeFree_32s(moved);  // not a context: nothing happens
    Trap(ctx->tag == akl::kTagVlcDecode);
  }

  // Encoders.  A book of int16 values spans at most 2^17 slots.
  const int n = static_cast<int>(b.entries.size());
  int enc_size = 0;
  if (aklsVLCEncodeGetSize_32s(b.entries.data(), n, &enc_size) != kStsOk || enc_size > (1 << 21)) return;
  aklsVLCEncodeSpec_32s* enc = nullptr;
  Trap(aklsVLCEncodeInitAlloc_32s(b.entries.data(), n, &enc) == kStsOk);
  int lo = b.entries[0].value, hi = lo;
  for (const VlcCodeEntry& e : b.entries) {
    lo = std::min(lo, e.value);
    hi = std::max(hi, e.value);
  }
  const int count = p.Int(1, 200);
  std::vector<Akl16s> values(static_cast<std::size_t>(count));
  for (Akl16s& v : values) {
    const int pick = p.Byte();
    // Book values, values in the range the book lacks, small escape pairs.
    v = static_cast<Akl16s>(pick < 128 ? b.entries[static_cast<std::size_t>(pick) % b.entries.size()].value
                                       : pick < 192 ? lo + (pick * 7919) % (hi - lo + 1)
                                                    : static_cast<int>(pick % 61) - 30);
  }
  const int linbits = p.Byte() % 14;
  const int which = p.Byte() % 3;
  int bits = -1;
  Status cs = which == 0   ? aklsVLCCountBits_16s32s(values.data(), count, &bits, enc)
              : which == 1 ? aklsVLCCountEscBits_AAC_16s32s(values.data(), count, &bits, enc)
                           : aklsVLCCountEscBits_MP3_16s32s(values.data(), count, linbits, &bits, enc);
  if (cs == kStsOk) {
    const int start_bit = p.Byte() % 8;
    // Whole aligned words from the cursor's through the one holding the last bit.
    const std::size_t words = (static_cast<std::size_t>(start_bit) + static_cast<std::size_t>(bits) + 31) / 32;
    // Exactly the words the writer may touch, at the end of a heap block.
    const std::size_t need = std::max<std::size_t>(words, start_bit ? 1 : 0) * 4;
    auto* out = static_cast<Akl8u*>(std::malloc(need ? need : 1));
    std::memset(out, 0, need ? need : 1);
    Akl8u* ptr = out;
    int off = start_bit;
    const Status es = which == 0   ? aklsVLCEncodeBlock_16s1u(values.data(), count, &ptr, &off, enc)
                      : which == 1 ? aklsVLCEncodeEscBlock_AAC_16s1u(values.data(), count, &ptr, &off, enc)
                                   : aklsVLCEncodeEscBlock_MP3_16s1u(values.data(), count, linbits, &ptr, &off, enc);
    Trap(es == kStsOk);
    Trap(static_cast<std::size_t>(ptr - out) * 8 + static_cast<std::size_t>(off) ==
         static_cast<std::size_t>(start_bit) + static_cast<std::size_t>(bits));
    std::free(out);
  } else {
    Trap(cs == kStsVLCEscValueErr);
  }
  aklsVLCEncodeFree_32s(enc);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Params p(data, size);
  const Mode mode = static_cast<Mode>(p.Byte() % kNumModes);
  const std::uint8_t how = p.Byte();
  const Book b = MakeBook(p, mode);
  const bool tuple = mode == kTuple || mode == kTupleEscAac || mode == kTupleEscMp3;
  const int n = static_cast<int>(b.entries.size());

  int spec_size = 0;
  const Status gs = tuple ? aklsVLCDecodeUTupleGetSize_32s(b.entries.data(), n, b.sub_sizes.data(),
                                                           static_cast<int>(b.sub_sizes.size()), b.num_elements,
                                                           b.num_value_bits, &spec_size)
                          : aklsVLCDecodeGetSize_32s(b.entries.data(), n, b.sub_sizes.data(),
                                                     static_cast<int>(b.sub_sizes.size()), &spec_size);
  int covered = 0;
  for (int s : b.sub_sizes) {
    if (covered >= b.max_length) break;
    if (s < 1) break;
    covered += s;
  }
  if (covered < b.max_length) {  // sizes that do not reach the longest code
    Trap(gs == kStsVLCTableErr);
    return 0;
  }
  Trap(gs == kStsOk && spec_size > 160);

  // Build: exact caller block at a misalignment, or InitAlloc.
  std::uint8_t* raw = nullptr;
  aklsVLCDecodeSpec_32s* spec = nullptr;
  const bool use_alloc = (how & 1) != 0;
  if (use_alloc) {
    const Status st = tuple ? aklsVLCDecodeUTupleInitAlloc_32s(b.entries.data(), n, b.sub_sizes.data(),
                                                               static_cast<int>(b.sub_sizes.size()),
                                                               b.num_elements, b.num_value_bits, &spec)
                            : aklsVLCDecodeInitAlloc_32s(b.entries.data(), n, b.sub_sizes.data(),
                                                         static_cast<int>(b.sub_sizes.size()), &spec);
    Trap(st == kStsOk);
  } else {
    const std::size_t mis = (how >> 1) % 64;
    raw = static_cast<std::uint8_t*>(std::malloc(static_cast<std::size_t>(spec_size) + mis));
    spec = reinterpret_cast<aklsVLCDecodeSpec_32s*>(raw + mis);
    const Status st = tuple ? aklsVLCDecodeUTupleInit_32s(b.entries.data(), n, b.sub_sizes.data(),
                                                          static_cast<int>(b.sub_sizes.size()), b.num_elements,
                                                          b.num_value_bits, spec)
                            : aklsVLCDecodeInit_32s(b.entries.data(), n, b.sub_sizes.data(),
                                                    static_cast<int>(b.sub_sizes.size()), spec);
    Trap(st == kStsOk);
  }
  const auto* ctx = akl::AlignUp(reinterpret_cast<const akl::vlc::DecodeSpec*>(spec), 64);
  Trap(ctx->maxLength == b.max_length);

  const int linbits = (how >> 2) % 14;
  const std::size_t start_byte = (how >> 3) & 3;
  const int start_bit = p.Byte() % 8;
  const int len = p.Int(0, 600);
  // The escape decoders need 16- or 32-bit entries.
  Call call = static_cast<Call>((how >> 5) % 3);
  if (mode != kPlain && mode != kTuple && ctx->entryWidth != 8 && !(how & 0x80)) call = kEsc;
  if (call == kEsc && (mode == kPlain || mode == kTuple || ctx->entryWidth == 8)) call = kBlock;
  const int per_call_bits = MaxBitsPerCall(b, mode, linbits);

  // The oracle: a synthesised stream of whole codes decodes to their values.
  if (mode == kPlain && call != kEsc && (how & 0x80)) {
    std::vector<int> values;
    int max_abs = 0;
    for (const VlcCodeEntry& e : b.entries) max_abs = std::max(max_abs, std::abs(e.value));
    const int count = p.Int(1, 300);
    const std::vector<std::uint8_t> stream = Synthesize(b, p, count, &values);
    std::vector<std::uint8_t> padded(start_byte + stream.size() + 16, 0);
    Akl8u* ptr = padded.data() + start_byte;
    // Shift the stream by start_bit: prepend start_bit bits of junk.
    std::vector<std::uint8_t> shifted(stream.size() + 1, 0);
    for (std::size_t i = 0; i < stream.size(); ++i) {
      shifted[i] |= static_cast<std::uint8_t>(stream[i] >> start_bit);
      if (start_bit) shifted[i + 1] |= static_cast<std::uint8_t>(stream[i] << (8 - start_bit));
    }
    if (start_bit) shifted[0] |= static_cast<std::uint8_t>(0xFF00u >> start_bit);
    std::memcpy(ptr, shifted.data(), shifted.size());
    const Run r = Decode(padded.data(), start_byte, start_bit, spec, mode, call, count, 0, 1);
    Trap(r.status == kStsOk);
    for (int i = 0; i < count; ++i) {
      const int v = values[static_cast<std::size_t>(i)];
      if (ctx->entryWidth == 8 && v < 0) continue;  // 8-bit tables give unsigned values
      // A positive value equal to the book's largest magnitude, when that is
      // a power of two 2^V, needs V + 1 magnitude bits, but the entry width
      // is chosen for V (plus sign): at a width boundary it comes back
      // negated.  The width rule is part of the context's size contract, so
      // this is accepted (and reported) rather than trapped.
      if (v == max_abs && v >= 2 && (v & (v - 1)) == 0 && r.out[static_cast<std::size_t>(i)] == -v) continue;
      Trap(r.out[static_cast<std::size_t>(i)] == static_cast<Akl16s>(v));
    }
    DecodeTwice(shifted, start_byte, start_bit, spec, mode, call, count, 0, per_call_bits, 1);
  } else {
    const std::vector<std::uint8_t> stream(data, data + size);
    DecodeTwice(stream, start_byte, start_bit, spec, mode, call, len, linbits, per_call_bits,
                tuple ? b.num_elements : 1);
  }

  HostileExtras(p, b, spec, use_alloc, stream_bytes(data, size));

  if (use_alloc) {
    aklsVLCDecodeFree_32s(spec);
  } else {
    aklsVLCDecodeFree_32s(spec);
    // A freed context is refused by every decoder, and freeing it again does nothing.
    Akl8u zeros[64] = {};
    Akl8u* ptr = zeros;
    int off = 0;
    Akl16s out[4];
    Trap(aklsVLCDecodeOne_1u16s(&ptr, &off, out, spec) == kStsVLCDataErr);
    Trap(aklsVLCDecodeUTupleEscBlock_AAC_1u16s(&ptr, &off, out, 4, spec) == kStsContextMismatch);
    aklsVLCDecodeFree_32s(spec);
    std::free(raw);
  }
  return 0;
}
