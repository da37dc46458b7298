#pragma once

// What a call says when it throws.

#include <exception>
#include <string>

/// @return the text of the exception that `call` throws
template <class Call>
std::string MessageOf(Call call) {
    try {
        call();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "no exception";
}
