#include "lib/hardware/device_tree.h"

#include <unistd.h>

#include "lib/platform/posix_helpers.h"

bool DeviceTree::HasProperty(const std::string& path) const {
    return access((m_root + path).c_str(), F_OK) == 0;
}

std::string DeviceTree::ReadString(const std::string& path) const {
    std::string text = read_file_throw(m_root + path);
    if (!text.empty() && text.back() == '\0') {
        text.pop_back();
    }
    return text;
}
