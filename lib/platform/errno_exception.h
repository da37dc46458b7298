#pragma once

// System-call failures as exceptions.

#include <cstring>
#include <exception>
#include <string>

/// A failed system call. The message is "<context>: <text of the error> (<number>)"; without a context it
/// begins with the text of the error.
class ErrnoException : public std::exception {
public:
    /// @param errorNumber what errno was
    explicit ErrnoException(int errorNumber) : m_message(Describe(errorNumber)), m_errno(errorNumber) {}

    /// @param errorNumber what errno was
    /// @param context the operation that failed
    ErrnoException(int errorNumber, const std::string& context)
        : m_message(context + ": " + Describe(errorNumber)), m_errno(errorNumber) {}

    /// The message as described above; lives as long as the exception
    const char* what() const noexcept override { return m_message.c_str(); }
    int GetErrno() const { return m_errno; }  ///< what errno was

private:
    static std::string Describe(int errorNumber) {
        return std::string(std::strerror(errorNumber)) + " (" + std::to_string(errorNumber) + ")";
    }

    std::string m_message;
    int m_errno;
};
