#pragma once

// The platform's trace event "vantora_platform:td_event", seen by a system-wide LTTng tracer.

namespace strata {

/// Emits the event when a tracer has enabled it; does nothing otherwise, also on a machine without the
/// tracing library. Any thread.
/// @param desc the marker, for example "ASRT"
/// @param value the marker's value: for "ASRT" the source line of the failed assertion
void EmitTraceEvent(const char* desc, int value) noexcept;

}  // namespace strata
