// Random edits of a script in the language server, as if somebody typed with closed eyes. No answer
// may bring it down, and after each edit it must know what it would know had the text been opened
// so: what is kept of a text is changed bit by bit.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "dovrel/lsp/language_server.h"
#include "dovrel/lsp/script_document.h"
#include "host/large_stack.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t kMostEdits = 40;
constexpr std::size_t kLongestText = 4000;
constexpr const char* kUri = "file:///nowhere/script.dv";

/// How many edits this process has made. An execution makes as many as its bytes are good for.
std::uint64_t editsMade = 0;

/// In the form of libFuzzer's own figures.
[[maybe_unused]] const int tellsEdits = std::atexit([] {
    std::fprintf(stderr, "stat::edits: %llu\n", static_cast<unsigned long long>(editsMade));
});

/// What is typed: the words that change how all behind them is read.
constexpr std::array<std::string_view, 40> kPieces = {"\n",
                                                      "\r\n",
                                                      "\"",
                                                      "'",
                                                      "(",
                                                      ")",
                                                      "[",
                                                      "]",
                                                      "{",
                                                      "}",
                                                      ";",
                                                      "@@ note",
                                                      " ",
                                                      "\\",
                                                      "end",
                                                      "if a\n",
                                                      "else\n",
                                                      "while x < 3\n",
                                                      "function f(",
                                                      "a, b)\n",
                                                      "return ",
                                                      "native ",
                                                      "local ",
                                                      "for i = 1, 3\n",
                                                      "repeat\n",
                                                      "until a\n",
                                                      "x = 1\n",
                                                      "f(x)\n",
                                                      "t[\"k\"] = ",
                                                      "{a: 1, b: [2]}\n",
                                                      "total",
                                                      "string[\"",
                                                      "sub\"]",
                                                      "\xC3\xA4",
                                                      "\xF0\x9D\x84\x9E",
                                                      "\xFF",
                                                      "decay function g()\n",
                                                      "runFile(\"a.dv\")\n",
                                                      "x += ",
                                                      "not "};

/// Reads the input byte by byte; zeros behind its end.
class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    [[nodiscard]] bool isEmpty() const { return at_ >= size_; }
    std::size_t next() { return isEmpty() ? 0 : data_[at_++]; }
    /// A number below `limit`, which is not 0.
    std::size_t below(std::size_t limit) { return (next() << 8U | next()) % limit; }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

[[noreturn]] void fail(const char* what, const std::string& text) {
    std::cerr << "---- the server behaves differently: " << what << "\n" << text << '\n';
    std::abort();
}

bool sameRange(ChunkRange a, ChunkRange b) { return a.first == b.first && a.last == b.last; }

void requireSameLine(const LineFacts& a, const LineFacts& b, const std::string& text) {
    if (a.kind != b.kind || a.isReadable != b.isReadable || !sameRange(a.range, b.range) ||
        a.names.size() != b.names.size() || a.keys.size() != b.keys.size() ||
        a.links.size() != b.links.size() || (a.function == nullptr) != (b.function == nullptr)) {
        fail("a line is kept otherwise than it is read", text);
    }
    for (std::size_t i = 0; i < a.names.size(); ++i) {
        if (a.names[i].name != b.names[i].name || a.names[i].kind != b.names[i].kind ||
            !sameRange(a.names[i].range, b.names[i].range)) {
            fail("a name is kept otherwise than it is read", text);
        }
    }
}

void requireSame(const ScriptDocument& kept, const ScriptDocument& fresh) {
    const std::string& text = kept.text();
    if (text != fresh.text()) fail("the text", text);
    if (kept.lineStarts().count() != fresh.lineStarts().count()) fail("the lines", text);
    for (std::size_t i = 0; i < fresh.lineStarts().count(); ++i) {
        if (kept.lineStarts().startOf(i) != fresh.lineStarts().startOf(i)) fail("a line", text);
    }
    if (kept.chunks().size() != fresh.chunks().size()) fail("the number of chunks", text);
    for (std::size_t i = 0; i < fresh.chunks().size(); ++i) {
        const Chunk& a = *kept.chunks()[i];
        const Chunk& b = *fresh.chunks()[i];
        if (a.size != b.size || a.reach != b.reach || a.isOpen != b.isOpen ||
            a.lines.size() != b.lines.size() || a.comments.size() != b.comments.size()) {
            fail("a chunk is kept otherwise than it is cut", text);
        }
        for (std::size_t j = 0; j < a.lines.size(); ++j) {
            requireSameLine(a.lines[j], b.lines[j], text);
        }
    }
}

