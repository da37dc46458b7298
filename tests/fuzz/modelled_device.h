#pragma once

// A device node that exists only inside a fuzz target. The linker leads the program's own open, close, ioctl
// and read here (its libraries' calls go to the C library as always), and whatever the kernel would answer
// for the node comes from the fuzz input. Waiting for the device takes no time.

#include <sys/types.h>

#include <cstddef>
#include <set>
#include <string>

#include "tests/fuzz/fuzz_input.h"

class ModelledDevice {
public:
    /// There is one at a time.
    /// @param pathPrefix  what the paths of its nodes begin with
    ModelledDevice(FuzzInput& input, const char* pathPrefix);

    /// Every node that was opened must have been closed.
    virtual ~ModelledDevice();

    // As the system calls of the same names; open gets what follows the prefix.
    virtual int Open(const std::string& node);
    virtual int Ioctl(unsigned long request, void* argument) = 0;
    ssize_t Read(void* buffer, std::size_t length);

    const std::string m_pathPrefix;
    std::set<int> m_open;

    /// Whether the last read failed for another reason than that there was nothing to read.
    bool m_readFailed = false;

protected:
    /// Takes the next answer's first byte: 0 for success, else the error number. A device whose input is used
    /// up is gone.
    /// @return whether the call fails; errno is set then
    bool Fails();

    FuzzInput& m_input;

private:
    int m_openings = 0;
};
