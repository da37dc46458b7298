#pragma once

// What went wrong, with what it went wrong with.

#include <exception>
#include <stdexcept>
#include <string>

#include "apps/portprobe/request.h"

/// what() is "subject: why".
class Trouble : public std::runtime_error {
    /// @param subject  what it went wrong with, such as a port's name
    /// @param why      what went wrong
public:
    Trouble(const std::string& subject, const std::string& why) : std::runtime_error(subject + ": " + why) {}
};

/// Does some work; what fails there becomes Trouble with the subject.
/// @throws UsageError as it is
template <class Work>
void About(const std::string& subject, const Work& work) {
    try {
        work();
    } catch (const UsageError&) {
        throw;
    } catch (const Trouble&) {
        throw;
    } catch (const std::exception& failure) {
        throw Trouble(subject, failure.what());
    }
}
