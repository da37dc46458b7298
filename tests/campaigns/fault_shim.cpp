// A library for LD_PRELOAD that makes one call of a program fail, or stops the program there. It numbers the
// calls that the program itself (or libudev for it) makes on the way to a board, or those to DirectFB, and
// writes them to a file:
//
// - FAULT_CALLS: which calls are numbered, "hid" or "display".
// - FAULT_AT: number of the call that fails, from 1 on; none or 0: none of them.
// - FAULT_SITE: place in the program from which the first call fails, as in the file.
// - FAULT_STOPS: if set, that call does not fail, but waits as all threads do: for SIGCONT.
// - FAULT_LOG: file for one line a call, "NUMBER NAME SITE", SITE being where in the program it stands. At
// the
//   end come "open WHAT" for each descriptor that is open then, the standard ones excepted, and "thread NAME"
//   for each thread that still runs.

#include <directfb.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <libudev.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace {

constexpr int FAILURE = EIO;

const char* Setting(const char* name) {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
}

const std::string calls = Setting("FAULT_CALLS");
const long failingCall = atol(Setting("FAULT_AT"));
const unsigned long failingSite = strtoul(Setting("FAULT_SITE"), nullptr, 16);
const bool stops = *Setting("FAULT_STOPS") != '\0';
const int logFile = open(Setting("FAULT_LOG"), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);

std::atomic<long> lastCall{0};
std::atomic<bool> failed{false};

void Log(const char* format, ...) {
    char line[200];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    const int before = errno;
    static const auto next =
        reinterpret_cast<ssize_t (*)(int, const void*, std::size_t)>(dlsym(RTLD_NEXT, "write"));
    (void)next(logFile, line, static_cast<std::size_t>(length));
    errno = before;
}

/// The next definition of a function, after the one of this library.
template <class Function>
Function Next(Function, const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// Where a call comes from, in the program or in libudev; 0 for other callers.
unsigned long Site(const void* caller) {
    Dl_info object{};
    if (dladdr(caller, &object) == 0 || object.dli_fname == nullptr) {
        return 0;
    }
    const bool isProgram = strstr(object.dli_fname, ".so") == nullptr;
    if (!isProgram && strstr(object.dli_fname, "libudev") == nullptr) {
        return 0;
    }
    return reinterpret_cast<unsigned long>(caller) - reinterpret_cast<unsigned long>(object.dli_fbase);
}

/// Numbers a call, and stops where that is asked for. @return whether it is to fail
bool Fails(const char* kind, const char* name, const void* caller) {
    const unsigned long site = calls == kind ? Site(caller) : 0;
    if (site == 0) {
        return false;
    }
    const long number = ++lastCall;
    Log("%ld %s %lx\n", number, name, site);
    if ((number != failingCall && site != failingSite) || failed.exchange(true)) {
        return false;
    }
    if (stops) {
        (void)raise(SIGSTOP);
        return false;
    }
    errno = FAILURE;
    return true;
}

auto NextOpen() {
    static const auto next = reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
    return next;
}

/// Logs what is left when the program ends.
struct AtExit {
    ~AtExit() {
        // A thread that has been joined may take a moment to vanish.
        usleep(200'000);
        std::error_code gone;
        for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
            if (atoi(descriptor.path().filename().c_str()) > STDERR_FILENO) {
                Log("open %s\n", std::filesystem::read_symlink(descriptor, gone).c_str());
            }
        }
        for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(thread.path() / "comm"), name);
            Log("thread %s\n", name.c_str());
        }
    }
} atExit;

}  // namespace

// The caller's address has to be taken in the function itself.
#define CALLER __builtin_return_address(0)
#define NEXT(function) Next(&function, #function)
#define FAIL_OR(name, failure, result) \
    if (Fails("hid", name, CALLER)) {  \
        return failure;                \
    }                                  \
    return result

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    FAIL_OR("open", -1, NextOpen()(path, flags, mode));
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    FAIL_OR("open", -1, NextOpen()(path, flags, mode));
}

int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto next = reinterpret_cast<int (*)(int, unsigned long, ...)>(dlsym(RTLD_NEXT, "ioctl"));
    FAIL_OR("ioctl", -1, next(descriptor, request, argument));
}

ssize_t read(int descriptor, void* buffer, std::size_t size) {
    static const auto next = NEXT(read);
    FAIL_OR("read", -1, next(descriptor, buffer, size));
}

