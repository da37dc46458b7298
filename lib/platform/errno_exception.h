#pragma once

// System-call failures as exceptions.

#include <cstring>
#include <exception>
#include <string>

/// A failed system call. The message is "<context>: <text of the error> (<number>)"; without a context it
/// begins with the text of the error.
class ErrnoException : public std::exception {
public:
    explicit ErrnoException(int errorNumber) : m_message(Describe(errorNumber)), m_errno(errorNumber) {}

    /// @param context the operation that failed
    ErrnoException(int errorNumber, const std::string& context)
        : m_message(context + ": " + Describe(errorNumber)), m_errno(errorNumber) {}

    const char* what() const noexcept override { return m_message.c_str(); }
    int GetErrno() const { return m_errno; }

private:
    static std::string Describe(int errorNumber) {
        return std::string(std::strerror(errorNumber)) + " (" + std::to_string(errorNumber) + ")";
    }

    std::string m_message;
    int m_errno;
};
