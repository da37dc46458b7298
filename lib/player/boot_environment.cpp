#include "lib/player/boot_environment.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <memory>

#include "lib/platform/errno_exception.h"

// The header uses size_t without declaring it.
#include <libuboot.h>

namespace {

struct ContextDeleter {
    void operator()(uboot_ctx* context) const {
        libuboot_close(context);
        libuboot_exit(context);
    }
};

/// @param result  of a function that returns a negative error number when it fails
void CheckResult(int result, const std::string& subject) {
    if (result < 0) {
        throw ErrnoException(-result, subject);
    }
}

}  // namespace

BootEnvironment ReadBootEnvironment(const std::string& configuration) {
    // The library does not tell a missing file from one that it cannot make sense of.
    if (access(configuration.c_str(), R_OK) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) {
            return {};
        }
        throw ErrnoException(errno, configuration);
    }
    uboot_ctx* created = nullptr;
    CheckResult(libuboot_initialize(&created, nullptr), configuration);
    const std::unique_ptr<uboot_ctx, ContextDeleter> context(created);
    CheckResult(libuboot_read_config(context.get(), configuration.c_str()), configuration);
    CheckResult(libuboot_open(context.get()), "what " + configuration + " names");

    BootEnvironment environment;
    void* entry = nullptr;
    while ((entry = libuboot_iterator(context.get(), entry)) != nullptr) {
        environment.emplace(libuboot_getname(entry), libuboot_getvalue(entry));
    }
    return environment;
}
