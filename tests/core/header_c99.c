/* The public headers must compile as strict C99. */
#include "aklac.h"
#include "aklcore.h"

#include <stdio.h>
#include <string.h>

int main(void) {
  const AklLibraryVersion* v = aklacGetLibVersion();
  Akl32fc c;
  Status st = kStsOk;
  c.re = 1.0f;
  c.im = -1.0f;
  if (v == NULL || strcmp(v->targetCpu, "mx") != 0 || c.re + c.im != 0.0f || st != 0) {
    fprintf(stderr, "unexpected version record\n");
    return 1;
  }
  return 0;
}
