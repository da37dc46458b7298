#pragma once

// The device tree that the kernel was started with: a tree of nodes, each a folder, with properties, each a
// file of bytes whose meaning only the reader knows. A property that is absent is told apart from one that
// cannot be read and from one that is not of the expected type.

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lib/platform/message.h"

/// Any thread may call any operation; nothing is kept between calls. Every reading operation
/// - takes the path of a node or of a property, as "/soc/uart" or "/soc/uart/status",
/// - returns nothing when there is no such node or property,
/// - throws ErrnoException with the file's path when it is there but cannot be read,
/// - throws std::runtime_error with the file's path when the value is not of the type.
class DeviceTree {
public:
    /// @param root  where the tree is; other than the default in tests
    explicit DeviceTree(std::string root = "/proc/device-tree") : m_root(std::move(root)) {}

    /// Reads one text, without its closing zero byte.
    std::optional<std::string> ReadText(const std::string& property) const;

    /// Reads a list of one or more texts, each closed by a zero byte.
    std::optional<std::vector<std::string>> ReadTexts(const std::string& property) const;

    /// Reads one cell: a 32-bit number, stored big-endian.
    std::optional<std::uint32_t> ReadCell(const std::string& property) const;

    /// Reads a list of one or more cells.
    std::optional<std::vector<std::uint32_t>> ReadCells(const std::string& property) const;

    /// @return the names of the nodes directly below a node, as "uart@40", sorted
    std::optional<std::vector<std::string>> ReadChildren(const std::string& node) const;

    /// Reads by one of the operations above, for a program that can do without: instead of throwing it prints
    /// one line, and the node or property counts as absent.
    template <class T>
    std::optional<T> ReadOrReport(std::optional<T> (DeviceTree::*read)(const std::string&) const,
                                  const std::string& path) const {
        try {
            return (this->*read)(path);
        } catch (const std::exception& failure) {
            PLATFORM_MESSAGE("Device tree: %s\n", failure.what());
            return std::nullopt;
        }
    }

private:
    std::optional<std::string> ReadValue(const std::string& property) const;
    template <class T>
    std::optional<T> TakeOnly(const std::optional<std::vector<T>>& values, const std::string& property,
                              const char* expected) const;
    [[noreturn]] void ThrowMalformed(const std::string& property, const char* expected) const;

    const std::string m_root;
};
