#include "virtual_player/board/hid_layout.h"

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

namespace VirtualPlayer {

namespace {

// The prefix of an item without the two bits that tell how much data follows.
enum ItemKind : std::uint8_t {
    USAGE_PAGE = 0x04,
    USAGE = 0x08,
    USAGE_MINIMUM = 0x18,
    REPORT_SIZE = 0x74,
    INPUT_ITEM = 0x80,
    REPORT_ID = 0x84,
    OUTPUT_ITEM = 0x90,
    REPORT_COUNT = 0x94,
    COLLECTION = 0xA0,
    PUSH = 0xA4,
    FEATURE_ITEM = 0xB0,
    POP = 0xB4,
    END_COLLECTION_ITEM = 0xC0,
    LONG_ITEM = 0xFC,
};

constexpr std::uint32_t VALUE_BITS_MAX = 32;
constexpr std::uint32_t VALUES_MAX = 12'288;  // of the kernel for a report

/// What holds until it is changed.
struct Globals {
    std::uint32_t page = 0;
    std::uint32_t size = 0;
    std::uint32_t count = 0;
    std::uint32_t report = 0;
};

class Parser {
public:
    HidLayout Parse(const Bytes& descriptor) {
        for (std::size_t i = 0; i < descriptor.size();) {
            const std::uint8_t prefix = descriptor[i];
            const std::size_t length = (prefix & 3) == 3 ? 4 : prefix & 3;
            if (prefix >= LONG_ITEM || i + length >= descriptor.size()) {
                throw std::invalid_argument("the report descriptor makes no sense at byte " +
                                            std::to_string(i));
            }
            std::uint32_t data = 0;
            for (std::size_t byte = 0; byte < length; ++byte) {
                data |= std::uint32_t{descriptor[i + 1 + byte]} << 8 * byte;
            }
            Take(static_cast<ItemKind>(prefix & 0xFC), data);
            i += 1 + length;
        }
        return m_layout;
    }

private:
    void Take(ItemKind kind, std::uint32_t data) {
        switch (kind) {
            case USAGE_PAGE:
                m_globals.page = data;
                break;
            case REPORT_SIZE:
                m_globals.size = data;
                break;
            case REPORT_COUNT:
                m_globals.count = data;
                break;
            case REPORT_ID:
                m_globals.report = data;
                break;
            case PUSH:
                m_pushed.push_back(m_globals);
                break;
            case POP:
                if (m_pushed.empty()) {
                    throw std::invalid_argument("the report descriptor pops what was not pushed");
                }
                m_globals = m_pushed.back();
                m_pushed.pop_back();
                break;
            case USAGE:
            case USAGE_MINIMUM:
                m_firstUsage = m_firstUsage.value_or(data);
                break;
            case INPUT_ITEM:
                AddField(Direction::INPUT);
                break;
            case OUTPUT_ITEM:
                AddField(Direction::OUTPUT);
                break;
            case COLLECTION:
                if (!m_hasCollection) {
                    m_hasCollection = true;
                    m_layout.application = m_globals.page << 16 | m_firstUsage.value_or(0);
                }
                m_firstUsage.reset();
                break;
            case FEATURE_ITEM:
            case END_COLLECTION_ITEM:
                m_firstUsage.reset();
                break;
            default:
                break;  // ranges, units and texts: no value's place depends on them
        }
    }

    void AddField(Direction direction) {
        const auto [page, size, count, report] = m_globals;
        if (size > VALUE_BITS_MAX || count > VALUES_MAX || report > 0xFF) {
            throw std::invalid_argument("the report descriptor has a field that is too large");
        }
        m_layout.fields.push_back({static_cast<std::uint8_t>(report), direction,
                                   static_cast<std::uint16_t>(page),
                                   static_cast<std::uint16_t>(m_firstUsage.value_or(0)),
                                   static_cast<std::uint16_t>(count), static_cast<std::uint8_t>(size)});
        m_firstUsage.reset();
    }

    Globals m_globals;
    std::vector<Globals> m_pushed;
    std::optional<std::uint32_t> m_firstUsage;  ///< since the last field or collection
    bool m_hasCollection = false;
    HidLayout m_layout;
};

}  // namespace

HidLayout ParseHidReportDescriptor(const Bytes& descriptor) {
    return Parser().Parse(descriptor);
}

}  // namespace VirtualPlayer
