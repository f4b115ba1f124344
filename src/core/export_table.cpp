// The export table: one writable entry slot per export, in the order of
// exports.def (alphabetical), statically initialised to the implementation.
// Every exported name is a stub that calls through its slot; with optimisation
// the call is a tail jump.  Nothing writes the slots after load; they stay
// writable so that other processor variants of the library can rebind them.
#include "core/exports.hpp"

namespace akl::core {

struct ExportSlots {
#define AKL_EXPORT(name, ret, params, args, ns) ret(*name) params;
#define AKL_EXPORT_AS(name, ret, params, args, ns, impl) ret(*name) params;
#include "core/exports.def"
#undef AKL_EXPORT
#undef AKL_EXPORT_AS
};

// Not const: the slots live in writable data.
ExportSlots g_export_slots = {
#define AKL_EXPORT(name, ret, params, args, ns) &akl::ns::name,
#define AKL_EXPORT_AS(name, ret, params, args, ns, impl) &akl::ns::impl,
#include "core/exports.def"
#undef AKL_EXPORT
#undef AKL_EXPORT_AS
};

}  // namespace akl::core

extern "C" {
#define AKL_EXPORT(name, ret, params, args, ns) \
  AKLAC_API ret name params { return akl::core::g_export_slots.name args; }
#define AKL_EXPORT_AS(name, ret, params, args, ns, impl) \
  AKLAC_API ret name params { return akl::core::g_export_slots.name args; }
#include "core/exports.def"
#undef AKL_EXPORT
#undef AKL_EXPORT_AS
}
