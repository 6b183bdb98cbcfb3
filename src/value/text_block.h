// The bytes of a text, counted: the values that show the same text share one block of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "value/shared.h"
#include "value/text_hash.h"

/// What a String holds. The text changes only while one value holds it; whoever changes it calls
/// `forgetHash`.
struct TextBlock {
    TextBlock() = default;
    explicit TextBlock(std::string bytes) noexcept : text(std::move(bytes)) {}
    /// A copy of `bytes`, whose standard hash is known to be `knownHash`.
    TextBlock(std::string_view bytes, std::uint64_t knownHash)
        : text(bytes), hash_(knownHash), hasHash_(true) {}

    std::string text;
    /// Where a table had this text as a key when it was last sought: others that were filled alike
    /// have it there too.
    mutable std::uint16_t place = 0;
    /// Stands in compiled code, and is the only one there with these bytes.
    bool isConstant = false;

    /// The standard hash of the text; computed at the first question.
    [[nodiscard]] std::uint64_t hash() const {
        if (!hasHash_) {
            hash_ = standardTextHash(text);
            hasHash_ = true;
        }
        return hash_;
    }
    void forgetHash() noexcept { hasHash_ = false; }

private:
    mutable std::uint64_t hash_ = 0;
    mutable bool hasHash_ = false;
};

using Text = Shared<TextBlock>;

/// A counted text with the bytes of `bytes`.
[[nodiscard]] inline Text makeText(std::string bytes) { return Text::make(std::move(bytes)); }
