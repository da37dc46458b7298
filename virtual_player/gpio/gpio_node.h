#pragma once

// The device node of the player's GPIO input driver: the part of evdev that its clients use. As with every
// input device, a command that changes an LED is an event for all who have the node open, whoever wrote it.

#include <linux/input.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "virtual_player/gpio/cuse_node.h"
#include "virtual_player/gpio/evdev_queue.h"
#include "virtual_player/gpio/gpio_model.h"

namespace VirtualPlayer {

class GpioNode final : public CuseNode {
public:
    /// Makes "/dev/input/vantora-gpio". @param model must outlive the node
    explicit GpioNode(GpioModel& model);
    ~GpioNode() override;

    /// Takes an event as the kernel's input layer takes it from a driver: once a SYN_REPORT ends them, or
    /// when they get many, all that have come reach everybody who has the node open.
    void SendEvent(std::uint16_t type, std::uint16_t code, std::int32_t value);

    /// Reads that wait for an event fail too.
    void SetFailing(Failing failing) override;

private:
    struct PollHandleCloser {
        void operator()(fuse_pollhandle* handle) const { fuse_pollhandle_destroy(handle); }
    };
    struct BlockedRead {
        fuse_req_t request;
        std::size_t size;
    };
    struct Opener {
        EvdevQueue events;
        std::deque<BlockedRead> blockedReads;
        std::unique_ptr<fuse_pollhandle, PollHandleCloser> pollHandle;
    };

    void OnOpen(fuse_req_t request, fuse_file_info& file) override;
    void OnRelease(fuse_req_t request, fuse_file_info& file) override;
    void OnRead(fuse_req_t request, std::size_t size, fuse_file_info& file) override;
    void OnWrite(fuse_req_t request, const char* data, std::size_t size) override;
    void OnIoctl(fuse_req_t request, const IoctlCall& call, fuse_file_info& file) override;
    void OnPoll(fuse_req_t request, fuse_file_info& file, fuse_pollhandle* handle) override;

    static void OnInterrupt(fuse_req_t request, void* node);
    Opener& Find(const fuse_file_info& file) { return m_openers.at(file.fh); }
    void PassPending();
    void SetMask(fuse_req_t request, const IoctlCall& call, Opener& opener);
    static void SetClock(fuse_req_t request, const IoctlCall& call, Opener& opener);
    static void AnswerWithEvents(fuse_req_t request, std::size_t size, Opener& opener);
    void FailBlockedReads(int error);

    GpioModel& m_model;
    std::vector<EventValue> m_pending;          ///< events that no SYN_REPORT has followed yet
    std::map<std::uint64_t, Opener> m_openers;  ///< by the handle that the kernel keeps for each
    std::uint64_t m_lastHandle = 0;
};

}  // namespace VirtualPlayer
