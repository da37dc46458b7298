#include "virtual_player/gpio/cuse_node.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "virtual_player/common/file_descriptor.h"

namespace VirtualPlayer {

// From the library's callbacks to the node that they are about.
struct CuseNode::Handlers {
    static CuseNode& Node(fuse_req_t request) { return *static_cast<CuseNode*>(fuse_req_userdata(request)); }

    static void InitDone(void* node) { static_cast<CuseNode*>(node)->m_isAnnounced = true; }
    static void Open(fuse_req_t request, fuse_file_info* file) { Node(request).OnOpen(request, *file); }
    static void Release(fuse_req_t request, fuse_file_info* file) { Node(request).OnRelease(request, *file); }
    static void Read(fuse_req_t request, std::size_t size, off_t, fuse_file_info* file) {
        Node(request).OnRead(request, size, *file);
    }
    static void Write(fuse_req_t request, const char* data, std::size_t size, off_t, fuse_file_info*) {
        Node(request).OnWrite(request, data, size);
    }
    static void Ioctl(fuse_req_t request, int number, void* argument, fuse_file_info* file, unsigned,
                      const void* data, std::size_t size, std::size_t answerSize) {
        const auto command = static_cast<unsigned>(number);
        const bool gives = (_IOC_DIR(command) & _IOC_WRITE) != 0;
        const bool takes = (_IOC_DIR(command) & _IOC_READ) != 0;
        const iovec area{argument, _IOC_SIZE(command)};
        if (area.iov_len > 0 && size == 0 && answerSize == 0) {
            // The kernel copies nothing until it is told what.
            fuse_reply_ioctl_retry(request, &area, gives, &area, takes);
            return;
        }
        Node(request).OnIoctl(
            request, {command, argument, {static_cast<const std::uint8_t*>(data), size}, answerSize}, *file);
    }
    static void Poll(fuse_req_t request, fuse_file_info* file, fuse_pollhandle* handle) {
        Node(request).OnPoll(request, *file, handle);
    }

    static cuse_lowlevel_ops Table() {
        cuse_lowlevel_ops table{};
        table.init_done = InitDone;
        table.open = Open;
        table.release = Release;
        table.read = Read;
        table.write = Write;
        table.ioctl = Ioctl;
        table.poll = Poll;
        return table;
    }
};

CuseNode::CuseNode(const std::string& name) : m_path("/dev/" + name) {
    FileDescriptor channel(::open("/dev/cuse", O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (channel.Get() < 0) {
        throw std::system_error(errno, std::generic_category(), "/dev/cuse");
    }
    const std::string deviceName = "DEVNAME=" + name;
    const char* deviceArguments[] = {deviceName.c_str()};
    cuse_info device{};
    device.flags = CUSE_UNRESTRICTED_IOCTL;  // some data of evdev's requests stand elsewhere
    device.dev_info_argc = 1;
    device.dev_info_argv = deviceArguments;
    const cuse_lowlevel_ops handlers = Handlers::Table();
    char programName[] = "cuse";
    char* programArguments[] = {programName, nullptr};
    fuse_args arguments = FUSE_ARGS_INIT(1, programArguments);
    m_session = cuse_lowlevel_new(&arguments, &device, &handlers, this);
    fuse_opt_free_args(&arguments);
    if (m_session == nullptr) {
        throw std::runtime_error("no session for " + m_path);
    }
    // This form of a mount point hands over an open channel.
    if (fuse_session_mount(m_session, ("/dev/fd/" + std::to_string(channel.Get())).c_str()) != 0) {
        fuse_session_destroy(m_session);
        throw std::runtime_error("no channel for " + m_path);
    }
    channel.Release();
}

CuseNode::~CuseNode() {
    fuse_session_destroy(m_session);
    std::free(m_buffer.mem);
}

void CuseNode::Serve() {
    const int received = fuse_session_receive_buf(m_session, &m_buffer);
    if (received == -EAGAIN || received == -EINTR) {
        return;  // whoever made the request has given it up
    }
    if (received < 0) {
        throw std::system_error(-received, std::generic_category(), m_path);
    }
    if (received > 0) {
        fuse_session_process_buf(m_session, &m_buffer);
    }
    if (fuse_session_exited(m_session)) {
        throw std::runtime_error("the kernel refused " + m_path);
    }
}

bool CuseNode::Exists() const {
    // A device that the kernel refused may have its node all the same: that of the device which has the name.
    pollfd channel{GetFd(), 0, 0};
    return m_isAnnounced && ::access(m_path.c_str(), F_OK) == 0 && ::poll(&channel, 1, 0) == 0;
}

void CuseNode::OnOpen(fuse_req_t request, fuse_file_info& file) {
    fuse_reply_open(request, &file);
}

void CuseNode::OnRelease(fuse_req_t request, fuse_file_info&) {
    fuse_reply_err(request, 0);
}

void CuseNode::OnRead(fuse_req_t request, std::size_t, fuse_file_info&) {
    fuse_reply_err(request, EINVAL);
}

void CuseNode::OnWrite(fuse_req_t request, const char*, std::size_t) {
    fuse_reply_err(request, EINVAL);
}

void CuseNode::OnIoctl(fuse_req_t request, const IoctlCall&, fuse_file_info&) {
    fuse_reply_err(request, ENOTTY);
}

void CuseNode::FetchMore(fuse_req_t request, const IoctlCall& call, void* address, std::size_t size) {
    const iovec areas[] = {{call.argument, _IOC_SIZE(call.command)}, {address, size}};
    fuse_reply_ioctl_retry(request, areas, std::size(areas), nullptr, 0);
}

void CuseNode::OnPoll(fuse_req_t request, fuse_file_info&, fuse_pollhandle* handle) {
    if (handle != nullptr) {
        fuse_pollhandle_destroy(handle);
    }
    fuse_reply_poll(request, POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM);
}

}  // namespace VirtualPlayer
