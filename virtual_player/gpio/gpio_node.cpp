#include "virtual_player/gpio/gpio_node.h"

#include <fcntl.h>
#include <poll.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

constexpr std::size_t QUEUE_MAX = 64;

// Numbers of evdev's requests, whose length is the caller's choice.
constexpr unsigned GET_KEYS = _IOC_NR(EVIOCGKEY(0));
constexpr unsigned GET_LEDS = _IOC_NR(EVIOCGLED(0));
constexpr unsigned GET_TYPES = _IOC_NR(EVIOCGBIT(0, 0));
constexpr unsigned GET_OFFERED_KEYS = _IOC_NR(EVIOCGBIT(EV_KEY, 0));
constexpr unsigned GET_OFFERED_LEDS = _IOC_NR(EVIOCGBIT(EV_LED, 0));

void SetTimeToNow(input_event& event) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);  // evdev's clock unless told otherwise
    event.input_event_sec = now.tv_sec;
    event.input_event_usec = now.tv_nsec / 1000;
}

bool IsCommand(const input_event& event) {
    return event.input_event_sec == 0 && event.input_event_usec == 0 && event.type == EV_LED;
}

CodeBitmap OfferedTypes() {
    CodeBitmap bitmap{};
    for (const unsigned type : {EV_SYN, EV_KEY, EV_LED}) {
        bitmap[type / 8] |= static_cast<std::uint8_t>(1u << type % 8);
    }
    return bitmap;
}

/// As evdev does: the result is the number of bytes copied.
void AnswerWithBitmap(fuse_req_t request, std::size_t size, const CodeBitmap& bitmap) {
    const std::size_t count = std::min(size, bitmap.size());
    fuse_reply_ioctl(request, static_cast<int>(count), bitmap.data(), count);
}

}  // namespace

GpioNode::GpioNode(GpioModel& model) : CuseNode("input/vantora-gpio"), m_model(model) {}

GpioNode::~GpioNode() {
    FailBlockedReads(ENODEV);
}

void GpioNode::OnOpen(fuse_req_t request, fuse_file_info& file) {
    file.fh = ++m_lastHandle;
    m_openers.try_emplace(file.fh);
    fuse_reply_open(request, &file);
}

void GpioNode::OnRelease(fuse_req_t request, fuse_file_info& file) {
    m_openers.erase(file.fh);
    fuse_reply_err(request, 0);
}

void GpioNode::SendEvent(std::uint16_t type, std::uint16_t code, std::int32_t value) {
    input_event event{};
    SetTimeToNow(event);
    event.type = type;
    event.code = code;
    event.value = value;
    for (auto& [handle, opener] : m_openers) {
        Queue(opener, event);
    }
}

void GpioNode::Queue(Opener& opener, const input_event& event) {
    if (opener.events.size() == QUEUE_MAX) {
        // As evdev does: whoever does not read loses everything, and is told.
        input_event dropped = event;
        dropped.type = EV_SYN;
        dropped.code = SYN_DROPPED;
        dropped.value = 0;
        opener.events.assign(1, dropped);
    }
    opener.events.push_back(event);
    if (!opener.blockedReads.empty()) {
        const BlockedRead read = opener.blockedReads.front();
        opener.blockedReads.pop_front();
        AnswerWithEvents(read.request, read.size, opener);
    }
    if (opener.pollHandle && !opener.events.empty()) {
        fuse_lowlevel_notify_poll(opener.pollHandle.get());
        opener.pollHandle.reset();
    }
}

void GpioNode::OnRead(fuse_req_t request, std::size_t size, fuse_file_info& file) {
    Opener& opener = Find(file);
    if (Fails(Failing::READ)) {
        // What was to be read is lost; otherwise a client that waits with poll() would be woken again and
        // again.
        opener.events.clear();
        PrintRecord("refused a read");
        fuse_reply_err(request, EIO);
    } else if (size < sizeof(input_event)) {
        fuse_reply_err(request, EINVAL);
    } else if (!opener.events.empty()) {
        AnswerWithEvents(request, size, opener);
    } else if ((file.flags & O_NONBLOCK) != 0) {
        fuse_reply_err(request, EAGAIN);
    } else if (fuse_req_interrupted(request)) {
        fuse_reply_err(request, EINTR);
    } else {
        opener.blockedReads.push_back({request, size});
        fuse_req_interrupt_func(request, OnInterrupt, this);
    }
}

