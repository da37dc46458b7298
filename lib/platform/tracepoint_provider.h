// The tracepoint provider, in the form that LTTng-UST's headers read several times over; hence the guard.

#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER vantora_platform

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "lib/platform/tracepoint_provider.h"

#if !defined(LIB_PLATFORM_TRACEPOINT_PROVIDER_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define LIB_PLATFORM_TRACEPOINT_PROVIDER_H

#include <lttng/tracepoint.h>

// The tracer compares this text, blanks included, with that of other programs' probes of the event.
// clang-format off
LTTNG_UST_TRACEPOINT_EVENT(vantora_platform, td_event,
                           LTTNG_UST_TP_ARGS(const char *, desc, int, value),
                           LTTNG_UST_TP_FIELDS(lttng_ust_field_string(desc, desc)
                                                   lttng_ust_field_integer(int, value, value)))
// clang-format on

#endif

#include <lttng/tracepoint-event.h>