/// The server, and beside it the document by itself.
class Editing {
public:
    Editing()
        : reader_(names_), server_([](const std::string&) {}), document_(reader_, kUri, "", "") {
        ask("initialize", {{"capabilities", {{"general", {{"positionEncodings", {"utf-8"}}}}}}});
        tell("textDocument/didOpen", {{"textDocument", {{"uri", kUri}, {"text", ""}}}});
    }

    void run(Bytes& bytes) {
        for (std::size_t i = 0; i < kMostEdits && !bytes.isEmpty(); ++i) {
            edit(bytes);
            ++editsMade;
            // To read all anew takes most of the time.
            if (i % 4 == 3) compare();
            query(bytes);
        }
        compare();
        const auto job = server_.takeCheck();
        if (job && bytes.below(4) == 0) {
            if (job->text != document_.text()) fail("the server's text", document_.text());
            static_cast<void>(runCheckJob(*job));
        }
    }

private:
    void compare() { requireSame(document_, ScriptDocument(reader_, kUri, "", document_.text())); }
    void tell(const char* method, const Json& params) {
        server_.take(dumpJson({{"jsonrpc", "2.0"}, {"method", method}, {"params", params}}));
    }
    void ask(const char* method, const Json& params) {
        server_.take(
            dumpJson({{"jsonrpc", "2.0"}, {"id", 1}, {"method", method}, {"params", params}}));
    }
    [[nodiscard]] Json position(std::size_t offset) const {
        return positionJson(
            document_.lineStarts().positionOf(document_.text(), offset, PositionEncoding::Utf8));
    }
    /// A place where a character begins.
    std::size_t place(Bytes& bytes) {
        const std::string& text = document_.text();
        std::size_t at = bytes.below(text.size() + 1);
        const EditorPosition found =
            document_.lineStarts().positionOf(text, at, PositionEncoding::Utf8);
        at = document_.lineStarts().offsetOf(text, found, PositionEncoding::Utf8);
        return at;
    }

    void edit(Bytes& bytes) {
        const std::size_t kind = bytes.next();
        SourceRange range;
        range.first = place(bytes);
        range.last = range.first;
        std::string text;
        if (kind % 4 == 0 || document_.text().size() > kLongestText) {
            const std::size_t other = place(bytes);
            range = {std::min(range.first, other), std::max(range.first, other)};
            // Mostly small ones, so that something is left.
            if (kind % 8 != 0) range.last = std::min(range.last, range.first + kind % 16);
            const EditorPosition end = document_.lineStarts().positionOf(
                document_.text(), range.last, PositionEncoding::Utf8);
            range.last = std::max(range.first, document_.lineStarts().offsetOf(
                                                   document_.text(), end, PositionEncoding::Utf8));
        }
        const std::size_t pieces = kind % 4 == 0 ? kind / 64 : 1 + kind / 64;
        for (std::size_t i = 0; i < pieces; ++i) text += kPieces[bytes.next() % kPieces.size()];
        // What is no UTF-8 cannot be sent.
        std::erase(text, '\xFF');
        const Json change = {
            {"range", {{"start", position(range.first)}, {"end", position(range.last)}}},
            {"text", text}};
        tell("textDocument/didChange",
             {{"textDocument", {{"uri", kUri}}}, {"contentChanges", Json::array({change})}});
        document_.replace(range, text);
    }

    void query(Bytes& bytes) {
        constexpr std::array<const char*, 17> kMethods = {"completion",
                                                          "hover",
                                                          "signatureHelp",
                                                          "definition",
                                                          "references",
                                                          "rename",
                                                          "prepareRename",
                                                          "documentHighlight",
                                                          "documentSymbol",
                                                          "foldingRange",
                                                          "selectionRange",
                                                          "documentLink",
                                                          "formatting",
                                                          "codeAction",
                                                          "semanticTokens/full",
                                                          "semanticTokens/range",
                                                          "semanticTokens/full/delta"};
        const std::string method =
            std::string("textDocument/") + kMethods[bytes.next() % kMethods.size()];
        const Json at = position(place(bytes));
        const Json range = {{"start", position(0)}, {"end", at}};
        const Json diagnostic = {{"range", {{"start", at}, {"end", at}}},
                                 {"code", bytes.next() % 2 == 0 ? "E103" : "W412"},
                                 {"message", "did you mean `x`?"}};
        ask(method.c_str(),
            {{"textDocument", {{"uri", kUri}}},
             {"position", at},
             {"positions", Json::array({at})},
             {"range", range},
             {"newName", "fresh"},
             {"previousResultId", "1"},
             {"context",
              {{"includeDeclaration", true}, {"diagnostics", Json::array({diagnostic})}}}});
    }

    NameTable names_;
    LineReader reader_;
    LanguageServer server_;
    ScriptDocument document_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    runOnLargeStack([&] {
        Bytes bytes(data, size);
        Editing().run(bytes);
    });
    return 0;
}
