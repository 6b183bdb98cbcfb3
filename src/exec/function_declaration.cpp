#include "exec/function_declaration.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "eval/indexed_store.h"

namespace {

/// The parsed header of a declaration.
struct FunctionHeader {
    Name name = nullptr;
    ScopeTarget scope = ScopeTarget::Default;
    bool isDecay = false;
    bool isVariadic = false;
    std::vector<Variable> keys;
    std::vector<Name> parameters;
};

/// Reads a header from its tokens, left to right.
class HeaderParser {
public:
    HeaderParser(DovrelScript& interpreter, const ParsedScriptLine& line)
        : interpreter_(interpreter), line_(line) {}

    /// False if a soft error is unwinding.
    bool parse(FunctionHeader& header) {
        parseTarget(header);
        if (!parseKeys(header.keys)) return false;
        expect("(", "Expected '(' after function target");
        parseParameters(header);
        expect(")", "Expected ')' after function parameters");
        if (!atEnd()) {
            interpreter_.throwError("Unexpected token after function declaration", token());
        }
        return true;
    }

private:
    void parseTarget(FunctionHeader& header) {
        position_ = line_.kind == LineKind::Function ? 1 : 2;
        header.isDecay = line_.kind == LineKind::DecayFunction;
        if (line_.kind == LineKind::NativeFunction) header.scope = ScopeTarget::Native;
        if (line_.kind == LineKind::LocalFunction) header.scope = ScopeTarget::Local;
        header.name = takeIdentifier("Expected function target", "function");
    }

    bool parseKeys(std::vector<Variable>& keys) {
        while (nextIs("[")) {
            ++position_;
            keys.push_back(
                interpreter_.evaluateExpression(line_.tokens, position_, &line_.tokenAnalysis));
            if (interpreter_.softErrorUnwinding()) return false;
            expect("]", "Expected closing bracket in function target");
        }
        return true;
    }

    /// Stops in front of the closing parenthesis; "..." ends the list.
    void parseParameters(FunctionHeader& header) {
        if (nextIs(")")) return;
        for (;;) {
            if (nextIs("...")) {
                ++position_;
                header.isVariadic = true;
                return;
            }
            header.parameters.push_back(takeIdentifier("Expected function parameter name", ")"));
            if (nextIs(")")) return;
            expect(",", "Expected ',' or ')' after function parameter", ")");
        }
    }

    Name takeIdentifier(const char* message, std::string_view fallback) {
        if (atEnd() || !line_.tokenAnalysis[position_].isIdentifier) throwNear(message, fallback);
        return line_.tokenAnalysis[position_++].name;
    }
    void expect(std::string_view text, const char* message) { expect(text, message, text); }
    void expect(std::string_view text, const char* message, std::string_view fallback) {
        if (!nextIs(text)) throwNear(message, fallback);
        ++position_;
    }
    [[noreturn]] void throwNear(const char* message, std::string_view fallback) {
        interpreter_.throwError(message, atEnd() ? fallback : std::string_view(token()));
    }
    [[nodiscard]] bool atEnd() const { return position_ >= line_.tokens.size(); }
    [[nodiscard]] const std::string& token() const { return line_.tokens[position_]; }
    [[nodiscard]] bool nextIs(std::string_view text) const { return !atEnd() && token() == text; }

    DovrelScript& interpreter_;
    const ParsedScriptLine& line_;
    std::size_t position_ = 0;
};

void storeThroughKeys(DovrelScript& interpreter, const FunctionHeader& header,
                      const Variable& function, NewBase newBase) {
    Variable base;
    if (const Variable* found = interpreter.resolveVariablePtr(header.name)) {
        base = *found;
    } else {
        base = newBase == NewBase::Table ? Variable::makeTable() : makeContainerFor(header.keys[0]);
    }
    Variable* last = walkToLastContainer(interpreter, base, header.keys, true);
    interpreter.setIndexedValue(*last, header.keys.back(), function, true);
    interpreter.assignVariable(header.name, base, header.scope);
}

}  // namespace

void declareFunction(DovrelScript& interpreter, const ParsedScriptLine& line, NewBase newBase,
                     const std::function<void(ScriptCallable&)>& attachBody) {
    FunctionHeader header;
    if (!HeaderParser(interpreter, line).parse(header)) return;

    auto callable = Shared<ScriptCallable>::make();
    callable->isDecay = header.isDecay;
    callable->isVariadic = header.isVariadic;
    callable->name = header.name->text;
    callable->parameters = std::move(header.parameters);
    attachBody(*callable);
    DovrelScript::prepareFastCallableBody(*callable);

    const Variable function = Variable::makeFunction(std::move(callable));
    if (header.keys.empty()) {
        interpreter.assignVariable(header.name, function, header.scope);
    } else {
        storeThroughKeys(interpreter, header, function, newBase);
    }
}

void attachCompiledBody(ScriptCallable& callable, const BytecodeProgram& program,
                        const BytecodeFunctionDecl& declaration) {
    if (declaration.bodyFirstLine > declaration.bodyEndLine ||
        declaration.bodyEndLine > program.lines.size()) {
        return;
    }
    // Only coroutines and one-line bodies read their lines; all others run the chunk.
    std::size_t used = 0;
    for (std::uint32_t i = declaration.bodyFirstLine; i < declaration.bodyEndLine; ++i) {
        if (program.lines.kindOf(i) != LineKind::Empty) ++used;
    }
    if (!callable.isDecay && used != 1) return;
    std::vector<ParsedScriptLine> body(declaration.bodyEndLine - declaration.bodyFirstLine);
    for (std::uint32_t i = 0; i < body.size(); ++i) {
        program.lines.copyLine(declaration.bodyFirstLine + i, body[i]);
    }
    callable.bodyLines = std::make_shared<const std::vector<ParsedScriptLine>>(std::move(body));
}

void attachParsedBody(DovrelScript& interpreter, ScriptCallable& callable,
                      const std::vector<ParsedScriptLine>& lines, std::size_t first,
                      std::size_t last) {
    std::vector<ParsedScriptLine> body;
    if (first < last && last <= lines.size()) {
        body.assign(lines.begin() + static_cast<std::ptrdiff_t>(first),
                    lines.begin() + static_cast<std::ptrdiff_t>(last));
    }
    interpreter.prepareParsedLines(body);
    callable.bodyLines = std::make_shared<const std::vector<ParsedScriptLine>>(std::move(body));
    if (!interpreter.baseDirectoryStack.empty()) {
        callable.baseDirectory = *interpreter.baseDirectoryStack.back();
    }
    if (!interpreter.scriptNameStack.empty()) {
        callable.scriptName = *interpreter.scriptNameStack.back();
    }
}