void GpioNode::AnswerWithEvents(fuse_req_t request, std::size_t size, Opener& opener) {
    const std::size_t count = std::min(size / sizeof(input_event), opener.events.size());
    const auto end = opener.events.begin() + static_cast<std::ptrdiff_t>(count);
    const std::vector<input_event> events(opener.events.begin(), end);
    opener.events.erase(opener.events.begin(), end);
    fuse_reply_buf(request, reinterpret_cast<const char*>(events.data()),
                   events.size() * sizeof(input_event));
}

/// As evdev does: whoever asks for a state is not told any more how it came about.
void GpioNode::Forget(Opener& opener, std::uint16_t type) {
    std::erase_if(opener.events, [&](const input_event& event) { return event.type == type; });
}

void GpioNode::OnInterrupt(fuse_req_t request, void* node) {
    for (auto& [handle, opener] : static_cast<GpioNode*>(node)->m_openers) {
        if (std::erase_if(opener.blockedReads,
                          [&](const BlockedRead& read) { return read.request == request; })) {
            fuse_reply_err(request, EINTR);
        }
    }
}

void GpioNode::OnWrite(fuse_req_t request, const char* data, std::size_t size) {
    input_event event{};
    std::memcpy(&event, data, std::min(size, sizeof event));
    if (Fails(Failing::WRITE)) {
        fuse_reply_err(request, EIO);
    } else if (size != sizeof event || !IsCommand(event)) {
        PrintRecord("refused " + std::to_string(size) + " bytes");
        fuse_reply_err(request, EINVAL);
    } else {
        m_model.Write(event.code, event.value);
        PrintRecord("write " + std::to_string(event.type) + " " + std::to_string(event.code) + " " +
                    std::to_string(event.value));
        fuse_reply_write(request, size);
    }
}

void GpioNode::OnIoctl(fuse_req_t request, unsigned command, std::size_t size, fuse_file_info& file) {
    if (Fails(Failing::IOCTL)) {
        fuse_reply_err(request, EIO);
        return;
    }
    if (command == EVIOCGVERSION) {
        const int version = EV_VERSION;
        fuse_reply_ioctl(request, 0, &version, sizeof version);
        return;
    }
    const bool isEvdevRead = _IOC_TYPE(command) == 'E' && _IOC_DIR(command) == _IOC_READ;
    switch (isEvdevRead ? _IOC_NR(command) : 0) {
        case GET_TYPES:
            return AnswerWithBitmap(request, size, OfferedTypes());
        case GET_OFFERED_KEYS:
            return AnswerWithBitmap(request, size, m_model.OfferedKeys());
        case GET_OFFERED_LEDS:
            return AnswerWithBitmap(request, size, m_model.OfferedLeds());
        case GET_KEYS:
            Forget(Find(file), EV_KEY);
            return AnswerWithBitmap(request, size, m_model.Keys());
        case GET_LEDS:
            Forget(Find(file), EV_LED);
            return AnswerWithBitmap(request, size, m_model.Leds());
        default:
            fuse_reply_err(request, EINVAL);
    }
}

void GpioNode::OnPoll(fuse_req_t request, fuse_file_info& file, fuse_pollhandle* handle) {
    Opener& opener = Find(file);
    if (handle != nullptr) {
        opener.pollHandle.reset(handle);
    }
    fuse_reply_poll(request, POLLOUT | POLLWRNORM | (opener.events.empty() ? 0 : POLLIN | POLLRDNORM));
}

void GpioNode::SetFailing(Failing failing) {
    CuseNode::SetFailing(failing);
    if (Fails(Failing::READ)) {
        FailBlockedReads(EIO);
    }
}

void GpioNode::FailBlockedReads(int error) {
    for (auto& [handle, opener] : m_openers) {
        for (const BlockedRead& read : std::exchange(opener.blockedReads, {})) {
            fuse_reply_err(read.request, error);
        }
    }
}

}  // namespace VirtualPlayer
