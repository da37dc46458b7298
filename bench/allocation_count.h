#pragma once

// Counts how often a program asks for memory, its libraries included. Part of a program that links
// allocation_count.cpp.

#include <cstdint>

/// Calls of malloc, calloc and realloc by all threads up to now. Any thread.
std::uint64_t CountAllocations();
