/* A program that uses an installed aklac. */
#include <stdio.h>
#include <string.h>

#include "aklac.h"
#include "aklcore.h"

int main(void) {
  const AklLibraryVersion* v = aklacGetLibVersion();
  void* p = aklMalloc(100);
  int ok = v != NULL && v->major == 8 && strcmp(v->targetCpu, "mx") == 0 && p != NULL &&
           ((unsigned long)p % 64u) == 0;
  aklFree(p);
  printf("%s\n", ok ? "consumer ok" : "consumer FAILED");
  return ok ? 0 : 1;
}
