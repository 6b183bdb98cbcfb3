#include "value/value_storage.h"

#include <stdexcept>
#include <type_traits>

#include "value/array_storage.h"
#include "value/script_callable.h"
#include "value/table.h"
#include "value/variable.h"

template void Shared<TextBlock>::destroy(SharedCount*) noexcept;
#ifdef DOVREL_EMBEDDED
namespace {

// So many containers inside of each other are destroyed by recursion.
constexpr std::size_t kMostNested = 200;

/// Ends the containers that had to wait.
void freeDying(RunContext& context) noexcept {
    while (ContainerLink* link = context.dying) {
        context.dying = link->next;
        link->next = nullptr;
        // What tells an array from a table while it waits: it stands in no list.
        if (link->previous == nullptr) {
            Shared<ArrayStorage>::free(static_cast<BlockFront<ArrayStorage>&>(*link));
        } else {
            link->previous = nullptr;
            Shared<TableStorage>::free(static_cast<BlockFront<TableStorage>&>(*link));
        }
    }
}

template <class T>
void destroyContainer(BlockFront<T>& front) noexcept {
    RunContext& context = RunContext::current();
    if (context.destroying == kMostNested) {
        RunContext::remove(front);
        front.previous = std::is_same_v<T, TableStorage> ? &front : nullptr;
        front.next = context.dying;
        context.dying = &front;
        return;
    }
    ++context.destroying;
    Shared<T>::free(front);
    if (context.destroying == 1) freeDying(context);
    --context.destroying;
}

}  // namespace

template <class T>
ContainerFront<T>::ContainerFront() noexcept {
    RunContext::current().add(*this, std::is_same_v<T, TableStorage>);
}
template <class T>
ContainerFront<T>::~ContainerFront() {
    RunContext::remove(*this);
}
template struct ContainerFront<ArrayStorage>;
template struct ContainerFront<TableStorage>;

// Copies of a value may end anywhere, also one that contains a million others.
template <>
void Shared<ArrayStorage>::destroy(SharedCount* block) noexcept {
    destroyContainer(frontOf(block));
}
template <>
void Shared<TableStorage>::destroy(SharedCount* block) noexcept {
    destroyContainer(frontOf(block));
}
#else
template void Shared<ArrayStorage>::destroy(SharedCount*) noexcept;
template void Shared<TableStorage>::destroy(SharedCount*) noexcept;
#endif
template void Shared<ScriptCallable>::destroy(SharedCount*) noexcept;
template void Shared<MultiResult>::destroy(SharedCount*) noexcept;

void throwBadVariantAccess() { throw std::runtime_error("bad_variant_access"); }

void ValueStorage::destroyBlock(SharedCount* block, std::uint64_t tags) noexcept {
    switch (static_cast<Alternative>(std::bit_cast<std::array<std::uint8_t, 8>>(tags)[0])) {
        case Alternative::String: Text::destroy(block); break;
        case Alternative::Raw: Shared<Raw>::destroy(block); break;
        case Alternative::Array: Shared<ArrayStorage>::destroy(block); break;
        case Alternative::Table: Shared<TableStorage>::destroy(block); break;
        case Alternative::Callable: Shared<ScriptCallable>::destroy(block); break;
        case Alternative::Multi: Shared<MultiResult>::destroy(block); break;
        default: break;
    }
}

std::string& ValueStorage::ownText() {
    if (content_.text.useCount() != 1) content_.text = makeText(content_.text->text);
    content_.text->forgetHash();
    return content_.text->text;
}

bool ValueStorage::sameContent(const ValueStorage& other) const noexcept {
    if (alternative_ != other.alternative_) return false;
    switch (alternative_) {
        case Alternative::Int: return intContent() == other.intContent();
        case Alternative::Float: return floatContent() == other.floatContent();
        case Alternative::Bool: return boolContent() == other.boolContent();
        case Alternative::Pointer: return content_.pointer == other.content_.pointer;
        case Alternative::String:
            return content_.text == other.content_.text ||
                   content_.text->text == other.content_.text->text;
        case Alternative::Raw: return *content_.raw == *other.content_.raw;
        case Alternative::Array: return content_.array == other.content_.array;
        case Alternative::Table: return content_.table == other.content_.table;
        case Alternative::Callable: return content_.callable == other.content_.callable;
        case Alternative::Multi: return content_.multi == other.content_.multi;
    }
    return false;
}
