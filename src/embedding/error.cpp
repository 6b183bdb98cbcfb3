#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "embedding/state.h"
#include "eval/errors.h"

namespace dovrel {

using detail::ErrorFields;

namespace {

constexpr std::string_view kPlace = "\n  at ";
constexpr std::string_view kNear = ", near token '";
constexpr std::string_view kHint = "\n  hint: ";
constexpr std::string_view kIndent = "\n  ";

std::shared_ptr<const ErrorFields> plainFields(std::string_view message, Reason reason) {
    const ContextScope outside(nullptr);
    auto fields = std::make_shared<ErrorFields>();
    fields->reason = reason;
    fields->report = message;
    fields->message = message;
    return fields;
}

/// "name:12" or "line 12".
void readPlace(std::string_view place, ErrorFields& fields) {
    const std::size_t end = place.find_last_not_of("0123456789");
    if (end == std::string_view::npos || end + 1 == place.size()) return;
    int line = 0;
    for (const char digit : place.substr(end + 1)) {
        if (line > (std::numeric_limits<int>::max() - 9) / 10) return;
        line = line * 10 + (digit - '0');
    }
    fields.line = line;
    if (place[end] == ':') fields.script = place.substr(0, end);
}

}  // namespace

/// Read from its end: a message may contain whatever a script wants, the lines behind it not.
ErrorFields detail::fieldsOf(std::string_view report) {
    ErrorFields fields;
    fields.report = report;
    fields.message = report;
    if (!isLocatedReport(report)) return fields;
    const std::size_t hint = report.rfind(kHint);
    if (hint == std::string_view::npos) return fields;
    const std::string_view body = report.substr(0, hint);
    const std::size_t mark = body.rfind(kIndent);
    if (mark == std::string_view::npos || mark == 0) return fields;
    const std::size_t source = body.rfind(kIndent, mark - 1);
    if (source == std::string_view::npos || source == 0) return fields;
    const std::size_t place = body.rfind(kPlace, source - 1);
    const std::size_t start = kReportMarker.size() + 1;
    if (place == std::string_view::npos || place < start) return fields;

    std::string_view where = body.substr(place + kPlace.size(), source - place - kPlace.size());
    if (const std::size_t near = where.find(kNear); near != std::string_view::npos) {
        std::string_view token = where.substr(near + kNear.size());
        if (token.ends_with('\'')) token.remove_suffix(1);
        fields.nearToken = token;
        where = where.substr(0, near);
    }
    readPlace(where, fields);
    fields.message = report.substr(start, place - start);
    fields.sourceLine = body.substr(source + kIndent.size(), mark - source - kIndent.size());
    fields.hint = report.substr(hint + kHint.size());
    while (fields.hint.ends_with('\n')) fields.hint.pop_back();
    return fields;
}

Error::Error(std::string_view message, Reason reason) : fields_(plainFields(message, reason)) {}
Error::Error(std::shared_ptr<const ErrorFields> fields) noexcept : fields_(std::move(fields)) {}
Error::Error(const Error&) noexcept = default;
Error& Error::operator=(const Error&) noexcept = default;
Error::~Error() = default;

const char* Error::what() const noexcept { return fields_->report.c_str(); }
Reason Error::reason() const noexcept { return fields_->reason; }
std::string_view Error::message() const noexcept { return fields_->message; }
std::string_view Error::script() const noexcept { return fields_->script; }
int Error::line() const noexcept { return fields_->line; }
std::string_view Error::nearToken() const noexcept { return fields_->nearToken; }
std::string_view Error::sourceLine() const noexcept { return fields_->sourceLine; }
std::string_view Error::hint() const noexcept { return fields_->hint; }

namespace {

std::string_view kindName(Kind kind) {
    switch (kind) {
        case Kind::Nil: return "nil";
        case Kind::Bool: return "a boolean";
        case Kind::Int: return "an int";
        case Kind::Float: return "a float";
        case Kind::String: return "a string";
        case Kind::Array: return "an array";
        case Kind::Table: return "a table";
        case Kind::Function: return "a function";
        case Kind::Several: break;
    }
    return "several values";
}

std::string withPlural(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " argument" : " arguments");
}

}  // namespace

namespace detail {

void throwKind(const Value& value, const char* wanted) {
    throw Error(
        "expected " + std::string(wanted) + ", and got " + std::string(kindName(value.kind())),
        Reason::Usage);
}

void throwTooLarge() {
    throw Error("the number does not fit into the type that it is wanted in", Reason::Usage);
}

void throwCount(std::string_view name, std::size_t least, std::size_t most, std::size_t count) {
    std::string wanted;
    if (most == std::numeric_limits<std::size_t>::max()) {
        wanted = "at least " + withPlural(least);
    } else if (least == most) {
        wanted = "exactly " + withPlural(least);
    } else {
        wanted = std::to_string(least) + " to " + withPlural(most);
    }
    throw Error(std::string(name) + " requires " + wanted + ", and got " + std::to_string(count),
                Reason::Usage);
}

void throwArgument(std::string_view name, std::size_t number, const Error& error) {
    throw Error(std::string(name) + ": argument " + std::to_string(number) + ": " +
                    std::string(error.message()),
                Reason::Usage);
}

}  // namespace detail

}  // namespace dovrel
