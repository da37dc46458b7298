#pragma once

// The boot loader's environment: texts with names that the boot loader keeps in the player's flash. Unlike
// the device tree they can be set on each player by itself, with the tool fw_setenv.

#include <map>
#include <string>

/// The texts by their names.
using BootEnvironment = std::map<std::string, std::string>;

/// Reads the whole environment. Any thread; waits while another program changes it.
/// @param configuration  path of the file that says where in the flash it is, as fw_setenv has it
/// @return nothing in it when there is no such file
/// @throws ErrnoException when there is one but what it says is no place of an environment, or what is there
///         cannot be read or has a wrong checksum
BootEnvironment ReadBootEnvironment(const std::string& configuration);
