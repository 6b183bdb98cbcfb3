// The language server between its streams: takes messages, keeps the documents, gives answers. It
// knows no threads and no clock but what it is told, so that tests and the fuzz target can drive
// it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "dovrel/lsp/editor_json.h"
#include "dovrel/lsp/features.h"
#include "dovrel/lsp/workspace.h"

/// A document to be checked, as it is now. Checks take long, so they run beside the answers.
struct CheckJob {
    std::string uri;
    std::string path;
    std::string text;
    std::uint64_t revision = 0;
    std::int64_t version = 0;
    PositionEncoding encoding = PositionEncoding::Utf16;
};

/// What a check has found, as the editor takes it.
struct CheckAnswer {
    std::string uri;
    std::uint64_t revision = 0;
    std::string message;  // the notification, ready to be sent
};

/// Checks a document. May run on any thread: it shares nothing.
[[nodiscard]] CheckAnswer runCheckJob(const CheckJob& job);

class LanguageServer {
public:
    using Sender = std::function<void(const std::string& message)>;
    /// Each message that the server has to say goes to `send`.
    explicit LanguageServer(Sender send);

    /// Takes one message: the content, as JSON.
    void take(const std::string& content);

    /// The editor has asked the server to end.
    [[nodiscard]] bool hasExited() const { return exitStatus_.has_value(); }
    [[nodiscard]] int exitStatus() const { return exitStatus_.value_or(1); }

    /// Documents have changed since they were checked. They should be checked once nothing has
    /// changed for a moment.
    [[nodiscard]] bool wantsCheck() const { return !unchecked_.empty(); }
    /// One that wants to be checked; nothing if none does.
    [[nodiscard]] std::optional<CheckJob> takeCheck();
    /// Sends what was found, unless the document has changed since.
    void finishCheck(const CheckAnswer& answer);

private:
    using Handler = std::function<std::string(const Json& params)>;
    using Notice = std::function<void(const Json& params)>;

    void addHandlers();
    void addQueries();
    void takeRequest(const Json& id, const std::string& method, const Json& params);
    void takeNotice(const std::string& method, const Json& params);
    void sendResult(const Json& id, const std::string& result);
    void sendError(const Json& id, int code, const std::string& message);
    void sendNotice(const std::string& method, const Json& params);

    std::string initialize(const Json& params);
    [[nodiscard]] Json capabilities() const;
    void changeDocument(const Json& params);
    void closeDocument(const Json& params);
    std::string semanticTokensDelta(const Json& params);
    std::string semanticTokensFull(const Json& params);

    /// The document of a request; raises std::out_of_range if it is not open.
    [[nodiscard]] ScriptDocument& documentOf(const Json& params);

    Sender send_;
    Workspace workspace_;
    EditorView view_;
    EditorAbilities abilities_;
    bool watchesFiles_ = false;
    bool isInitialized_ = false;
    bool isShutDown_ = false;
    std::optional<int> exitStatus_;
    std::map<std::string, Handler> handlers_;
    std::map<std::string, Notice> notices_;
    std::vector<std::string> unchecked_;  // the URIs of documents

    /// The tokens that were sent last, for the difference to the next ones.
    struct SentTokens {
        std::string id;
        std::vector<std::uint32_t> tokens;
    };
    std::map<std::string, SentTokens> sentTokens_;
    std::uint64_t tokenAnswers_ = 0;
};
