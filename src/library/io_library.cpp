// The `io` table and the file objects that it hands out: tables whose functions share one handle.
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "library/file_handle.h"
#include "library/natives.h"
#include "value/text.h"

namespace {

/// The arguments of a file object's function. A table in front is taken for the file object and
/// dropped, whichever table it is: kept.
Arguments withoutFileObject(Arguments args) {
    return !args.empty() && args[0].type == VarType::Table ? args.from(1) : args;
}

/// The format decides between the whole rest and one line; an unknown one reads a line.
Variable readFromHandle(FileHandle& handle, Arguments args) {
    const bool wantsAll =
        !args.empty() && args[0].type == VarType::String && args[0].asString() == "*a";
    std::optional<std::string> text = wantsAll ? handle.readAll() : handle.readLine();
    return text ? Variable(std::move(*text)) : Variable();
}

Variable writeToHandle(FileHandle& handle, Arguments args) {
    if (args.empty()) {
        throwPlainError("file['write'] requires a valid file handle and at least one value");
    }
    if (!handle.isWritable()) {
        throwPlainError("file['write'] requires a writable file handle");
    }
    std::string text;
    for (std::size_t i = 0; i < args.size(); ++i) appendVariableStringFast(text, args[i]);
    handle.write(text);
    return Variable::makeBool(true);
}

Variable fileObject(const std::shared_ptr<FileHandle>& handle) {
    TableStorage members;
    members["read"] = makeNativeCallable(
        [handle](Arguments args) { return readFromHandle(*handle, withoutFileObject(args)); }, "");
    members["write"] = makeNativeCallable(
        [handle](Arguments args) { return writeToHandle(*handle, withoutFileObject(args)); }, "");
    members["close"] = makeNativeCallable(
        [handle](Arguments) {
            handle->close();
            return Variable::makeBool(true);
        },
        "");
    return Variable::makeTable(std::move(members));
}

const std::string& pathArgument(Arguments args, const char* message) {
    if (args.empty() || args[0].type != VarType::String) throwPlainError(message);
    return args[0].asString();
}

std::string modeArgument(Arguments args) {
    return args.size() > 1 && args[1].type == VarType::String ? args[1].asString() : "r";
}

}  // namespace

Variable ioOpenFunction(DovrelScript& interpreter, Arguments args) {
    const std::string& path = pathArgument(args, "io['open'](path[, mode]) requires a path string");
    const HostServices& host = interpreter.host;
    if (host.input && path == "/dev/stdin") return fileObject(FileHandle::openLines(host.input));
    if (!host.mayUseFiles) throwPlainError("io['open']: scripts may not use files here");
    const auto handle = FileHandle::openFile(interpreter.resolvePath(path), modeArgument(args));
    return handle != nullptr ? fileObject(handle) : Variable();
}

Variable ioPopenFunction(DovrelScript& interpreter, Arguments args) {
    const std::string& command =
        pathArgument(args, "io['popen'](path[, mode]) requires a path string");
    if (!interpreter.host.mayRunCommands) {
        throwPlainError("io['popen']: scripts may not run commands here");
    }
    const auto handle = FileHandle::openPipe(command, modeArgument(args));
    return handle != nullptr ? fileObject(handle) : Variable();
}
