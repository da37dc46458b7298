#include "lib/player/device_tree.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "lib/platform/errno_exception.h"
#include "lib/platform/posix_helpers.h"

namespace {

constexpr std::size_t CELL_SIZE = 4;

bool IsAbsent(int errorNumber) {
    return errorNumber == ENOENT || errorNumber == ENOTDIR;
}

std::uint32_t DecodeCell(const char* bytes) {
    std::uint32_t cell = 0;
    for (std::size_t i = 0; i < CELL_SIZE; ++i) {
        cell = cell << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return cell;
}

}  // namespace

std::optional<std::string> DeviceTree::ReadText(const std::string& property) const {
    return TakeOnly(ReadTexts(property), property, "one text");
}

std::optional<std::vector<std::string>> DeviceTree::ReadTexts(const std::string& property) const {
    const auto value = ReadValue(property);
    if (!value) {
        return std::nullopt;
    }
    if (value->empty() || value->back() != '\0') {
        ThrowMalformed(property, "text with a closing zero byte");
    }
    std::vector<std::string> texts;
    for (std::size_t start = 0; start < value->size(); start += texts.back().size() + 1) {
        texts.emplace_back(value->c_str() + start);
    }
    return texts;
}

std::optional<std::uint32_t> DeviceTree::ReadCell(const std::string& property) const {
    return TakeOnly(ReadCells(property), property, "one cell");
}

std::optional<std::vector<std::uint32_t>> DeviceTree::ReadCells(const std::string& property) const {
    const auto value = ReadValue(property);
    if (!value) {
        return std::nullopt;
    }
    if (value->empty() || value->size() % CELL_SIZE != 0) {
        ThrowMalformed(property, "32-bit cells");
    }
    std::vector<std::uint32_t> cells;
    for (std::size_t start = 0; start < value->size(); start += CELL_SIZE) {
        cells.push_back(DecodeCell(value->data() + start));
    }
    return cells;
}

std::optional<std::vector<std::string>> DeviceTree::ReadChildren(const std::string& node) const {
    std::error_code error;
    std::vector<std::string> names;
    std::filesystem::directory_iterator entry(m_root + node, error);
    while (!error && entry != std::filesystem::directory_iterator()) {
        if (entry->is_directory(error)) {
            names.push_back(entry->path().filename());
        }
        if (!error) {
            entry.increment(error);
        }
    }
    if (IsAbsent(error.value())) {
        return std::nullopt;
    }
    if (error) {
        throw ErrnoException(error.value(), m_root + node);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<std::string> DeviceTree::ReadValue(const std::string& property) const {
    try {
        return read_file_throw(m_root + property);
    } catch (const ErrnoException& failure) {
        if (IsAbsent(failure.GetErrno())) {
            return std::nullopt;
        }
        throw;
    }
}

template <class T>
std::optional<T> DeviceTree::TakeOnly(const std::optional<std::vector<T>>& values,
                                      const std::string& property, const char* expected) const {
    if (!values) {
        return std::nullopt;
    }
    if (values->size() != 1) {
        ThrowMalformed(property, expected);
    }
    return values->front();
}

void DeviceTree::ThrowMalformed(const std::string& property, const char* expected) const {
    throw std::runtime_error(m_root + property + ": not " + expected);
}
