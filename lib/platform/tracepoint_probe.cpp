// The probe behind the platform's tracepoint, in a module of its own: it needs the tracing library, the
// program does not.

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#include "lib/platform/tracepoint_provider.h"
