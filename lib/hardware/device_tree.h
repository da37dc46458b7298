#pragma once

// Properties of the device tree that the kernel was started with.

#include <string>

class DeviceTree {
public:
    /// @param root  where the tree is; other than the default in tests
    explicit DeviceTree(std::string root = "/proc/device-tree") : m_root(std::move(root)) {}

    /// Whether a node has a property. A boolean property has no value: it is true where it exists. Any
    /// thread.
    /// @param path  node and property, as "/soc/uart/status"
    bool HasProperty(const std::string& path) const;

    /// Reads a property of text, without its closing zero byte. Any thread.
    /// @throws ErrnoException with the file's path when there is no such property
    std::string ReadString(const std::string& path) const;

private:
    std::string m_root;
};