ssize_t write(int descriptor, const void* data, std::size_t size) {
    static const auto next = NEXT(write);
    FAIL_OR("write", -1, next(descriptor, data, size));
}

int poll(pollfd* set, nfds_t count, int timeout) {
    static const auto next = NEXT(poll);
    FAIL_OR("poll", -1, next(set, count, timeout));
}

int ppoll(pollfd* set, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    static const auto next = NEXT(ppoll);
    FAIL_OR("ppoll", -1, next(set, count, timeout, mask));
}

// What a fortified program calls in its place.
int __ppoll_chk(pollfd* set, nfds_t count, const timespec* timeout, const sigset_t* mask, std::size_t) {
    FAIL_OR("ppoll", -1, Next(&ppoll, "ppoll")(set, count, timeout, mask));
}

int pipe(int descriptors[2]) noexcept {
    static const auto next = NEXT(pipe);
    FAIL_OR("pipe", -1, next(descriptors));
}

int eventfd(unsigned count, int flags) noexcept {
    static const auto next = NEXT(eventfd);
    FAIL_OR("eventfd", -1, next(count, flags));
}

int eventfd_read(int descriptor, eventfd_t* count) {
    static const auto next = NEXT(eventfd_read);
    FAIL_OR("eventfd_read", -1, next(descriptor, count));
}

int eventfd_write(int descriptor, eventfd_t count) {
    static const auto next = NEXT(eventfd_write);
    FAIL_OR("eventfd_write", -1, next(descriptor, count));
}

int socket(int domain, int type, int protocol) noexcept {
    static const auto next = NEXT(socket);
    FAIL_OR("socket", -1, next(domain, type, protocol));
}

int bind(int descriptor, const sockaddr* address, socklen_t length) noexcept {
    static const auto next = NEXT(bind);
    FAIL_OR("bind", -1, next(descriptor, address, length));
}

int setsockopt(int descriptor, int level, int option, const void* value, socklen_t length) noexcept {
    static const auto next = NEXT(setsockopt);
    FAIL_OR("setsockopt", -1, next(descriptor, level, option, value, length));
}

ssize_t recvmsg(int descriptor, msghdr* message, int flags) {
    static const auto next = NEXT(recvmsg);
    FAIL_OR("recvmsg", -1, next(descriptor, message, flags));
}

udev* udev_new() {
    static const auto next = NEXT(udev_new);
    FAIL_OR("udev_new", nullptr, next());
}

udev_monitor* udev_monitor_new_from_netlink(udev* connection, const char* name) {
    static const auto next = NEXT(udev_monitor_new_from_netlink);
    FAIL_OR("udev_monitor_new_from_netlink", nullptr, next(connection, name));
}

int udev_monitor_enable_receiving(udev_monitor* monitor) {
    static const auto next = NEXT(udev_monitor_enable_receiving);
    FAIL_OR("udev_monitor_enable_receiving", -FAILURE, next(monitor));
}

int udev_monitor_filter_add_match_subsystem_devtype(udev_monitor* monitor, const char* subsystem,
                                                    const char* type) {
    static const auto next = NEXT(udev_monitor_filter_add_match_subsystem_devtype);
    FAIL_OR("udev_monitor_filter_add_match", -FAILURE, next(monitor, subsystem, type));
}

udev_device* udev_monitor_receive_device(udev_monitor* monitor) {
    static const auto next = NEXT(udev_monitor_receive_device);
    FAIL_OR("udev_monitor_receive_device", nullptr, next(monitor));
}

udev_device* udev_device_new_from_subsystem_sysname(udev* connection, const char* subsystem,
                                                    const char* name) {
    static const auto next = NEXT(udev_device_new_from_subsystem_sysname);
    FAIL_OR("udev_device_new_from_subsystem_sysname", nullptr, next(connection, subsystem, name));
}

udev_device* udev_device_get_parent_with_subsystem_devtype(udev_device* device, const char* subsystem,
                                                           const char* type) {
    static const auto next = NEXT(udev_device_get_parent_with_subsystem_devtype);
    FAIL_OR("udev_device_get_parent", nullptr, next(device, subsystem, type));
}

const char* udev_device_get_sysname(udev_device* device) {
    static const auto next = NEXT(udev_device_get_sysname);
    FAIL_OR("udev_device_get_sysname", nullptr, next(device));
}

const char* udev_device_get_action(udev_device* device) {
    static const auto next = NEXT(udev_device_get_action);
    FAIL_OR("udev_device_get_action", nullptr, next(device));
}

