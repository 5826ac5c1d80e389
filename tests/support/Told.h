#pragma once

#include <boost/core/demangle.hpp>

#include <exception>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace connector::test {

inline std::string text(std::string value) {
    return value;
}
inline std::string text(int value) {
    return std::to_string(value);
}

/// What `call` gives: the text of its result, "done" if it has none, or the type (without std::) and text of what it
/// throws.
template <class Call>
std::string told(Call&& call) {
    try {
        if constexpr (std::is_void_v<decltype(call())>) {
            call();
            return "done";
        } else {
            return text(call());
        }
    } catch (const std::exception& error) {
        const std::string type = boost::core::demangle(typeid(error).name());
        return type.substr(type.rfind("std::", 0) == 0 ? 5 : 0) + ": " + error.what();
    } catch (...) {
        return "not an exception";
    }
}

} // namespace connector::test
