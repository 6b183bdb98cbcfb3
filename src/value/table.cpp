#include "value/table.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

#include "value/numbers.h"
#include "value/run_context.h"
#include "value/text.h"

namespace {

#ifdef DOVREL_EMBEDDED
constexpr int kReadyTexts = RunContext::kReadyTexts;
#else
constexpr int kReadyTexts = 1024;
#endif

// Room for a sign and the ten digits of the longest int.
using IntBuffer = std::array<char, 11>;

std::string_view digitsOf(int number, IntBuffer& buffer) {
    char* const begin = buffer.data();
    const auto result = std::to_chars(begin, begin + buffer.size(), number);
    return {begin, static_cast<std::size_t>(result.ptr - begin)};
}

/// The text of a number below kReadyTexts. Texts are made when they are first asked for.
const Text& readyText(int number) {
#ifdef DOVREL_EMBEDDED
    // Texts are counted without a lock, so each interpreter has its own.
    auto& texts = RunContext::current().readyTexts;
#else
    // Never destroyed, since values may outlive the statics of this file.
    static auto& texts = *new std::array<Text, kReadyTexts>;
#endif
    Text& text = texts[static_cast<std::size_t>(number)];
    if (text == nullptr) {
        IntBuffer buffer;
        const std::string_view digits = digitsOf(number, buffer);
        text = Text::make(digits, standardTextHash(digits));
    }
    return text;
}

bool isReady(int number) { return number >= 0 && number < kReadyTexts; }

/// The number that `key` is the text of, if it is one from 1 on, without leading zeros; else 0.
int positionOf(std::string_view key) {
    int position = 0;
    if (key.empty() || key.front() < '1' || key.front() > '9') return 0;
    const char* const end = key.data() + key.size();
    const auto result = std::from_chars(key.data(), end, position);
    return result.ec == std::errc() && result.ptr == end ? position : 0;
}

/// A key text read back as a value: a decimal int, else what strtof reads whole, else the text.
Variable keyValueFromText(const Text& key) {
    if (int number = 0; parseIntStrict(key->text, number)) return Variable::makeInt(number);
    if (float number = 0.0F; parseFloatStrict(key->text, number)) {
        return Variable::makeFloat(number);
    }
    return Variable(key);
}

}  // namespace

Text intKeyText(int number) {
    if (isReady(number)) return readyText(number);
    IntBuffer buffer;
    return makeText(std::string(digitsOf(number, buffer)));
}

Text keyText(const Variable& key) {
    if (key.type == VarType::String) return key.asText();
    if (key.type == VarType::Int) return intKeyText(key.asInt());
    return makeText(keyToString(key));
}

std::size_t TableSnapshot::positionOf(std::string_view key) const {
    if (index_.empty()) {
        index_.reserve(keys.size());
        for (std::size_t i = 0; i < keys.size(); ++i) index_.emplace(keys[i], i);
    }
    const auto found = index_.find(key);
    return found != index_.end() ? found->second : keys.size();
}

TableStorage::TableStorage(std::initializer_list<std::pair<std::string_view, Variable>> entries) {
    map_.reserve(entries.size());
    for (const auto& [key, value] : entries) emplace(key, value);
}

TableStorage::TableStorage(const TableStorage& other)
    : map_(other.map_),
      snapshot_(other.snapshot_),
      leastBorder_(other.leastBorder_),
      borderIsExact_(other.borderIsExact_) {}

TableStorage::TableStorage(TableStorage&& other) noexcept
    : map_(std::move(other.map_)),
      snapshot_(std::move(other.snapshot_)),
      leastBorder_(std::exchange(other.leastBorder_, 0)),
      borderIsExact_(std::exchange(other.borderIsExact_, true)) {
    other.map_.clear();
    other.keyRemoved();
}

std::uint64_t TableStorage::nextGeneration() noexcept {
#ifdef DOVREL_EMBEDDED
    return ++RunContext::current().tableGenerations;
#else
    static std::uint64_t generations = 0;
    return ++generations;
#endif
}

void TableStorage::throwKeyNotFound() {
    throw std::runtime_error("unordered_map::at: key not found");
}

void TableStorage::keyRemoved() {
    snapshot_.reset();
    generation_ = nextGeneration();
}

const Variable* TableStorage::findInt(int key) const {
    if (isReady(key)) return valueAt(readyText(key));
    IntBuffer buffer;
    return valueAt(digitsOf(key, buffer));
}

Variable* TableStorage::findAndNote(const Text& key) {
    const auto found = map_.find(key);
    if (found == map_.end()) return nullptr;
    // The same bytes, which the next look finds by their address.
    if (key->isConstant && found->first != key) found->first = key;
    map_.notePlace(found, key->place);
    return &found->second;
}

const Variable* TableStorage::findValue(const Variable& key) const {
    if (key.type == VarType::String) return find(key.asText());
    if (key.type == VarType::Int) return findInt(key.asInt());
    return valueAt(std::string_view(keyToString(key)));
}

Variable& TableStorage::operator[](const Text& key) {
    const auto [place, isNew] = map_.try_emplace(key);
    if (isNew) keyAdded();
    return place->second;
}

Variable& TableStorage::operator[](std::string_view key) {
    if (Variable* value = find(key)) return *value;
    return (*this)[makeText(std::string(key))];
}

void TableStorage::emplace(std::string_view key, Variable value) {
    if (find(key) == nullptr) (*this)[makeText(std::string(key))] = std::move(value);
}

bool TableStorage::erase(std::string_view key) {
    const auto found = map_.find(key);
    if (found == map_.end()) return false;
    const int position = leastBorder_ > 0 ? positionOf(key) : 0;
    // The entry goes last: its value may own what `key` stands in.
    const auto removed = map_.extract(found);
    keyRemoved();
    if (position > 0 && position <= leastBorder_) {
        leastBorder_ = position - 1;
        borderIsExact_ = true;
    }
    return true;
}

void TableStorage::clear() {
    map_.clear();
    keyRemoved();
    leastBorder_ = 0;
    borderIsExact_ = true;
}

const std::shared_ptr<const TableSnapshot>& TableStorage::snapshot() const {
    if (snapshot_ == nullptr) {
        auto made = std::make_shared<TableSnapshot>();
        made->keys.reserve(map_.size());
        for (const auto& entry : map_) made->keys.push_back(entry.first);
        std::sort(made->keys.begin(), made->keys.end(),
                  [](const Text& a, const Text& b) { return a->text < b->text; });
        made->keyValues.reserve(map_.size());
        for (const Text& key : made->keys) made->keyValues.push_back(keyValueFromText(key));
        snapshot_ = std::move(made);
    }
    return snapshot_;
}

int TableStorage::border() const {
    if (!borderIsExact_) {
        while (findInt(leastBorder_ + 1) != nullptr) ++leastBorder_;
        borderIsExact_ = true;
    }
    return leastBorder_;
}
