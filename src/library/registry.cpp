// The table of globals, in registration order, and the dispatch by id. Slot numbers follow from the
// order.
#include <array>
#include <bit>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "eval/fast_scalar_value.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"

namespace {

/// A native under one name. In a library table `idName` is the callable name that yields the
/// BuiltinId; most members have none.
struct NativeRow {
    const char* name;
    NativeBody body;
    const char* idName = "";
};

constexpr std::array<NativeRow, 38> kGlobals = {{
    {"print", printFunction},
    {"getTimeMs", getTimeMsFunction},
    {"random", randomFunction},
    {"toString", toStringFunction},
    {"tostring", toStringFunction},
    {"toNumber", toNumberFunction},
    {"tonumber", toNumberFunction},
    {"gsub", gsubFunction},
    {"typeOf", typeOfFunction},
    {"type", typeOfFunction},
    {"pop", popFunction},
    {"clear", clearFunction},
    {"erase", eraseFunction},
    {"contains", containsFunction},
    {"keys", keysFunction},
    {"values", valuesFunction},
    {"assert", assertFunction},
    {"error", errorFunction},
    {"pcall", pcallFunction},
    {"load", loadFunction},
    {"loadstring", loadFunction},
    {"loadFile", loadFileFunction},
    {"loadfile", loadFileFunction},
    {"runFile", runFileFunction},
    {"dofile", runFileFunction},
    {"pairs", pairsFunction},
    {"ipairs", ipairsFunction},
    {"next", nextFunction},
    {"select", selectFunction},
    {"collectGarbage", collectGarbageFunction},
    {"collectgarbage", collectGarbageFunction},
    {"kill", killFunction},
    {"array", arrayFunction},
    {"len", lenFunction},
    {"push", pushFunctionBody},
    {"reserve", reserveFunction},
    {"get", getFunction},
    {"set", setFunction},
}};

constexpr std::array<NativeRow, 12> kStringMembers = {{
    {"gsub", gsubFunction, "string.gsub"},
    {"len", stringLenFunction, "string.len"},
    {"upper", stringUpperFunction, "string.upper"},
    {"lower", stringLowerFunction},
    {"sub", stringSubFunction, "string.sub"},
    {"find", stringFindFunction, "string.find"},
    {"match", stringMatchFunction, "string.match"},
    {"gmatch", stringGmatchFunction, "string.gmatch"},
    {"byte", stringByteFunction, "string.byte"},
    {"char", stringCharFunction},
    {"format", stringFormatFunction, "string.format"},
    {"rep", stringRepFunction},
}};

constexpr std::array<NativeRow, 4> kTableMembers = {{
    {"insert", tableInsertFunction, "table.insert"},
    {"remove", tableRemoveFunction, "table.remove"},
    {"concat", tableConcatFunction, "table.concat"},
    {"sort", tableSortFunction, "table.sort"},
}};

constexpr std::array<NativeRow, 12> kMathMembers = {{
    {"floor", mathFloorFunction, "math.floor"},
    {"ceil", mathCeilFunction, "math.ceil"},
    {"abs", mathAbsFunction, "math.abs"},
    {"min", mathMinFunction, "math.min"},
    {"max", mathMaxFunction, "math.max"},
    {"sin", mathSinFunction, "math.sin"},
    {"cos", mathCosFunction, "math.cos"},
    {"rad", mathRadFunction, "math.rad"},
    {"log", mathLogFunction, "math.log"},
    {"sqrt", mathSqrtFunction, "math.sqrt"},
    {"random", randomFunction},
    {"randomSeed", randomSeedFunction},
}};

constexpr std::array<NativeRow, 2> kUtf8Members = {{
    {"len", utf8LenFunction, "utf8.len"},
    {"offset", utf8OffsetFunction},
}};

constexpr std::array<NativeRow, 2> kIoMembers = {{
    {"open", ioOpenFunction},
    {"popen", ioPopenFunction},
}};

constexpr std::array<NativeRow, 2> kOsMembers = {{
    {"clock", osClockFunction},
    {"time", osTimeFunction},
}};

/// The fast body of each id. Two entries differ from the function objects, and both are kept:
/// string.len has one message where its function object has two, and collectGarbage has no fast
/// body at all, so that the call by id does nothing.
constexpr std::array<NativeBody, kBuiltinIdCount> kFastBodies = {
    nullptr,
    assertFunction,
    getTimeMsFunction,
    toStringFunction,
    toNumberFunction,
    errorFunction,
    pcallFunction,
    loadFunction,
    pairsFunction,
    ipairsFunction,
    nextFunction,
    selectFunction,
    nullptr,
    lenFunction,
    stringLenFast,
    stringUpperFunction,
    stringSubFunction,
    stringFindFunction,
    stringMatchFunction,
    stringGmatchFunction,
    stringByteFunction,
    stringFormatFunction,
    gsubFunction,
    tableInsertFunction,
    tableRemoveFunction,
    tableConcatFunction,
    tableSortFunction,
    mathFloorFunction,
    mathCeilFunction,
    mathAbsFunction,
    mathMinFunction,
    mathMaxFunction,
    mathSinFunction,
    mathCosFunction,
    mathRadFunction,
    mathLogFunction,
    mathSqrtFunction,
    utf8LenFunction,
};

/// 0.4 and pi in single precision, by their bits.
const float kVersion = std::bit_cast<float>(std::uint32_t{0x3ECCCCCD});
const float kPi = std::bit_cast<float>(std::uint32_t{0x40490FDB});

NativeFunction bodyFunction(DovrelScript& interpreter, NativeBody body) {
    return [&interpreter, body](Arguments args) { return body(interpreter, args); };
}

Variable makeLibraryTable(DovrelScript& interpreter, std::span<const NativeRow> rows) {
    TableStorage members;
    members.reserve(rows.size());
    for (const NativeRow& row : rows) {
        members[row.name] = makeNativeCallable(bodyFunction(interpreter, row.body), row.idName);
    }
    return Variable::makeTable(std::move(members));
}

}  // namespace

