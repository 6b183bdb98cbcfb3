// Lines from a terminal: editing keys, history, completion, pasting. Over libedit; nothing else
// knows of it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// What Tab may put in place of the end of what is written.
struct Completion {
    std::size_t length = 0;               // how many bytes in front of the cursor are replaced
    std::vector<std::string> candidates;  // whole, in order
};

class LineEditor {
public:
    /// Gives the completions of a line that ends at the cursor.
    using Completer = std::function<Completion(std::string_view)>;

    enum class Outcome {
        Line,
        Cancelled,  // by Ctrl-C
        End,        // by Ctrl-D in an empty line, or the terminal is gone
    };

    /// `historyPath` is the file of the history, which is read here and appended to by `remember`;
    /// empty for none.
    LineEditor(const std::string& historyPath, Completer completer);
    ~LineEditor();
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;

    /// Shows `prompt`, which takes a colour if `isColoured`, and reads a line without its line end.
    Outcome read(const std::string& prompt, bool isColoured, std::string& line);
    /// Puts a line behind the history, unless it stands there already.
    void remember(const std::string& line);

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation_;
};
