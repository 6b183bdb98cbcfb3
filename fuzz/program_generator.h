// Whole programs from bytes: each byte decides one choice of a grammar, so that what the fuzzer
// changes in the bytes changes the program in one place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

/// What a program may hold.
enum class ProgramKind : std::uint8_t {
    Any,    // the whole language
    Plain,  // what the two executors define alike: no function, int arithmetic, no call in a
            // condition, no assignment to a loop variable
};

/// The same bytes give the same program. No program makes a container that holds itself: nothing
/// collects those, and their text has no end.
class ProgramGenerator {
public:
    ProgramGenerator(const std::uint8_t* data, std::size_t size, ProgramKind kind)
        : data_(data), end_(data + size), plain_(kind == ProgramKind::Plain) {}

    std::string program();

private:
    /// A choice out of `count`; 0, the simplest one, when the bytes are at an end.
    unsigned int pick(unsigned int count) {
        return data_ != end_ && count > 0 ? *data_++ % count : 0;
    }
    std::string oneOf(std::initializer_list<const char*> choices) {
        return choices.begin()[pick(static_cast<unsigned int>(choices.size()))];
    }

    std::string scalarVariable();
    std::string container();
    std::string literal();
    std::string expression(int depth);
    std::string operation(int depth);
    std::string nativeCall(int depth);
    std::string scriptCall(int depth);
    std::string condition();
    std::string storable();
    std::string key();

    std::string protectedPart(int number);
    std::string statement(int depth);
    std::string block(int depth);
    std::string assignment();
    std::string severalTargets();
    std::string branch(int depth);
    std::string countedLoop(int depth);
    std::string numericFor(int depth);
    std::string genericFor(int depth);
    std::string function(int depth);
    std::string containerCall();
    std::string oddity();

    const std::uint8_t* data_;
    const std::uint8_t* end_;
    bool plain_;
    int loops_ = 0;
    int functions_ = 0;
};
