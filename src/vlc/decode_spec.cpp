// The VLC decoding context: table analysis (shared by GetSize, Init and
// InitAlloc so they cannot disagree), the table build, and the plain and
// tuple forms of GetSize/Init/InitAlloc/Free.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>

#include "core/exports.hpp"
#include "vlc/vlc.hpp"

namespace akl::vlc {
namespace {

inline constexpr int kMaxCodeLength = 32;
// Distinct prefixes are counted in sorted chunks of this many codes on the
// stack (no allocation is allowed outside InitAlloc).
inline constexpr int kPrefixChunk = 2048;

struct Layout {
  int max_length = 0;   // L
  int value_bits = 0;   // V
  int levels = 0;       // lookup levels used
  int sizes[kMaxCodeLength] = {};  // index bits per level, the last cut to end at L
  int length_bits = 0;  // B
  std::int64_t entries = 0;  // N
  int width = 0;        // 8, 16 or 32
  int bytes = 0;        // N * width / 8 + 160
};

// Least k with 2^k >= m (0 for m <= 1).
int BitsToHold(std::int64_t m) {
  int k = 0;
  while ((std::int64_t{1} << k) < m) ++k;
  return k;
}

// The top `depth` bits of a code (depth < length): the path through the levels.
std::uint32_t Prefix(const VlcCodeEntry& e, int depth) {
  const auto code = static_cast<std::uint32_t>(e.code);
  return static_cast<std::uint32_t>(code >> (e.length - depth)) & LowMask(depth);
}

// Sorted, distinct depth-bit prefixes of the codes in [first, last) longer
// than depth; returns their count.
int ChunkPrefixes(const VlcCodeEntry* table, int first, int last, int depth, std::uint32_t* keys) {
  int count = 0;
  for (int i = first; i < last; ++i) {
    if (table[i].length > depth) keys[count++] = Prefix(table[i], depth);
  }
  std::sort(keys, keys + count);
  return static_cast<int>(std::unique(keys, keys + count) - keys);
}

// Distinct depth-bit prefixes among the codes longer than depth.  Each chunk's
// prefixes are counted unless an earlier chunk has them, so the work grows as
// n^2 / chunk rather than n^2.
std::int64_t CountPrefixes(const VlcCodeEntry* table, int n, int depth) {
  std::uint32_t mine[kPrefixChunk];
  std::uint32_t earlier[kPrefixChunk];
  std::int64_t distinct = 0;
  for (int c = 0; c < n; c += kPrefixChunk) {
    int count = ChunkPrefixes(table, c, std::min(n, c + kPrefixChunk), depth, mine);
    for (int e = 0; e < c && count > 0; e += kPrefixChunk) {
      const int other = ChunkPrefixes(table, e, e + kPrefixChunk, depth, earlier);
      const auto end = std::remove_if(mine, mine + count, [&](std::uint32_t key) {
        return std::binary_search(earlier, earlier + other, key);
      });
      count = static_cast<int>(end - mine);
    }
    distinct += count;
  }
  return distinct;
}

// Analysis of the book and the level sizes; the caller has checked pointers.
Status Analyse(const VlcCodeEntry* table, int n, const int* sub_sizes, int num_sub, Layout* out) {
  Layout lay;
  std::int64_t max_abs = 0;
  int max_len = n > 0 ? table[0].length : 0;
  bool lengths_ok = true;
  for (int i = 0; i < n; ++i) {
    const std::int64_t v = table[i].value;
    max_abs = std::max(max_abs, v < 0 ? -v : v);
    max_len = std::max(max_len, table[i].length);
    // Every code, not only the longest, must have a length the walk can use.
    lengths_ok = lengths_ok && table[i].length >= 1 && table[i].length <= kMaxCodeLength;
  }
  if (n < 1 || !lengths_ok || max_len < 1 || max_len > kMaxCodeLength) return kStsVLCTableErr;
  lay.max_length = max_len;
  lay.value_bits = BitsToHold(max_abs);

  // Level sizes: the level that reaches L is cut to end there; later sizes are ignored.
  std::int64_t sum = 0;
  int largest = 0;
  for (int i = 0; i < num_sub && sum < max_len; ++i) {
    if (sub_sizes[i] < 1) return kStsVLCTableErr;
    int s = sub_sizes[i];
    if (sum + s >= max_len) s = max_len - static_cast<int>(sum);
    lay.sizes[lay.levels++] = s;
    sum += s;
    largest = std::max(largest, s);
  }
  if (sum < max_len) return kStsVLCTableErr;
  lay.length_bits = BitsToHold(largest + 1);  // binary digits of the largest size

  std::int64_t entries = (std::int64_t{1} << lay.sizes[0]) + 1;
  int depth = lay.sizes[0];
  for (int i = 1; i < lay.levels; ++i) {
    entries += CountPrefixes(table, n, depth) * ((std::int64_t{1} << lay.sizes[i]) + 1);
    depth += lay.sizes[i];
    if (entries > INT_MAX) return kStsVLCTableErr;
  }
  lay.entries = entries;

  const int leaf_bits = lay.length_bits + lay.value_bits + 2;  // value, sign, consumed bits, flag
  const int pointer_bits = BitsToHold(entries + 2) + 1;        // 2^P - 1 >= N + 1, and the flag
  const int need = std::max(leaf_bits, pointer_bits);
  lay.width = need <= 8 ? 8 : need <= 16 ? 16 : 32;
  const std::int64_t bytes = entries * (lay.width / 8) + kDecodeSizeSlack;
  if (bytes > INT_MAX) return kStsVLCTableErr;
  lay.bytes = static_cast<int>(bytes);
  *out = lay;
  return kStsOk;
}

// Writes the table; returns kStsVLCTableErr at the first code that descends
// through a leaf (the entries before it stay built).
template <class Entry>
Status FillTable(Entry* t, const Layout& lay, const VlcCodeEntry* table, int n) {
  const auto num = static_cast<std::size_t>(lay.entries);
  const auto empty = static_cast<Entry>(~std::uint32_t{1});
  std::fill(t, t + num, empty);
  t[0] = static_cast<Entry>(lay.sizes[0]);
  std::size_t next_free = (std::size_t{1} << lay.sizes[0]) + 1;
  const int leaf_shift = lay.length_bits + 1;

  for (int k = 0; k < n; ++k) {
    const VlcCodeEntry& e = table[k];
    const auto code = static_cast<std::uint32_t>(e.code);
    std::size_t h = 0;  // header index of the current sub-table
    int depth = 0;
    for (int level = 0; level < lay.levels; ++level) {
      const int s = lay.sizes[level];
      const int next_depth = depth + s;
      if (next_depth < e.length) {
        const std::size_t slot = h + 1 + ((code >> (e.length - next_depth)) & LowMask(s));
        const Entry cur = t[slot];
        if (cur == empty) {
          // Open the next level's sub-table.  Its count was reserved by the analysis.
          t[slot] = static_cast<Entry>(next_free * 2);
          t[next_free] = static_cast<Entry>(lay.sizes[level + 1]);
          h = next_free;
          next_free += (std::size_t{1} << lay.sizes[level + 1]) + 1;
        } else if ((cur & 1u) != 0 || static_cast<std::size_t>(cur >> 1) >= num) {
          return kStsVLCTableErr;  // the path runs through a shorter code
        } else {
          h = static_cast<std::size_t>(cur >> 1);
        }
        depth = next_depth;
        continue;
      }
      // The code ends here, using `used` bits of this level; it owns every
      // slot that starts with them.  Whatever the slots held is overwritten.
      const int used = e.length - depth;
      const int spare = next_depth - e.length;
      const auto leaf = static_cast<Entry>((static_cast<std::uint32_t>(e.value) << leaf_shift) |
                                           (static_cast<std::uint32_t>(used) << 1) | 1u);
      const std::size_t first = h + 1 + (static_cast<std::size_t>(code & LowMask(used)) << spare);
      std::fill(t + first, t + first + (std::size_t{1} << spare), leaf);
      break;
    }
  }
  return kStsOk;
}

// Builds at the aligned context inside raw.  The header is written first, so
// a context that fails with a prefix conflict already carries its tag.
Status Build(void* raw, const Layout& lay, const VlcCodeEntry* table, int n, int owned, int num_elements,
             int num_value_bits) {
  auto* ctx = ContextAt<DecodeSpec>(raw, kVlcContextAlign);
  void* t = reinterpret_cast<char*>(ctx) + kDecodeTableOffset;
  ctx->tag = kTagVlcDecode;
  ctx->ownedByLibrary = owned;
  ctx->maxLength = lay.max_length;
  ctx->reserved = 0;
  ctx->table = t;
  ctx->entryWidth = lay.width;
  ctx->lengthFieldBits = lay.length_bits;
  ctx->numElements = num_elements;
  ctx->numValueBits = num_value_bits;
  ctx->tupleBits = num_elements * num_value_bits;
  ctx->numEntries = static_cast<Akl32s>(lay.entries);
  switch (lay.width) {
    case 8:
      return FillTable(static_cast<std::uint8_t*>(t), lay, table, n);
    case 16:
      return FillTable(static_cast<std::uint16_t*>(t), lay, table, n);
    default:
      return FillTable(static_cast<std::uint32_t*>(t), lay, table, n);
  }
}

// A plain context reads as a single element of 16 bits in the tuple decoders.
inline constexpr int kPlainElements = 1;
inline constexpr int kPlainValueBits = 16;

bool BadTupleShape(int num_elements, int num_value_bits) {
  return num_elements < 1 || num_value_bits < 1 || num_elements > 32 || num_value_bits > 32 ||
         num_elements * num_value_bits > 32;
}

}  // namespace

Status aklsVLCDecodeGetSize_32s(const VlcCodeEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                                int numSubTables, int* pSize) {
  if (!pInputTable || !pSubTablesSizes || !pSize) return kStsNullPtr;
  Layout lay;
  if (const Status st = Analyse(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, &lay); st != kStsOk) {
    return st;
  }
  *pSize = lay.bytes;
  return kStsOk;
}

Status aklsVLCDecodeInit_32s(const VlcCodeEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                             int numSubTables, aklsVLCDecodeSpec_32s* pSpec) {
  if (!pInputTable || !pSubTablesSizes || !pSpec) return kStsNullPtr;
  Layout lay;
  if (const Status st = Analyse(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, &lay); st != kStsOk) {
    return st;
  }
  return Build(pSpec, lay, pInputTable, inputTableSize, 0, kPlainElements, kPlainValueBits);
}

Status aklsVLCDecodeInitAlloc_32s(const VlcCodeEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                                  int numSubTables, aklsVLCDecodeSpec_32s** ppSpec) {
  if (!pInputTable || !pSubTablesSizes || !ppSpec) return kStsNullPtr;
  Layout lay;
  if (const Status st = Analyse(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, &lay); st != kStsOk) {
    return st;
  }
  return InitAllocWith(lay.bytes, ppSpec, [&](aklsVLCDecodeSpec_32s* raw) {
    return Build(raw, lay, pInputTable, inputTableSize, 1, kPlainElements, kPlainValueBits);
  });
}

void aklsVLCDecodeFree_32s(aklsVLCDecodeSpec_32s* pSpec) {
  FreeClearingTag<DecodeSpec>(static_cast<void*>(pSpec), kVlcContextAlign,
                              [](const DecodeSpec& c) { return IsDecodeContext(c); });
}

// Tuple forms: the shape arguments are reported before a table fault,
// whichever the analysis would find.
Status aklsVLCDecodeUTupleGetSize_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                      const int* pSubTablesSizes, int numSubTables, int numElements,
                                      int numValueBits, int* pSize) {
  if (!pInputTable || !pSubTablesSizes || !pSize) return kStsNullPtr;
  if (BadTupleShape(numElements, numValueBits)) return kStsBadArgErr;
  return vlc::aklsVLCDecodeGetSize_32s(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, pSize);
}

