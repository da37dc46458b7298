#include "virtual_player/board/recording.h"

#include <cstddef>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace VirtualPlayer {

namespace {

constexpr std::int64_t NANOSECONDS_PER_MICROSECOND = 1000;
constexpr std::uint64_t MICROSECONDS_MAX = 1'000'000ull * 60 * 60 * 24 * 365;

class Unpacker {
public:
    explicit Unpacker(const Bytes& packed) : m_packed(packed) {}

    bool IsAtEnd() const { return m_position == m_packed.size(); }

    template <class Number>
    Number Take() {
        std::uint64_t number = 0;
        const Bytes bytes = TakeBytes(sizeof(Number));
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            number |= std::uint64_t{bytes[i]} << 8 * i;
        }
        return static_cast<Number>(number);
    }

    Bytes TakeBytes() { return TakeBytes(Take<std::uint16_t>()); }

private:
    Bytes TakeBytes(std::size_t length) {
        if (length > m_packed.size() - m_position) {
            throw std::invalid_argument("the recording is cut short");
        }
        const auto first = m_packed.begin() + static_cast<std::ptrdiff_t>(m_position);
        m_position += length;
        return {first, first + static_cast<std::ptrdiff_t>(length)};
    }

    const Bytes& m_packed;
    std::size_t m_position = 0;
};

}  // namespace

Recording UnpackRecording(const Bytes& packed) {
    Unpacker unpacker(packed);
    Recording recording;
    recording.vendor = unpacker.Take<std::uint16_t>();
    recording.product = unpacker.Take<std::uint16_t>();
    const Bytes name = unpacker.TakeBytes();
    recording.name.assign(name.begin(), name.end());
    recording.descriptor = unpacker.TakeBytes();
    std::uint64_t last = 0;
    while (!unpacker.IsAtEnd()) {
        const auto time = unpacker.Take<std::uint64_t>();
        if (time < last || time > MICROSECONDS_MAX) {
            throw std::invalid_argument("the recording's times make no sense");
        }
        last = time;
        recording.reports.push_back(
            {static_cast<std::int64_t>(time) * NANOSECONDS_PER_MICROSECOND, unpacker.TakeBytes()});
        if (recording.reports.back().bytes.empty()) {
            throw std::invalid_argument("the recording has an empty report");
        }
    }
    if (recording.reports.empty()) {
        throw std::invalid_argument("the recording has no reports");
    }
    return recording;
}

Recording ReadRecording(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const Bytes packed{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw std::invalid_argument(path + " cannot be read");
    }
    try {
        return UnpackRecording(packed);
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(path + ": " + error.what());
    }
}

}  // namespace VirtualPlayer
