#include "dovrel/lsp/cursor_context.h"

#include <algorithm>
#include <utility>

#include "frontend/character_class.h"
#include "frontend/token_analysis.h"

namespace {

bool isWordCharacter(char c) {
    return hasClass(c, kIdentifierStart | kDigitCharacter) ||
           static_cast<unsigned char>(c) >= 0x80U;
}

/// Takes tokens one by one.
class Scanner {
public:
    Scanner(std::string_view text, SourceRange range)
        : text_(text), at_(range.first), last_(std::min(range.last, text.size())) {}

    /// The next token, or nothing at the end. Comments and line ends are noted.
    std::optional<ScanToken> next() {
        while (at_ < last_) {
            const char c = text_[at_];
            if (c == '@' && at_ + 1 < last_ && text_[at_ + 1] == '@') {
                comment_ = {at_, std::min(text_.find('\n', at_), last_)};
                at_ = comment_.last;
            } else if (c == '"' || c == '\'') {
                return takeText(c);
            } else if (isWordCharacter(c)) {
                const std::size_t first = at_;
                while (at_ < last_ && isWordCharacter(text_[at_])) ++at_;
                return ScanToken{ScanToken::Kind::Word, {first, at_}};
            } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
                if (c == '\n') sawLineEnd = true;
                ++at_;
            } else {
                ++at_;
                return ScanToken{ScanToken::Kind::Symbol, {at_ - 1, at_}};
            }
        }
        return std::nullopt;
    }

    [[nodiscard]] SourceRange comment() const { return comment_; }
    [[nodiscard]] bool isTextOpen() const { return isTextOpen_; }
    bool sawLineEnd = false;

private:
    ScanToken takeText(char quote) {
        const std::size_t first = at_++;
        bool escaped = false;
        isTextOpen_ = true;
        for (; at_ < last_ && isTextOpen_; ++at_) {
            const char c = text_[at_];
            if (escaped) {
                escaped = false;
            } else if (c == quote) {
                isTextOpen_ = false;
            } else {
                escaped = c == '\\';
            }
        }
        return {ScanToken::Kind::Literal, {first, at_}};
    }

    std::string_view text_;
    std::size_t at_;
    std::size_t last_;
    SourceRange comment_;
    bool isTextOpen_ = false;
};

bool isSymbol(std::string_view text, const ScanToken& token, char symbol) {
    return token.kind == ScanToken::Kind::Symbol && text[token.range.first] == symbol;
}

/// The callee and the argument of the innermost call that is open behind `tokens`.
std::optional<OpenCall> openCall(std::string_view text, const std::vector<ScanToken>& tokens) {
    std::size_t depth = 0;
    std::size_t commas = 0;
    for (std::size_t i = tokens.size(); i-- > 0;) {
        const ScanToken& token = tokens[i];
        if (token.kind != ScanToken::Kind::Symbol) continue;
        const char c = text[token.range.first];
        if (c == ')' || c == ']' || c == '}') {
            ++depth;
        } else if (c == '(' || c == '[' || c == '{') {
            if (depth > 0) {
                --depth;
                continue;
            }
            const std::string callee = c == '(' ? nameInFront(text, tokens, i) : std::string();
            if (!callee.empty()) return OpenCall{callee, commas};
            commas = 0;
        } else if (c == ',' && depth == 0) {
            ++commas;
        }
    }
    return std::nullopt;
}

}  // namespace

std::vector<ScanToken> scanTokens(std::string_view text, SourceRange range) {
    std::vector<ScanToken> tokens;
    Scanner scanner(text, range);
    while (const auto token = scanner.next()) tokens.push_back(*token);
    return tokens;
}

std::string nameInFront(std::string_view text, const std::vector<ScanToken>& tokens,
                        std::size_t count) {
    const auto word = [&](std::size_t index) {
        return std::string(text.substr(tokens[index].range.first,
                                       tokens[index].range.last - tokens[index].range.first));
    };
    if (count == 0) return {};
    if (tokens[count - 1].kind == ScanToken::Kind::Word) {
        const std::string name = word(count - 1);
        // A declaration is no call.
        if (count > 1 && tokens[count - 2].kind == ScanToken::Kind::Word &&
            word(count - 2) == "function") {
            return {};
        }
        return isIdentifier(name) ? name : std::string();
    }
    if (count < 4 || !isSymbol(text, tokens[count - 1], ']') ||
        tokens[count - 2].kind != ScanToken::Kind::Literal ||
        !isSymbol(text, tokens[count - 3], '[') ||
        tokens[count - 4].kind != ScanToken::Kind::Word) {
        return {};
    }
    return word(count - 4) + "[\"" + decodeStringToken(word(count - 2)) + "\"]";
}

CursorContext contextAt(const ScriptDocument& document, std::size_t offset) {
    CursorContext context;
    context.word = {offset, offset};
    if (document.chunks().empty()) return context;
    const std::string_view text = document.text();
    const std::size_t chunk = document.chunkAt(offset);
    const std::size_t start = document.chunkStart(chunk);
    // Behind the last line feed a new line begins.
    const bool isBehind = offset == start + document.chunks()[chunk]->size && offset > start &&
                          text[offset - 1] == '\n' && !document.chunks()[chunk]->isOpen;
    if (isBehind) return context;
    Scanner scanner(text, {start, offset});
    std::size_t depth = 0;
    while (const auto token = scanner.next()) {
        if (token->kind == ScanToken::Kind::Symbol) {
            const char c = text[token->range.first];
            if (c == '(' || c == '[' || c == '{') ++depth;
            if ((c == ')' || c == ']' || c == '}') && depth > 0) --depth;
            if (c == ';' && depth == 0) {
                context.before.clear();
                continue;
            }
        }
        context.before.push_back(*token);
    }
    const SourceRange comment = scanner.comment();
    if (scanner.isTextOpen()) {
        context.place = CursorContext::Place::Literal;
        context.text = {context.before.back().range.first + 1, offset};
        context.before.pop_back();
    } else if (comment.last == offset && comment.last > comment.first) {
        context.place = CursorContext::Place::Comment;
        context.text = comment;
    } else if (!context.before.empty() && context.before.back().kind == ScanToken::Kind::Word &&
               context.before.back().range.last == offset) {
        context.word = context.before.back().range;
        context.before.pop_back();
    }
    context.call = openCall(text, context.before);
    return context;
}
