#pragma once

// A character device whose driver is this process: a node that the kernel makes below /dev, whose requests
// come here one at a time. The program waits for requests with poll() on all its nodes and serves them on one
// thread, so nothing needs a lock; a handler must not wait, but may keep a request and answer it later.

#define FUSE_USE_VERSION 31
#include <cuse_lowlevel.h>

#include <cstdint>
#include <span>
#include <string>

namespace VirtualPlayer {

/// Requests that a device refuses on purpose.
enum class Failing { NOTHING, IOCTL, WRITE, READ };

/// A request to a device, with the data that its number says it has.
struct IoctlCall {
    unsigned command;
    void* argument;                      ///< an address of the caller's
    std::span<const std::uint8_t> data;  ///< from there, and what else was fetched with FetchMore
    std::size_t answerSize;              ///< that the caller has room for
};

class CuseNode {
public:
    CuseNode(const CuseNode&) = delete;
    CuseNode& operator=(const CuseNode&) = delete;
    virtual ~CuseNode();

    /// Readable when there are requests.
    int GetFd() const { return fuse_session_fd(m_session); }

    /// Serves one request. @throws std::runtime_error when the kernel does not want the device (any more)
    void Serve();

    /// @return whether the node is there; some requests have to be served before it is
    bool Exists() const;

    /// From now on requests of this kind, and of no other, fail with EIO.
    virtual void SetFailing(Failing failing) { m_failing = failing; }

protected:
    /// @param name path of the node below /dev
    /// @throws std::system_error when there is no CUSE
    explicit CuseNode(const std::string& name);

    bool Fails(Failing kind) const { return m_failing == kind; }

    /// Answers a request whose data point to more of it: it comes again with that behind its data.
    static void FetchMore(fuse_req_t request, const IoctlCall& call, void* address, std::size_t size);

    // Each answers its request now or later. The default for all is what a device does that has not the
    // operation.
    virtual void OnOpen(fuse_req_t request, fuse_file_info& file);
    virtual void OnRelease(fuse_req_t request, fuse_file_info& file);
    virtual void OnRead(fuse_req_t request, std::size_t size, fuse_file_info& file);
    virtual void OnWrite(fuse_req_t request, const char* data, std::size_t size);
    virtual void OnIoctl(fuse_req_t request, const IoctlCall& call, fuse_file_info& file);
    /// @param handle to notify when the answer becomes another, owned by the callee; or null
    virtual void OnPoll(fuse_req_t request, fuse_file_info& file, fuse_pollhandle* handle);

private:
    struct Handlers;

    const std::string m_path;
    Failing m_failing = Failing::NOTHING;
    bool m_isAnnounced = false;
    fuse_session* m_session = nullptr;
    fuse_buf m_buffer{};
};

}  // namespace VirtualPlayer
