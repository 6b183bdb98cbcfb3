#include "dovrel/lsp/language_server.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "dovrel/check_script.h"

namespace {

// The protocol's error codes.
constexpr int kParseError = -32700;
constexpr int kInvalidRequest = -32600;
constexpr int kMethodNotFound = -32601;
constexpr int kInvalidParams = -32602;
constexpr int kInternalError = -32603;
constexpr int kNotInitialized = -32002;
constexpr int kRequestFailed = -32803;

constexpr int kErrorSeverity = 1;
constexpr int kWarningSeverity = 2;
constexpr int kHintTag = 1;  // shown faded: code that does nothing

/// `object[a][b]..`, or null where something on the way is missing.
const Json* findPath(const Json& object, std::initializer_list<const char*> keys) {
    const Json* at = &object;
    for (const char* key : keys) {
        if (!at->is_object()) return nullptr;
        const auto found = at->find(key);
        if (found == at->end()) return nullptr;
        at = &*found;
    }
    return at;
}

bool isTruePath(const Json& object, std::initializer_list<const char*> keys) {
    const Json* found = findPath(object, keys);
    return found != nullptr && found->is_boolean() && found->get<bool>();
}

PositionEncoding chosenEncoding(const Json& params) {
    const Json* offered = findPath(params, {"capabilities", "general", "positionEncodings"});
    if (offered == nullptr || !offered->is_array()) return PositionEncoding::Utf16;
    // Bytes are what is counted inside, so they are taken where the editor has no preference.
    for (const Json& encoding : *offered) {
        if (encoding == "utf-8") return PositionEncoding::Utf8;
        if (encoding == "utf-16") return PositionEncoding::Utf16;
    }
    return PositionEncoding::Utf16;
}

std::string packedArray(const std::vector<std::uint32_t>& numbers, std::size_t first,
                        std::size_t last) {
    std::string text = "[";
    for (std::size_t i = first; i < last; ++i) {
        if (i > first) text += ',';
        text += std::to_string(numbers[i]);
    }
    return text + ']';
}

}  // namespace

