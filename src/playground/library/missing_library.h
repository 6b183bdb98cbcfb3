// What the interpreter needs of the standard library and that of the compiler for browsers lacks.
// It is put in front of each source file there.
#pragma once

#include <type_traits>
#include <version>

#ifndef __cpp_lib_bit_cast
namespace std {

template <class To, class From>
[[nodiscard]] constexpr To bit_cast(const From& from) noexcept {
    static_assert(sizeof(To) == sizeof(From));
    return __builtin_bit_cast(To, from);
}

}  // namespace std
#endif