Status aklsVLCDecodeUTupleInit_32s(const VlcCodeEntry* pInputTable, int inputTableSize, const int* pSubTablesSizes,
                                   int numSubTables, int numElements, int numValueBits,
                                   aklsVLCDecodeSpec_32s* pSpec) {
  if (!pInputTable || !pSubTablesSizes || !pSpec) return kStsNullPtr;
  if (BadTupleShape(numElements, numValueBits)) return kStsBadArgErr;
  Layout lay;
  if (const Status st = Analyse(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, &lay); st != kStsOk) {
    return st;
  }
  return Build(pSpec, lay, pInputTable, inputTableSize, 0, numElements, numValueBits);
}

Status aklsVLCDecodeUTupleInitAlloc_32s(const VlcCodeEntry* pInputTable, int inputTableSize,
                                        const int* pSubTablesSizes, int numSubTables, int numElements,
                                        int numValueBits, aklsVLCDecodeSpec_32s** ppSpec) {
  if (!pInputTable || !pSubTablesSizes || !ppSpec) return kStsNullPtr;
  if (BadTupleShape(numElements, numValueBits)) return kStsBadArgErr;
  Layout lay;
  if (const Status st = Analyse(pInputTable, inputTableSize, pSubTablesSizes, numSubTables, &lay); st != kStsOk) {
    return st;
  }
  return InitAllocWith(lay.bytes, ppSpec, [&](aklsVLCDecodeSpec_32s* raw) {
    return Build(raw, lay, pInputTable, inputTableSize, 1, numElements, numValueBits);
  });
}

}  // namespace akl::vlc
