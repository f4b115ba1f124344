// Declarations of every export's implementation, generated from exports.def.
// A family's source includes this so that a definition whose signature drifts
// from the export list fails to link rather than silently overloading.
#pragma once

#include "aklac.h"

#define AKL_EXPORT(name, ret, params, args, ns) \
  namespace akl::ns {                           \
  ret name params;                              \
  }
#define AKL_EXPORT_AS(name, ret, params, args, ns, impl) \
  namespace akl::ns {                                    \
  ret impl params;                                       \
  }
#include "core/exports.def"
#undef AKL_EXPORT
#undef AKL_EXPORT_AS
