#include "value/text.h"

#include <array>
#include <charconv>
#include <stdexcept>

namespace {

// Room for a sign and the ten digits of the longest int.
constexpr std::size_t kIntBufferSize = 11;

}  // namespace

void appendIntFast(std::string& out, int value) {
    char buffer[kIntBufferSize];
    const auto [end, error] = std::to_chars(buffer, buffer + kIntBufferSize, value);
    if (error != std::errc()) throw std::runtime_error("Failed to format integer");
    out.append(buffer, end);
}

std::string floatText(float number) { return std::to_string(number); }

void appendVariableStringFast(std::string& out, const Variable& value) {
    switch (value.type) {
        case VarType::Int: appendIntFast(out, value.asInt()); break;
        case VarType::Bool: out += value.asBool() ? "true" : "false"; break;
        case VarType::String: out += value.asString(); break;
        default: out += value.toString(); break;
    }
}

Variable byteText(char byte) {
#ifdef DOVREL_EMBEDDED
    // Texts are counted without a lock, so interpreters share none.
    return Variable(std::string(1, byte));
#else
    // Never destroyed, since values may outlive the statics of this file.
    static auto& texts = *new std::array<Text, 256>;
    Text& text = texts[static_cast<unsigned char>(byte)];
    if (text == nullptr) text = makeText(std::string(1, byte));
    return Variable(text);
#endif
}

std::string joinedText(const Variable& lhs, const Variable& rhs) {
    std::string text;
    text.reserve(estimateVariableStringSize(lhs) + estimateVariableStringSize(rhs));
    appendVariableStringFast(text, lhs);
    appendVariableStringFast(text, rhs);
    return text;
}

void appendToString(Variable& target, const Variable& addition) {
    if (target.asText().useCount() == 1) {
        appendVariableStringFast(target.mutableString(), addition);
    } else {
        target = Variable(joinedText(target, addition));
    }
}

std::size_t estimateVariableStringSize(const Variable& value) {
    switch (value.type) {
        case VarType::Int: {
            char buffer[kIntBufferSize];
            const auto result = std::to_chars(buffer, buffer + kIntBufferSize, value.asInt());
            return static_cast<std::size_t>(result.ptr - buffer);
        }
        case VarType::Bool: return value.asBool() ? 4 : 5;
        case VarType::String: return value.asString().size();
        default: return value.toString().size();
    }
}
