#pragma once

// Names of types, for function texts that name the type of a template.

#include <cstddef>
#include <string>
#include <string_view>

namespace strata {

/// A function text with T in it: "... FunctionTextWith() [with T = PollThread]", whatever T is.
template <class T>
const char* FunctionTextWith() {
    return __PRETTY_FUNCTION__;
}

/// The name of T as it stands in a function text ("[with T = PollThread]").
template <class T>
std::string TypeName() {
    // From the first "T = " to the bracket at the end: the name may have brackets and semicolons of its own.
    const std::string_view text = FunctionTextWith<T>();
    const std::size_t start = text.find("T = ") + 4;
    return std::string(text.substr(start, text.size() - 1 - start));
}

}  // namespace strata
