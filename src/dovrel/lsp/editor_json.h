// The pieces of the protocol's answers that many features need.
#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "dovrel/lsp/script_document.h"
#include "dovrel/lsp/text_positions.h"

using Json = nlohmann::json;

/// Texts of scripts may hold bytes that are no UTF-8; those become marks.
[[nodiscard]] inline std::string dumpJson(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

[[nodiscard]] inline Json positionJson(EditorPosition position) {
    return {{"line", position.line}, {"character", position.character}};
}

/// How an editor counts the characters of the documents.
struct EditorView {
    PositionEncoding encoding = PositionEncoding::Utf16;

    [[nodiscard]] Json position(const ScriptDocument& document, std::size_t offset) const {
        return positionJson(document.lineStarts().positionOf(document.text(), offset, encoding));
    }
    [[nodiscard]] Json range(const ScriptDocument& document, SourceRange range) const {
        return {{"start", position(document, range.first)},
                {"end", position(document, range.last)}};
    }
    /// The same as text, for answers of many thousand ranges.
    void appendRange(std::string& out, const ScriptDocument& document, SourceRange place) const {
        const auto append = [&](const char* name, std::size_t at) {
            const EditorPosition found =
                document.lineStarts().positionOf(document.text(), at, encoding);
            out += name;
            out += "{\"line\":" + std::to_string(found.line) +
                   ",\"character\":" + std::to_string(found.character) + '}';
        };
        append("{\"start\":", place.first);
        append(",\"end\":", place.last);
        out += '}';
    }
    [[nodiscard]] Json location(const ScriptDocument& document, SourceRange place) const {
        return {{"uri", document.uri()}, {"range", range(document, place)}};
    }
    /// The offset of a position; raises what the JSON library raises where it is none.
    [[nodiscard]] std::size_t offset(const ScriptDocument& document, const Json& position) const {
        const EditorPosition place{position.at("line").get<std::size_t>(),
                                   position.at("character").get<std::size_t>()};
        return document.lineStarts().offsetOf(document.text(), place, encoding);
    }
    [[nodiscard]] SourceRange rangeOf(const ScriptDocument& document, const Json& range) const {
        const std::size_t first = offset(document, range.at("start"));
        return {first, std::max(first, offset(document, range.at("end")))};
    }
};
