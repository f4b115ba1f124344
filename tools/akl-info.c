/* akl-info: prints the version record of the aklac library it runs against. */
#include <stdio.h>
#include <string.h>

#include "aklac.h"

int main(int argc, char** argv) {
  const AklLibraryVersion* v;
  if (argc > 1 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
    printf("usage: akl-info\nPrints the version record of the aklac library.\n");
    return 0;
  }
  v = aklacGetLibVersion();
  printf("%s %s, built %s\n", v->Name, v->Version, v->BuildDate);
  printf("version %d.%d.%d build %d, processor variant \"%s\"\n", v->major, v->minor, v->majorBuild,
         v->build, v->targetCpu);
  return 0;
}
