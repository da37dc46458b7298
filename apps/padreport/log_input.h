#pragma once

// Where logs come from: files and standard input, plain or packed with gzip.

#include <string>

#include "apps/padreport/log_reader.h"

namespace padreport {

/// Stands for standard input among the names of files.
constexpr const char* STANDARD_INPUT = "-";

/// Reads a log from beginning to end. Whether it is packed is seen from its first bytes.
/// @param path of a file, or STANDARD_INPUT
/// @param reader gets the bytes
/// @return what ended the reading early ("unexpected end of file"); what came before it has been read, and
///         counts. Empty for a log that was read to its end
/// @throws ErrnoException with the path when the file cannot be opened
std::string ReadLog(const std::string& path, LogReader& reader);

}  // namespace padreport
