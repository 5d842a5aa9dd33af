// The version of the library that is loaded, which need not be the one a program was compiled for. Touches nothing.
// The header's macro and the build's version are two places: the assertion keeps them one.
#include "build_version.h"
#include "varnkivo.h"

#include <string_view>

static_assert(std::string_view(VARNKIVO_VERSION) == varnkivo::kBuildVersion);

const char* VARNKIVOVersionGet(void) { return varnkivo::kBuildVersion; }