namespace {

/// The reading of expressions goes a level deeper for each bracket, and the thread has a stack to
/// lose.
constexpr std::size_t kDeepestBrackets = 10000;

void refuseDeepBrackets(const std::string& text) {
    std::size_t depth = 0;
    for (const char c : text) {
        if (c == '(' || c == '[' || c == '{') {
            if (++depth > kDeepestBrackets) throw std::length_error("too many open brackets");
        } else if ((c == ')' || c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
}

}  // namespace

CheckAnswer runCheckJob(const CheckJob& job) {
    Json diagnostics = Json::array();
    try {
        refuseDeepBrackets(job.text);
        const CheckResult result = checkScript(job.text, job.path);
        const LineStarts starts(job.text);
        const auto position = [&](std::size_t offset) {
            return positionJson(starts.positionOf(job.text, offset, job.encoding));
        };
        for (const Finding& finding : result.findings) {
            const bool isError = finding.code->severity == Severity::Error;
            Json diagnostic = {
                {"range",
                 {{"start", position(finding.range.first)}, {"end", position(finding.range.last)}}},
                {"severity", isError ? kErrorSeverity : kWarningSeverity},
                {"code", finding.code->code},
                {"source", "dovrel"},
                {"message", finding.message}};
            if (finding.code->code == "W206" || finding.code->code == "W301") {
                diagnostic["tags"] = {kHintTag};
            }
            diagnostics.push_back(std::move(diagnostic));
        }
    } catch (const std::exception& error) {
        // A check that fails is a defect here, and no reason to stop.
        const Json start = positionJson({0, 0});
        diagnostics.push_back({{"range", {{"start", start}, {"end", start}}},
                               {"severity", kErrorSeverity},
                               {"source", "dovrel"},
                               {"message", std::string("the check failed: ") + error.what()}});
    }
    const Json message = {
        {"jsonrpc", "2.0"},
        {"method", "textDocument/publishDiagnostics"},
        {"params",
         {{"uri", job.uri}, {"version", job.version}, {"diagnostics", std::move(diagnostics)}}}};
    return {job.uri, job.revision, dumpJson(message)};
}

LanguageServer::LanguageServer(Sender send) : send_(std::move(send)) {
    addHandlers();
    addQueries();
}

void LanguageServer::take(const std::string& content) {
    const Json message = Json::parse(content, nullptr, false);
    if (message.is_discarded()) {
        sendError(nullptr, kParseError, "this is no JSON");
        return;
    }
    const Json* method = findPath(message, {"method"});
    const Json* id = findPath(message, {"id"});
    if (method == nullptr || !method->is_string()) {
        // An answer to a request of the server needs no answer.
        const bool isAnswer =
            findPath(message, {"result"}) != nullptr || findPath(message, {"error"}) != nullptr;
        if (!isAnswer) {
            sendError(id == nullptr ? Json() : *id, kInvalidRequest, "this names no method");
        }
        return;
    }
    const Json* params = findPath(message, {"params"});
    const Json none = Json::object();
    if (id != nullptr) {
        takeRequest(*id, method->get<std::string>(), params == nullptr ? none : *params);
    } else {
        takeNotice(method->get<std::string>(), params == nullptr ? none : *params);
    }
}

void LanguageServer::takeRequest(const Json& id, const std::string& method, const Json& params) {
    if (!isInitialized_ && method != "initialize") {
        sendError(id, kNotInitialized, "the server is not initialized");
        return;
    }
    if (isShutDown_) {
        sendError(id, kInvalidRequest, "the server has been shut down");
        return;
    }
    const auto handler = handlers_.find(method);
    if (handler == handlers_.end()) {
        sendError(id, kMethodNotFound, "there is no method " + method);
        return;
    }
    try {
        sendResult(id, handler->second(params));
    } catch (const RefusedRequest& refusal) {
        sendError(id, kRequestFailed, refusal.what());
    } catch (const Json::exception& error) {
        sendError(id, kInvalidParams, error.what());
    } catch (const std::out_of_range& error) {
        sendError(id, kInvalidParams, error.what());
    } catch (const std::exception& error) {
        sendError(id, kInternalError, error.what());
    }
}

void LanguageServer::takeNotice(const std::string& method, const Json& params) {
    if (method == "exit") {
        exitStatus_ = isShutDown_ ? 0 : 1;
        return;
    }
    if (!isInitialized_) return;
    const auto notice = notices_.find(method);
    if (notice == notices_.end()) return;
    try {
        notice->second(params);
    } catch (const std::exception& error) {
        // There is nobody to answer to.
        constexpr int kErrorMessage = 1;
        sendNotice("window/logMessage",
                   {{"type", kErrorMessage}, {"message", method + ": " + error.what()}});
    }
}

void LanguageServer::sendResult(const Json& id, const std::string& result) {
    send_("{\"jsonrpc\":\"2.0\",\"id\":" + dumpJson(id) + ",\"result\":" + result + '}');
}

void LanguageServer::sendError(const Json& id, int code, const std::string& message) {
    send_(dumpJson(
        {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}}));
}

void LanguageServer::sendNotice(const std::string& method, const Json& params) {
    send_(dumpJson({{"jsonrpc", "2.0"}, {"method", method}, {"params", params}}));
}

std::string LanguageServer::initialize(const Json& params) {
    isInitialized_ = true;
    view_.encoding = chosenEncoding(params);
    abilities_.takesSnippets = isTruePath(
        params, {"capabilities", "textDocument", "completion", "completionItem", "snippetSupport"});
    abilities_.takesSymbolTrees = isTruePath(
        params,
        {"capabilities", "textDocument", "documentSymbol", "hierarchicalDocumentSymbolSupport"});
    watchesFiles_ = isTruePath(
        params, {"capabilities", "workspace", "didChangeWatchedFiles", "dynamicRegistration"});
    const Json* folders = findPath(params, {"workspaceFolders"});
    const Json* root = findPath(params, {"rootUri"});
    if (folders != nullptr && folders->is_array()) {
        for (const Json& folder : *folders) {
            workspace_.addFolder(pathOfUri(folder.at("uri").get<std::string>()));
        }
    } else if (root != nullptr && root->is_string()) {
        workspace_.addFolder(pathOfUri(root->get<std::string>()));
    }
    return dumpJson({{"capabilities", capabilities()},
                     {"serverInfo", {{"name", "dovrel"}, {"version", DOVREL_COMPANION_VERSION}}}});
}

Json LanguageServer::capabilities() const {
    constexpr int kIncremental = 2;
    const bool isUtf8 = view_.encoding == PositionEncoding::Utf8;
    return {
        {"positionEncoding", isUtf8 ? "utf-8" : "utf-16"},
        {"textDocumentSync", {{"openClose", true}, {"change", kIncremental}, {"save", true}}},
        {"completionProvider",
         {{"triggerCharacters", {"\"", "'", "/"}}, {"resolveProvider", true}}},
        {"hoverProvider", true},
        {"signatureHelpProvider",
         {{"triggerCharacters", {"(", ","}}, {"retriggerCharacters", {","}}}},
        {"definitionProvider", true},
        {"referencesProvider", true},
        {"documentHighlightProvider", true},
        {"documentSymbolProvider", true},
        {"workspaceSymbolProvider", true},
        {"codeActionProvider", {{"codeActionKinds", {"quickfix"}}}},
        {"documentLinkProvider", {{"resolveProvider", false}}},
        {"documentFormattingProvider", true},
        {"documentRangeFormattingProvider", true},
        {"renameProvider", {{"prepareProvider", true}}},
        {"foldingRangeProvider", true},
        {"selectionRangeProvider", true},
        {"semanticTokensProvider",
         {{"legend", semanticTokensLegend()}, {"range", true}, {"full", {{"delta", true}}}}},
        {"workspace", {{"workspaceFolders", {{"supported", true}, {"changeNotifications", true}}}}},
    };
}

ScriptDocument& LanguageServer::documentOf(const Json& params) {
    const std::string uri = params.at("textDocument").at("uri").get<std::string>();
    ScriptDocument* document = workspace_.findOpen(uri);
    if (document == nullptr) throw std::out_of_range("this document is not open: " + uri);
    return *document;
}

void LanguageServer::changeDocument(const Json& params) {
    ScriptDocument& document = documentOf(params);
    for (const Json& change : params.at("contentChanges")) {
        const std::string text = change.at("text").get<std::string>();
        const auto range = change.find("range");
        if (range == change.end()) {
            document.replaceText(text);
        } else {
            document.replace(view_.rangeOf(document, *range), text);
        }
    }
    const Json* version = findPath(params, {"textDocument", "version"});
    if (version != nullptr && version->is_number_integer()) document.version = *version;
    if (std::find(unchecked_.begin(), unchecked_.end(), document.uri()) == unchecked_.end()) {
        unchecked_.push_back(document.uri());
    }
}

void LanguageServer::closeDocument(const Json& params) {
    const std::string uri = documentOf(params).uri();
    workspace_.close(uri);
    std::erase(unchecked_, uri);
    sentTokens_.erase(uri);
    sendNotice("textDocument/publishDiagnostics", {{"uri", uri}, {"diagnostics", Json::array()}});
}

void LanguageServer::addHandlers() {
    handlers_["initialize"] = [this](const Json& params) { return initialize(params); };
    handlers_["shutdown"] = [this](const Json&) {
        isShutDown_ = true;
        return std::string("null");
    };
    notices_["initialized"] = [this](const Json&) {
        if (!watchesFiles_) return;
        const Json watcher = {{"globPattern", "**/*.dv"}};
        send_(dumpJson({{"jsonrpc", "2.0"},
                        {"id", "dovrel-watch"},
                        {"method", "client/registerCapability"},
                        {"params",
                         {{"registrations",
                           {{{"id", "dovrel-watch"},
                             {"method", "workspace/didChangeWatchedFiles"},
                             {"registerOptions", {{"watchers", Json::array({watcher})}}}}}}}}}));
    };
    notices_["textDocument/didOpen"] = [this](const Json& params) {
        const Json& opened = params.at("textDocument");
        const std::string uri = opened.at("uri").get<std::string>();
        workspace_.open(uri, opened.at("text").get<std::string>(),
                        opened.value("version", std::int64_t{0}));
        std::erase(unchecked_, uri);
        unchecked_.push_back(uri);
    };
    notices_["textDocument/didChange"] = [this](const Json& params) { changeDocument(params); };
    notices_["textDocument/didClose"] = [this](const Json& params) { closeDocument(params); };
    notices_["workspace/didChangeWatchedFiles"] = [this](const Json& params) {
        for (const Json& change : params.at("changes")) {
            workspace_.fileChanged(change.at("uri").get<std::string>());
        }
    };
    notices_["workspace/didChangeWorkspaceFolders"] = [this](const Json& params) {
        const Json& event = params.at("event");
        for (const Json& folder : event.at("removed")) {
            workspace_.removeFolder(pathOfUri(folder.at("uri").get<std::string>()));
        }
        for (const Json& folder : event.at("added")) {
            workspace_.addFolder(pathOfUri(folder.at("uri").get<std::string>()));
        }
    };
}

void LanguageServer::addQueries() {
    using AtOffset = std::function<Json(const ScriptDocument&, std::size_t, const Json&)>;
    const auto atPosition = [this](const char* method, const AtOffset& answer) {
        handlers_[method] = [this, answer](const Json& params) {
            const ScriptDocument& document = documentOf(params);
            const std::size_t offset = view_.offset(document, params.at("position"));
            return dumpJson(answer(document, offset, params));
        };
    };
    using OfDocument = std::function<Json(const ScriptDocument&, const Json&)>;
    const auto ofDocument = [this](const char* method, const OfDocument& answer) {
        handlers_[method] = [this, answer](const Json& params) {
            return dumpJson(answer(documentOf(params), params));
        };
    };
    using Document = const ScriptDocument&;
    atPosition("textDocument/completion", [this](Document document, std::size_t at, const Json&) {
        return completionAt(workspace_, document, at, abilities_);
    });
    handlers_["completionItem/resolve"] = [this](const Json& item) {
        return dumpJson(resolvedCompletion(workspace_, item));
    };
    atPosition("textDocument/hover", [this](Document document, std::size_t at, const Json&) {
        return hoverAt(workspace_, document, at, view_);
    });
    atPosition("textDocument/signatureHelp",
               [this](Document document, std::size_t at, const Json&) {
                   return signatureHelpAt(workspace_, document, at);
               });
    atPosition("textDocument/definition", [this](Document document, std::size_t at, const Json&) {
        return definitionAt(workspace_, document, at, view_);
    });
    atPosition("textDocument/references",
               [this](Document document, std::size_t at, const Json& params) {
                   const Json* with = findPath(params, {"context", "includeDeclaration"});
                   const bool withDeclaration = with == nullptr || *with == true;
                   return referencesAt(workspace_, document, at, withDeclaration, view_);
               });
    atPosition("textDocument/documentHighlight",
               [this](Document document, std::size_t at, const Json&) {
                   return highlightsAt(workspace_, document, at, view_);
               });
    atPosition("textDocument/prepareRename",
               [this](Document document, std::size_t at, const Json&) {
                   return prepareRename(workspace_, document, at, view_);
               });
    atPosition("textDocument/rename",
               [this](Document document, std::size_t at, const Json& params) {
                   const std::string name = params.at("newName").get<std::string>();
                   return renameAt(workspace_, document, at, name, view_);
               });
    handlers_["textDocument/documentSymbol"] = [this](const Json& params) {
        return documentSymbols(workspace_, documentOf(params), view_, abilities_);
    };
    handlers_["workspace/symbol"] = [this](const Json& params) {
        return dumpJson(workspaceSymbols(workspace_, params.at("query").get<std::string>(), view_));
    };
    handlers_["textDocument/foldingRange"] = [this](const Json& params) {
        return foldingRanges(documentOf(params));
    };
    ofDocument("textDocument/selectionRange", [this](Document document, const Json& params) {
        Json ranges = Json::array();
        for (const Json& position : params.at("positions")) {
            ranges.push_back(selectionRangeAt(document, view_.offset(document, position), view_));
        }
        return ranges;
    });
    ofDocument("textDocument/documentLink", [this](Document document, const Json&) {
        return documentLinks(workspace_, document, view_);
    });
    ofDocument("textDocument/formatting",
               [this](Document document, const Json&) { return formattingEdits(document, view_); });
    ofDocument("textDocument/rangeFormatting", [this](Document document, const Json& params) {
        const SourceRange range = view_.rangeOf(document, params.at("range"));
        return rangeFormattingEdits(document, range, view_);
    });
    ofDocument("textDocument/codeAction", [this](Document document, const Json& params) {
        return codeActions(workspace_, document, params.at("context").at("diagnostics"), view_);
    });
    handlers_["textDocument/semanticTokens/full"] = [this](const Json& params) {
        return semanticTokensFull(params);
    };
    handlers_["textDocument/semanticTokens/full/delta"] = [this](const Json& params) {
        return semanticTokensDelta(params);
    };
    handlers_["textDocument/semanticTokens/range"] = [this](const Json& params) {
        const ScriptDocument& document = documentOf(params);
        const SourceRange range = view_.rangeOf(document, params.at("range"));
        const auto tokens = semanticTokens(workspace_, document, range, view_);
        return "{\"data\":" + packedArray(tokens, 0, tokens.size()) + '}';
    };
}

std::string LanguageServer::semanticTokensFull(const Json& params) {
    const ScriptDocument& document = documentOf(params);
    SentTokens& sent = sentTokens_[document.uri()];
    sent.id = std::to_string(++tokenAnswers_);
    sent.tokens = semanticTokens(workspace_, document, {0, document.text().size()}, view_);
    return "{\"resultId\":\"" + sent.id +
           "\",\"data\":" + packedArray(sent.tokens, 0, sent.tokens.size()) + '}';
}

/// One edit from the first number that differs to the last one.
std::string LanguageServer::semanticTokensDelta(const Json& params) {
    const ScriptDocument& document = documentOf(params);
    const auto found = sentTokens_.find(document.uri());
    if (found == sentTokens_.end() || params.at("previousResultId") != found->second.id) {
        return semanticTokensFull(params);
    }
    SentTokens& sent = found->second;
    std::vector<std::uint32_t> tokens =
        semanticTokens(workspace_, document, {0, document.text().size()}, view_);
    const std::size_t most = std::min(tokens.size(), sent.tokens.size());
    std::size_t first = 0;
    while (first < most && tokens[first] == sent.tokens[first]) ++first;
    std::size_t behind = 0;
    while (behind < most - first &&
           tokens[tokens.size() - 1 - behind] == sent.tokens[sent.tokens.size() - 1 - behind]) {
        ++behind;
    }
    const std::size_t removed = sent.tokens.size() - first - behind;
    const std::size_t last = tokens.size() - behind;
    std::string edits = "[]";
    if (removed != 0 || last != first) {
        edits = "[{\"start\":" + std::to_string(first) +
                ",\"deleteCount\":" + std::to_string(removed) +
                ",\"data\":" + packedArray(tokens, first, last) + "}]";
    }
    sent.id = std::to_string(++tokenAnswers_);
    sent.tokens = std::move(tokens);
    return "{\"resultId\":\"" + sent.id + "\",\"edits\":" + edits + '}';
}

std::optional<CheckJob> LanguageServer::takeCheck() {
    while (!unchecked_.empty()) {
        const std::string uri = unchecked_.front();
        unchecked_.erase(unchecked_.begin());
        const ScriptDocument* document = workspace_.findOpen(uri);
        if (document == nullptr) continue;
        return CheckJob{uri,
                        document->path(),
                        document->text(),
                        document->revision(),
                        document->version,
                        view_.encoding};
    }
    return std::nullopt;
}

void LanguageServer::finishCheck(const CheckAnswer& answer) {
    const ScriptDocument* document = workspace_.findOpen(answer.uri);
    // A document that has changed is waiting for its next check.
    if (document == nullptr || document->revision() != answer.revision) return;
    send_(answer.message);
}
