#include "lib/platform/trace_event.h"

#ifdef STRATA_HAVE_LTTNG_UST

#include <dlfcn.h>

#define LTTNG_UST_TRACEPOINT_DEFINE
#define LTTNG_UST_TRACEPOINT_PROBE_DYNAMIC_LINKAGE
#include "lib/platform/tracepoint_provider.h"

namespace {

/// Loads the probe at start-up, where the machine has it and the tracing library. It stays loaded: the tracer
/// has threads of its own in it.
[[gnu::constructor]] void LoadTracepointProbe() {
    // cppcheck-suppress leakReturnValNotUsed ; the probe stays for good
    dlopen("libvantora_platform_tracepoint.so", RTLD_NOW | RTLD_GLOBAL);
}

}  // namespace

void strata::EmitTraceEvent(const char* desc, int value) noexcept {
    lttng_ust_tracepoint(vantora_platform, td_event, desc, value);
}

#else

void strata::EmitTraceEvent(const char*, int) noexcept {}

#endif
