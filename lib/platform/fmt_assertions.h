#pragma once

// The assertions of fmt's headers, made those of the C library: they end in the same report as all others
// (assertion.h). Whoever links strata_platform has this header in front of every source, so that no two
// sources see fmt's functions with different bodies. To sources in C it says nothing.
#ifdef __cplusplus
#include <cassert>
/// What fmt's headers call instead of their own.
#define FMT_ASSERT(condition, message) assert((condition) && (message))
#endif
