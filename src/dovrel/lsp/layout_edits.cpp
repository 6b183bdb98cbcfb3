// The layout of a script as the changes that lead to it, line by line, so that an editor keeps its
// cursor and a range can be laid out alone.
#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "dovrel/formatter.h"
#include "dovrel/lsp/features.h"

namespace {

struct TextEdit {
    SourceRange range;
    std::string text;
};

/// Lines with their line feeds.
std::vector<SourceRange> linesOf(std::string_view text) {
    std::vector<SourceRange> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        lines.push_back({at, end});
        at = end;
    }
    return lines;
}

bool isBlankLine(std::string_view line) {
    return line.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

std::string_view sliceOf(std::string_view text, SourceRange range) {
    return text.substr(range.first, range.last - range.first);
}

/// The layout keeps all lines but blank ones, so the two texts go side by side.
std::vector<TextEdit> lineEdits(std::string_view before, std::string_view after) {
    const std::vector<SourceRange> old = linesOf(before);
    const std::vector<SourceRange> fresh = linesOf(after);
    std::vector<TextEdit> edits;
    std::size_t next = 0;
    for (const SourceRange& line : old) {
        const std::string_view text = sliceOf(before, line);
        const bool hasPartner = next < fresh.size();
        if (isBlankLine(text) && (!hasPartner || !isBlankLine(sliceOf(after, fresh[next])))) {
            edits.push_back({line, ""});
            continue;
        }
        if (!hasPartner) return {{{0, before.size()}, std::string(after)}};
        const std::string_view wanted = sliceOf(after, fresh[next++]);
        if (wanted != text) edits.push_back({line, std::string(wanted)});
    }
    if (next != fresh.size()) return {{{0, before.size()}, std::string(after)}};
    return edits;
}

/// The same edit without what stays at both ends. Changes stay between whole characters, since the
/// layout changes blanks alone.
TextEdit narrowed(std::string_view text, TextEdit edit) {
    while (edit.range.first < edit.range.last && !edit.text.empty() &&
           text[edit.range.first] == edit.text.front()) {
        ++edit.range.first;
        edit.text.erase(0, 1);
    }
    while (edit.range.first < edit.range.last && !edit.text.empty() &&
           text[edit.range.last - 1] == edit.text.back()) {
        --edit.range.last;
        edit.text.pop_back();
    }
    return edit;
}

Json editsJson(const ScriptDocument& document, SourceRange range, const EditorView& view) {
    std::string laidOut;
    try {
        laidOut = formatScript(document.text());
    } catch (const FormatError& error) {
        throw RefusedRequest(std::string("this cannot be laid out: ") + error.what());
    }
    Json edits = Json::array();
    for (TextEdit& edit : lineEdits(document.text(), laidOut)) {
        const bool concerns = edit.range.first < range.last && range.first < edit.range.last;
        if (!concerns && !(edit.range.first == range.first)) continue;
        edit = narrowed(document.text(), std::move(edit));
        edits.push_back(
            {{"range", view.range(document, edit.range)}, {"newText", std::move(edit.text)}});
    }
    return edits;
}

}  // namespace

Json formattingEdits(const ScriptDocument& document, const EditorView& view) {
    return editsJson(document, {0, document.text().size()}, view);
}

Json rangeFormattingEdits(const ScriptDocument& document, SourceRange range,
                          const EditorView& view) {
    return editsJson(document, range, view);
}
