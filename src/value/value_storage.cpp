#include "value/value_storage.h"

#include "value/script_callable.h"
#include "value/variable.h"

void ValueStorage::copyFrom(const ValueStorage& other) {
    switch (other.alternative_) {
        case Alternative::String: std::construct_at(&string_, other.string_); break;
        case Alternative::Raw: std::construct_at(&raw_, other.raw_); break;
        case Alternative::Array: std::construct_at(&array_, other.array_); break;
        case Alternative::Table: std::construct_at(&table_, other.table_); break;
        case Alternative::Callable: std::construct_at(&callable_, other.callable_); break;
        case Alternative::Multi: std::construct_at(&multi_, other.multi_); break;
        default: takeTrivial(other); return;
    }
    alternative_ = other.alternative_;
}

void ValueStorage::moveFrom(ValueStorage& other) noexcept {
    switch (other.alternative_) {
        case Alternative::String: std::construct_at(&string_, std::move(other.string_)); break;
        case Alternative::Raw: std::construct_at(&raw_, std::move(other.raw_)); break;
        case Alternative::Array: std::construct_at(&array_, std::move(other.array_)); break;
        case Alternative::Table: std::construct_at(&table_, std::move(other.table_)); break;
        case Alternative::Callable:
            std::construct_at(&callable_, std::move(other.callable_));
            break;
        case Alternative::Multi: std::construct_at(&multi_, std::move(other.multi_)); break;
        default: takeTrivial(other); return;
    }
    alternative_ = other.alternative_;
}

void ValueStorage::assignFrom(const ValueStorage& other) {
    // Texts of an ordinary size are copied into the storage of the old one.
    constexpr std::size_t kMostReused = 1024;
    if (alternative_ == Alternative::String && other.alternative_ == Alternative::String &&
        string_.capacity() <= kMostReused) {
        string_ = other.string_;
        return;
    }
    ValueStorage copy(other);
    replaceBy(copy);
}

/// Takes over the content of `other`. The old content goes last: it may own what `other` stands in.
void ValueStorage::replaceBy(ValueStorage& other) noexcept {
    ValueStorage old;
    if (!isTrivial()) {
        old.moveFrom(*this);
        destroy();
    }
    moveFrom(other);
}

void ValueStorage::destroy() noexcept {
    const Alternative alternative = alternative_;
    switch (alternative) {
        case Alternative::String: std::destroy_at(&string_); break;
        case Alternative::Raw: std::destroy_at(&raw_); break;
        case Alternative::Array: std::destroy_at(&array_); break;
        case Alternative::Table: std::destroy_at(&table_); break;
        case Alternative::Callable: std::destroy_at(&callable_); break;
        case Alternative::Multi: std::destroy_at(&multi_); break;
        default: break;
    }
    int_ = 0;
    alternative_ = Alternative::Int;
}

void ValueStorage::swap(ValueStorage& other) noexcept {
    ValueStorage mine(std::move(*this));
    if (!isTrivial()) destroy();
    moveFrom(other);
    if (!other.isTrivial()) other.destroy();
    other.moveFrom(mine);
}

bool ValueStorage::operator==(const ValueStorage& other) const noexcept {
    if (alternative_ != other.alternative_) return false;
    switch (alternative_) {
        case Alternative::Int: return int_ == other.int_;
        case Alternative::Float: return float_ == other.float_;
        case Alternative::Bool: return bool_ == other.bool_;
        case Alternative::Pointer: return pointer_ == other.pointer_;
        case Alternative::String: return string_ == other.string_;
        case Alternative::Raw: return raw_ == other.raw_;
        case Alternative::Array: return array_ == other.array_;
        case Alternative::Table: return table_ == other.table_;
        case Alternative::Callable: return callable_ == other.callable_;
        case Alternative::Multi: return multi_ == other.multi_;
    }
    return false;
}
