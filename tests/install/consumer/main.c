/* A program that uses an installed aklac and calls only aklac's own exports:
 * built with the linker's --as-needed default it does not name libaklcore
 * itself, so it runs only if libaklac finds libaklcore on its own. */
#include <stdio.h>
#include <string.h>

#include "aklac.h"

int main(void) {
  const AklLibraryVersion* v = aklacGetLibVersion();
  /* InitAlloc allocates through the core library. */
  const VlcCodeEntry book[] = {{0, 0x0, 1}, {1, 0x1, 1}};
  aklsVLCDecodeSpec_32s* spec = NULL;
  Status st = aklsVLCDecodeInitAlloc_32s(book, 2, (const int[]){1}, 1, &spec);
  int ok = v != NULL && v->major == 8 && strcmp(v->targetCpu, "mx") == 0 && st == kStsOk && spec != NULL;
  aklsVLCDecodeFree_32s(spec);
  printf("%s\n", ok ? "consumer ok" : "consumer FAILED");
  return ok ? 0 : 1;
}
