#include "virtual_player/gpio/gpio_node.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "virtual_player/common/console.h"

namespace VirtualPlayer {

namespace {

/// So many events of a device without axes are passed on though no SYN_REPORT has come.
constexpr std::size_t PENDING_MAX = 8;

/// What stands in the SYN_REPORT that is made up then.
constexpr std::int32_t UNASKED = 1;

// Numbers of evdev's requests, whose length is the caller's choice.
constexpr unsigned GET_KEYS = _IOC_NR(EVIOCGKEY(0));
constexpr unsigned GET_LEDS = _IOC_NR(EVIOCGLED(0));
constexpr unsigned GET_TYPES = _IOC_NR(EVIOCGBIT(0, 0));
constexpr unsigned GET_OFFERED_KEYS = _IOC_NR(EVIOCGBIT(EV_KEY, 0));
constexpr unsigned GET_OFFERED_LEDS = _IOC_NR(EVIOCGBIT(EV_LED, 0));

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
    m_pending.push_back({type, code, value});
    const bool isReport = type == EV_SYN && code == SYN_REPORT;
    if (!isReport) {
        if (m_pending.size() < PENDING_MAX) {
            return;
        }
        m_pending.push_back({EV_SYN, SYN_REPORT, UNASKED});
    }
    PassPending();
}

void GpioNode::PassPending() {
    const std::vector<EventValue> packet = std::exchange(m_pending, {});
    if (packet.size() < 2) {
        return;  // a SYN_REPORT alone
    }
    for (auto& [handle, opener] : m_openers) {
        opener.events.Pass(packet);
        if (opener.events.IsReadable() && !opener.blockedReads.empty()) {
            const BlockedRead read = opener.blockedReads.front();
            opener.blockedReads.pop_front();
            AnswerWithEvents(read.request, read.size, opener);
        }
        if (opener.events.IsReadable() && opener.pollHandle) {
            fuse_lowlevel_notify_poll(opener.pollHandle.get());
            opener.pollHandle.reset();
        }
    }
}

void GpioNode::OnRead(fuse_req_t request, std::size_t size, fuse_file_info& file) {
    Opener& opener = Find(file);
    if (Fails(Failing::READ)) {
        // The events stay, so a client that waits with poll() is woken again and again.
        PrintRecord("refused a read");
        fuse_reply_err(request, EIO);
    } else if (size < sizeof(input_event)) {
        fuse_reply_err(request, EINVAL);
    } else if (opener.events.IsReadable()) {
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
    const std::vector<input_event> events = opener.events.Take(size / sizeof(input_event));
    fuse_reply_buf(request, reinterpret_cast<const char*>(events.data()),
                   events.size() * sizeof(input_event));
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
        const bool isChange = m_model.Write(event.code, event.value);
        PrintRecord("write " + std::to_string(event.type) + " " + std::to_string(event.code) + " " +
                    std::to_string(event.value));
        fuse_reply_write(request, size);
        if (isChange) {
            SendEvent(event.type, event.code, event.value);
        }
    }
}

void GpioNode::OnIoctl(fuse_req_t request, const IoctlCall& call, fuse_file_info& file) {
    Opener& opener = Find(file);
    if (Fails(Failing::IOCTL)) {
        PrintRecord("refused a request");
        fuse_reply_err(request, EIO);
        return;
    }
    switch (call.command) {
        case EVIOCGVERSION: {
            const int version = EV_VERSION;
            fuse_reply_ioctl(request, 0, &version, sizeof version);
            return;
        }
        case EVIOCSCLOCKID:
            return SetClock(request, call, opener);
        case EVIOCSMASK:
            return SetMask(request, call, opener);
    }
    const bool isEvdevRead = _IOC_TYPE(call.command) == 'E' && _IOC_DIR(call.command) == _IOC_READ;
    switch (isEvdevRead ? _IOC_NR(call.command) : 0) {
        case GET_TYPES:
            return AnswerWithBitmap(request, call.answerSize, OfferedTypes());
        case GET_OFFERED_KEYS:
            return AnswerWithBitmap(request, call.answerSize, m_model.OfferedKeys());
        case GET_OFFERED_LEDS:
            return AnswerWithBitmap(request, call.answerSize, m_model.OfferedLeds());
        case GET_KEYS:
            opener.events.Forget(EV_KEY);
            return AnswerWithBitmap(request, call.answerSize, m_model.Keys());
        case GET_LEDS:
            opener.events.Forget(EV_LED);
            return AnswerWithBitmap(request, call.answerSize, m_model.Leds());
        default:
            fuse_reply_err(request, EINVAL);
    }
}

void GpioNode::SetClock(fuse_req_t request, const IoctlCall& call, Opener& opener) {
    int clock = 0;
    std::memcpy(&clock, call.data.data(), sizeof clock);
    if (opener.events.SetClock(clock)) {
        fuse_reply_ioctl(request, 0, nullptr, 0);
    } else {
        fuse_reply_err(request, EINVAL);
    }
}

void GpioNode::SetMask(fuse_req_t request, const IoctlCall& call, Opener& opener) {
    input_mask mask{};
    std::memcpy(&mask, call.data.data(), sizeof mask);
    const std::span<const std::uint8_t> given = call.data.subspan(sizeof mask);
    CodeBitmap codes{};
    const std::size_t size = std::min<std::size_t>(mask.codes_size, codes.size());
    if (mask.codes_size % sizeof(long) != 0) {
        fuse_reply_err(request, EINVAL);
    } else if (given.size() < size) {
        // NOLINTNEXTLINE(performance-no-int-to-ptr): the request holds the address as a number
        FetchMore(request, call, reinterpret_cast<void*>(mask.codes_ptr), size);
    } else {
        std::ranges::copy(given.first(size), codes.begin());
        opener.events.SetMask(mask.type, codes);
        fuse_reply_ioctl(request, 0, nullptr, 0);
    }
}

void GpioNode::OnPoll(fuse_req_t request, fuse_file_info& file, fuse_pollhandle* handle) {
    Opener& opener = Find(file);
    if (handle != nullptr) {
        opener.pollHandle.reset(handle);
    }
    fuse_reply_poll(request, POLLOUT | POLLWRNORM | (opener.events.IsReadable() ? POLLIN | POLLRDNORM : 0));
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
