#include "value/value_storage.h"

#include <stdexcept>

#include "value/script_callable.h"
#include "value/table.h"
#include "value/variable.h"

template void Shared<TextBlock>::destroy(SharedCount*) noexcept;
template void Shared<ArrayStorage>::destroy(SharedCount*) noexcept;
template void Shared<TableStorage>::destroy(SharedCount*) noexcept;
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