const char* udev_device_get_devnode(udev_device* device) {
    static const auto next = NEXT(udev_device_get_devnode);
    FAIL_OR("udev_device_get_devnode", nullptr, next(device));
}

}  // extern "C"

// --- DirectFB: an interface is a record of function pointers, each object with one of its own ---

namespace {

template <auto METHOD>
struct Hook;

template <class Interface, class... Arguments, DFBResult (*Interface::*METHOD)(Interface*, Arguments...)>
struct Hook<METHOD> {
    // One for all objects: those of an interface share their functions.
    static inline DFBResult (*sm_next)(Interface*, Arguments...);
    static inline const char* sm_name;
    static inline void (*sm_found)(Arguments...);

    static DFBResult Call(Interface* self, Arguments... arguments) {
        if (Fails("display", sm_name, CALLER)) {
            return DFB_FAILURE;
        }
        const DFBResult result = sm_next(self, arguments...);
        if (result == DFB_OK && sm_found != nullptr) {
            sm_found(arguments...);
        }
        return result;
    }

    /// @param found  called with the arguments of a call that went well
    static void Install(Interface* object, const char* name, void (*found)(Arguments...) = nullptr) {
        if (object->*METHOD == Call) {
            return;
        }
        sm_next = object->*METHOD;
        sm_name = name;
        sm_found = found;
        object->*METHOD = Call;
    }
};

#define HOOK(object, interface, method, ...) \
    Hook<&interface::method>::Install(object, #interface "." #method __VA_OPT__(, ) __VA_ARGS__)

void HookSurface(IDirectFBSurface* surface) {
    HOOK(surface, IDirectFBSurface, Clear);
    HOOK(surface, IDirectFBSurface, Flip);
    HOOK(surface, IDirectFBSurface, SetColor);
    HOOK(surface, IDirectFBSurface, SetFont);
    HOOK(surface, IDirectFBSurface, FillRectangle);
    HOOK(surface, IDirectFBSurface, DrawRectangle);
    HOOK(surface, IDirectFBSurface, DrawString);
    HOOK(surface, IDirectFBSurface, GetSize);
}

void HookFont(IDirectFBFont* font) {
    HOOK(font, IDirectFBFont, GetHeight);
    HOOK(font, IDirectFBFont, GetAscender);
    HOOK(font, IDirectFBFont, GetDescender);
    HOOK(font, IDirectFBFont, GetStringWidth);
    HOOK(font, IDirectFBFont, GetStringExtents);
}

void HookScreen(IDirectFBScreen* screen) {
    HOOK(screen, IDirectFBScreen, GetSize);
    HOOK(screen, IDirectFBScreen, SetPowerMode);
    HOOK(screen, IDirectFBScreen, GetEncoderConfiguration);
    HOOK(screen, IDirectFBScreen, TestEncoderConfiguration);
    HOOK(screen, IDirectFBScreen, SetEncoderConfiguration);
}

void HookInterface(IDirectFB* dfb) {
    HOOK(dfb, IDirectFB, SetCooperativeLevel);
    HOOK(dfb, IDirectFB, GetScreen, [](DFBScreenID, IDirectFBScreen** screen) { HookScreen(*screen); });
    HOOK(dfb, IDirectFB, CreateSurface,
         [](const DFBSurfaceDescription*, IDirectFBSurface** surface) { HookSurface(*surface); });
    HOOK(dfb, IDirectFB, CreateFont,
         [](const char*, const DFBFontDescription*, IDirectFBFont** font) { HookFont(*font); });
}

}  // namespace

extern "C" DFBResult DirectFBInit(int* argc, char*** argv) {
    static const auto next = NEXT(DirectFBInit);
    if (Fails("display", "DirectFBInit", CALLER)) {
        return DFB_FAILURE;
    }
    return next(argc, argv);
}

extern "C" DFBResult DirectFBSetOption(const char* name, const char* value) {
    static const auto next = NEXT(DirectFBSetOption);
    if (Fails("display", "DirectFBSetOption", CALLER)) {
        return DFB_FAILURE;
    }
    return next(name, value);
}

extern "C" DFBResult DirectFBCreate(IDirectFB** dfb) {
    static const auto next = NEXT(DirectFBCreate);
    if (Fails("display", "DirectFBCreate", CALLER)) {
        return DFB_FAILURE;
    }
    const DFBResult result = next(dfb);
    if (result == DFB_OK) {
        HookInterface(*dfb);
    }
    return result;
}