Variable makeNativeCallable(NativeFunction function, const std::string& name) {
    auto callable = Shared<ScriptCallable>::make();
    callable->isNative = true;
    callable->nativeFunction = std::move(function);
    callable->name = name;
    callable->builtinId = builtinIdFromName(name);
    return Variable::makeFunction(std::move(callable));
}

void DovrelScript::pushFunction(const std::string& name, NativeBody body) {
    pushVariable(name, makeNativeCallable(bodyFunction(*this, body), name));
}

void DovrelScript::registerLibrary() {
    for (const NativeRow& row : kGlobals) pushFunction(row.name, row.body);
    pushVariable("DOVREL_VERSION", Variable::makeFloat(kVersion));
    pushVariable("DOVREL_RELEASE", Variable(std::string("Beta")));
    pushVariable("DOVREL_NAME", Variable(std::string("DovrelScript")));
    pushVariable("DOVREL_AUTHOR", Variable(std::string("Orlie")));

    pushVariable("string", makeLibraryTable(*this, kStringMembers));
    pushVariable("table", makeLibraryTable(*this, kTableMembers));
    const Variable math = makeLibraryTable(*this, kMathMembers);
    // One callable under two keys: overwriting one does not change the other.
    (*math.asTable())["randomseed"] = math.asTable()->at("randomSeed");
    (*math.asTable())["pi"] = Variable::makeFloat(kPi);
    pushVariable("math", math);
    pushVariable("utf8", makeLibraryTable(*this, kUtf8Members));
    pushVariable("io", makeLibraryTable(*this, kIoMembers));
    pushVariable("os", makeLibraryTable(*this, kOsMembers));
    pushVariable("package", Variable::makeTable({{"path", Variable(std::string())},
                                                 {"cpath", Variable(std::string())}}));
}

Variable DovrelScript::dispatchBuiltinFast(BuiltinId id, Arguments args) {
    const auto index = static_cast<std::size_t>(id);
    if (index >= kFastBodies.size() || kFastBodies[index] == nullptr) return {};
    return kFastBodies[index](*this, args);
}

bool DovrelScript::tryEvaluateNativeBuiltinScalar(BuiltinId id, Arguments args,
                                                  FastScalarValue& out) {
    // These natives have no side effects, so a result of another kind costs the caller no more
    // than a second call.
    const bool fits =
        id == BuiltinId::StringByte ? stringByteRangeReturnsScalar(args) : mayGiveScalar(id);
    return fits && tryFastScalarFromVariable(dispatchBuiltinFast(id, args), out);
}
