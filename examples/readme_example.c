#include <stdio.h>
#include "aklac.h"
int main(void) {
  /* A code book of four values: 0 -> 0, 1 -> 10, 2 -> 110, 3 -> 111; one lookup level of 3 bits. */
  const VlcCodeEntry book[] = {{0, 0x0, 1}, {1, 0x2, 2}, {2, 0x6, 3}, {3, 0x7, 3}};
  aklsVLCDecodeSpec_32s* spec;
  if (aklsVLCDecodeInitAlloc_32s(book, 4, (const int[]){3}, 1, &spec) != kStsOk) return 1;
  union { Akl32u words[2]; Akl8u bytes[8]; } in = {{0}}; /* readers load aligned words */
  in.bytes[0] = 0xB7;                                     /* 10 110 111, then 0 */
  Akl8u* p = in.bytes; int offset = 0; Akl16s v[4];
  Status st = aklsVLCDecodeBlock_1u16s(&p, &offset, v, 4, spec);
  printf("status %d: %d %d %d %d, cursor at byte %d bit %d\n", st, v[0], v[1], v[2], v[3], (int)(p - in.bytes), offset);
  aklsVLCDecodeFree_32s(spec);
  return st == kStsOk ? 0 : 1;
}
