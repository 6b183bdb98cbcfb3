// Loading scripts at run time: texts and files become callables that take no arguments.
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "eval/errors.h"
#include "eval/name_stack_guard.h"
#include "exec/bytecode_program.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"

namespace {

/// `base`, a "/" unless `base` ends with one, `tail`; an empty base gives `tail`.
std::string joinPath(std::string_view base, std::string_view tail) {
    std::string path(base);
    if (!path.empty() && path.back() != '/') path += '/';
    return path.append(tail);
}

bool pathExists(const std::string& path) {
    struct stat status {};
    return !path.empty() && stat(path.c_str(), &status) == 0;
}

/// Everything in front of the last "/"; empty without one.
std::string directoryPart(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

/// The base cut behind its first "Resources" segment; empty if it has none.
std::string resourceBase(const std::string& base) {
    constexpr std::string_view kSegment = "/Resources";
    for (std::size_t at = base.find(kSegment); at != std::string::npos;
         at = base.find(kSegment, at + 1)) {
        const std::size_t end = at + kSegment.size();
        if (end == base.size() || base[end] == '/') return base.substr(0, end);
    }
    return {};
}

Variable failure(const std::string& message) {
    return Variable::makeMulti({Variable(), Variable(message)});
}

Shared<ScriptCallable> makeLoadedChunk(std::shared_ptr<BytecodeProgram> program) {
    auto callable = Shared<ScriptCallable>::make();
    callable->isLoadedChunk = true;
    callable->baseDirectory = program->baseDirectory;
    callable->scriptName = program->scriptName;
    callable->program = std::move(program);
    return callable;
}

bool sameFile(const ScriptFileCacheEntry& entry, const struct stat& status) {
    return entry.program != nullptr && entry.size == status.st_size &&
           entry.mtimeSeconds == status.st_mtim.tv_sec &&
           entry.mtimeNanoseconds == status.st_mtim.tv_nsec;
}

bool readText(const std::string& path, const struct stat& status, std::string& text) {
    // A directory opens as a stream but cannot be read.
    if (S_ISDIR(status.st_mode)) return false;
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return true;
}

}  // namespace

std::string DovrelScript::resolvePath(const std::string& path) const {
    if (path.empty() || path[0] == '/' || pathExists(path)) return path;
    std::string base;
    if (!baseDirectoryStack.empty()) base = *baseDirectoryStack.back();
    if (base.empty() && !scriptNameStack.empty()) base = directoryPart(*scriptNameStack.back());
    if (base.empty()) return path;

    const std::string besideScript = joinPath(base, path);
    if (pathExists(besideScript)) return besideScript;
    const std::string resources = resourceBase(base);
    if (resources.empty()) return path;
    const std::string inResources = joinPath(resources, path);
    if (pathExists(inResources)) return inResources;
    constexpr std::string_view kScriptPrefix = "ast/scripts/";
    if (path.starts_with(kScriptPrefix)) {
        const std::string inScripts =
            joinPath(joinPath(resources, "scripts"), path.substr(kScriptPrefix.size()));
        if (pathExists(inScripts)) return inScripts;
    }
    return path;
}

Variable loadFunction(DovrelScript& interpreter, Arguments args) {
    if (args.empty() || args[0].type != VarType::String) {
        throwPlainError("load(scriptText) requires a script string");
    }
    const bool named =
        args.size() > 1 && args[1].type == VarType::String && !args[1].asString().empty();
    const std::string name = named ? args[1].asString() : std::string();
    const NameStackEntry nameGuard(interpreter.scriptNameStack, name, named);
    try {
        return Variable::makeFunction(
            makeLoadedChunk(interpreter.readProgram(std::string(args[0].asString()), false)));
    } catch (const std::exception& error) {
        return failure(error.what());
    }
}

Variable loadFileFunction(DovrelScript& interpreter, Arguments args) {
    if (args.empty() || args[0].type != VarType::String) {
        throwPlainError("loadFile(path) requires a script path string");
    }
    if (!interpreter.host.mayUseFiles) {
        throwPlainError("loadFile(path): scripts may not use files here");
    }
    const std::string path = interpreter.resolvePath(args[0].asString());
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return failure("Failed to open script file: " + path);
    const auto cached = interpreter.scriptFileCache.find(path);
    if (cached != interpreter.scriptFileCache.end() && sameFile(cached->second, status)) {
        return Variable::makeFunction(cached->second.callable);
    }
    std::string text;
    if (!readText(path, status, text)) return failure("Failed to open script file: " + path);

    ScriptFileCacheEntry entry;
    try {
        const std::string directory = directoryPart(path);
        const NameStackEntry directoryGuard(interpreter.baseDirectoryStack, directory, true);
        const NameStackEntry nameGuard(interpreter.scriptNameStack, path, true);
        entry.program = interpreter.readProgram(std::move(text), false);
    } catch (const std::exception& error) {
        return failure(error.what());
    }
    entry.callable = makeLoadedChunk(entry.program);
    entry.size = status.st_size;
    entry.mtimeSeconds = status.st_mtim.tv_sec;
    entry.mtimeNanoseconds = status.st_mtim.tv_nsec;
    const Variable function = Variable::makeFunction(entry.callable);
    interpreter.scriptFileCache[path] = std::move(entry);
    return function;
}

Variable runFileFunction(DovrelScript& interpreter, Arguments args) {
    const Variable loaded = loadFileFunction(interpreter, args);
    if (loaded.type == VarType::Multi) {
        const std::vector<Variable>& values = loaded.asMulti()->values;
        if (!values.empty() && values[0].isNil()) {
            if (values.size() > 1 && values[1].type == VarType::String) {
                throwPlainError(values[1].asString());
            }
            throwPlainError("Failed to load script file");
        }
    }
    return interpreter.invokeCallableFast(loaded, Arguments());
}
