// The library's version record.
#include "core/exports.hpp"

namespace akl::core {

namespace {
constexpr AklLibraryVersion kVersion = {
    8, 1, 1, 42291, {'m', 'x', '\0', '\0'}, "aklAC PX (mx)", "8.1.1 (r42291)", "Apr 10 2014",
};
}  // namespace

const AklLibraryVersion* aklacGetLibVersion(void) { return &kVersion; }

}  // namespace akl::core
