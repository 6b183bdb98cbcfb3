// Pushing the directory and the name of running code, and popping them on every way out.
#pragma once

#include <string>
#include <vector>

#include "interpreter/dovrel_script.h"

/// Pushes one text, unless it is empty, and pops it again. The text must outlive the guard.
class NameStackEntry {
public:
    NameStackEntry(std::vector<const std::string*>& stack, const std::string& text)
        : NameStackEntry(stack, text, !text.empty()) {}
    /// Pushes `text` if `pushes`, even an empty one.
    NameStackEntry(std::vector<const std::string*>& stack, const std::string& text, bool pushes)
        : stack_(stack), pushed_(pushes) {
        if (pushed_) stack_.push_back(&text);
    }
    ~NameStackEntry() {
        if (pushed_) stack_.pop_back();
    }
    NameStackEntry(const NameStackEntry&) = delete;
    NameStackEntry& operator=(const NameStackEntry&) = delete;

private:
    std::vector<const std::string*>& stack_;
    bool pushed_;
};

/// Pushes a directory and a name, those that are not empty.
class NameStackGuard {
public:
    NameStackGuard(DovrelScript& interpreter, const std::string& baseDirectory,
                   const std::string& scriptName)
        : directory_(interpreter.baseDirectoryStack, baseDirectory),
          name_(interpreter.scriptNameStack, scriptName) {}

private:
    NameStackEntry directory_;
    NameStackEntry name_;
};
