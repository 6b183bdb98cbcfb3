# Writes a C++ source that holds a text file: cmake -D INPUT= -D OUTPUT= -D NAME= -P embed_text.cmake
# Bytes and not a string literal: the standard only asks for literals of 64 KiB.
file(READ ${INPUT} bytes HEX)
string(LENGTH "${bytes}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "(..)" "'\\\\x\\1'," bytes "${bytes}")
string(REPEAT "." 98 line)
string(REGEX REPLACE "(${line})" "\\1\n    " bytes "${bytes}")
file(WRITE ${OUTPUT} "#include <array>
#include <string_view>

namespace {
constexpr std::array<char, ${size}> kBytes = {
    ${bytes}
};
}  // namespace

std::string_view ${NAME}();
std::string_view ${NAME}() { return {kBytes.data(), kBytes.size()}; }
")
