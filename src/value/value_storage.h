// The record of a Variable: 16 bytes, which are the content (8), the alternative that the content
// is, and the kind that the value claims to be. It is written out, and not the standard library's
// variant, because values are copied and destroyed all the time.
//
// 1. Numbers, truth values and nil are copied as two words, without a call. Everything else is a
//    counted block; a copy raises its count.
// 2. Words are written whole. Reading a word back that was written in pieces would wait for the
//    pieces, and values are read right after they have been written.
// 3. Kind and alternative stand side by side, so that one comparison of 16 bits (`tag`) tells that
// a
//    value is of a kind and that its content agrees.
// 4. A content that is replaced is let go of last: it may own what the new content came from.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "value/run_context.h"
#include "value/shared.h"
#include "value/text_block.h"

struct Variable;
struct MultiResult;
struct ScriptCallable;
class ArrayStorage;
class TableStorage;

#ifdef DOVREL_EMBEDDED
/// A container enters the list of the context that it is made in, and leaves it when it ends.
template <class T>
struct ContainerFront : ContainerLink {
    ContainerFront() noexcept;
    ~ContainerFront();
    ContainerFront(const ContainerFront&) = delete;
    ContainerFront& operator=(const ContainerFront&) = delete;
};
template <>
struct BlockFront<ArrayStorage> : ContainerFront<ArrayStorage> {};
template <>
struct BlockFront<TableStorage> : ContainerFront<TableStorage> {};
#endif

// Dropped in many places, and destroyed in one, where these are complete.
extern template void Shared<TextBlock>::destroy(SharedCount*) noexcept;
#ifdef DOVREL_EMBEDDED
template <>
void Shared<ArrayStorage>::destroy(SharedCount*) noexcept;
template <>
void Shared<TableStorage>::destroy(SharedCount*) noexcept;
#else
extern template void Shared<ArrayStorage>::destroy(SharedCount*) noexcept;
extern template void Shared<TableStorage>::destroy(SharedCount*) noexcept;
#endif
extern template void Shared<ScriptCallable>::destroy(SharedCount*) noexcept;
extern template void Shared<MultiResult>::destroy(SharedCount*) noexcept;

/// The value kinds. Their order is fixed.
enum class VarType : std::uint8_t {
    Nil = 0,        // absence of a value; holds the int 0
    Int = 1,        // 32-bit signed integer
    Float = 2,      // 32-bit floating value
    String = 3,     // byte string
    Raw = 4,        // byte buffer; no operation makes one
    Bool = 5,       // truth value
    Pointer = 6,    // opaque host pointer
    Array = 7,      // shared dense sequence
    Multi = 8,      // several results of one call, in flight
    Table = 9,      // shared string-keyed map
    Function = 10,  // shared callable
};

/// The alternatives; those that need no destructor come first.
enum class Alternative : std::uint8_t {
    Int,
    Float,
    Bool,
    Pointer,
    String,
    Raw,
    Array,
    Table,
    Callable,
    Multi,
};

/// Raises the error of a tag that disagrees with the alternative beside it. Every checked access
/// ends here, so that its text does not depend on the standard library.
[[noreturn]] void throwBadVariantAccess();

class ValueStorage {
public:
    using Raw = std::vector<char>;

    /// Kind and alternative as `tag` gives them.
    [[nodiscard]] static constexpr std::uint16_t tagOf(VarType kind, Alternative content) noexcept {
        return std::bit_cast<std::uint16_t>(std::array<std::uint8_t, 2>{
            static_cast<std::uint8_t>(content), static_cast<std::uint8_t>(kind)});
    }

    /// Nil.
    ValueStorage() noexcept { write({0, tagsOf(VarType::Nil, Alternative::Int)}); }
    explicit ValueStorage(int number) noexcept { write(wordsOf(number)); }
    explicit ValueStorage(float number) noexcept { write(wordsOf(number)); }
    explicit ValueStorage(bool truth) noexcept { write(wordsOf(truth)); }
    explicit ValueStorage(void* address) noexcept {
        writeTags(tagsOf(VarType::Pointer, Alternative::Pointer));
        content_.pointer = address;
    }
    explicit ValueStorage(Text text) noexcept {
        writeTags(tagsOf(VarType::String, Alternative::String));
        std::construct_at(&content_.text, std::move(text));
    }
    explicit ValueStorage(const Raw& bytes) {
        std::construct_at(&content_.raw, Shared<Raw>::make(bytes));
        writeTags(tagsOf(VarType::Raw, Alternative::Raw));
    }
    explicit ValueStorage(Shared<ArrayStorage> array) noexcept {
        writeTags(tagsOf(VarType::Array, Alternative::Array));
        std::construct_at(&content_.array, std::move(array));
    }
    explicit ValueStorage(Shared<TableStorage> table) noexcept {
        writeTags(tagsOf(VarType::Table, Alternative::Table));
        std::construct_at(&content_.table, std::move(table));
    }
    explicit ValueStorage(Shared<ScriptCallable> callable) noexcept {
        writeTags(tagsOf(VarType::Function, Alternative::Callable));
        std::construct_at(&content_.callable, std::move(callable));
    }
    explicit ValueStorage(Shared<MultiResult> multi) noexcept {
        writeTags(tagsOf(VarType::Multi, Alternative::Multi));
        std::construct_at(&content_.multi, std::move(multi));
    }

    ValueStorage(const ValueStorage& other) noexcept {
        if (other.isCounted()) other.raiseCount();
        write(other.words());
    }
    ValueStorage(ValueStorage&& other) noexcept { write(other.takeWords()); }
    ValueStorage& operator=(const ValueStorage& other) noexcept {
        if (other.isCounted()) other.raiseCount();
        replace(other.words());
        return *this;
    }
    ValueStorage& operator=(ValueStorage&& other) noexcept {
        if (this != &other) replace(other.takeWords());
        return *this;
    }
    ~ValueStorage() {
        if (isCounted()) dropContent(words());
    }

    [[nodiscard]] Alternative alternative() const noexcept { return alternative_; }
    /// Kind and alternative in one, to be compared with `tagOf` and the constants of Variable.
    [[nodiscard]] std::uint16_t tag() const noexcept {
        std::uint16_t tag = 0;
        std::memcpy(&tag, reinterpret_cast<const char*>(this) + kTagOffset, sizeof(tag));
        return tag;
    }

    void swap(ValueStorage& other) noexcept {
        const Words mine = words();
        write(other.words());
        other.write(mine);
    }
    /// The same alternative with equal content, whatever the kinds; containers and callables by
    /// identity.
    [[nodiscard]] bool sameContent(const ValueStorage& other) const noexcept;

    /// The record as it is copied. Whoever takes the words of a value owns what they count, and
    /// gives them to another one.
    struct Words {
        std::uint64_t content;
        std::uint64_t tags;
    };

protected:
    [[nodiscard]] static constexpr std::uint64_t tagsOf(VarType kind,
                                                        Alternative content) noexcept {
        return std::bit_cast<std::uint64_t>(std::array<std::uint8_t, 8>{
            static_cast<std::uint8_t>(content), static_cast<std::uint8_t>(kind)});
    }
    [[nodiscard]] static Words nilWords() noexcept {
        return {0, tagsOf(VarType::Nil, Alternative::Int)};
    }
    [[nodiscard]] static Words wordsOf(int number) noexcept {
        return {static_cast<std::uint32_t>(number), tagsOf(VarType::Int, Alternative::Int)};
    }
    [[nodiscard]] static Words wordsOf(float number) noexcept {
        return {std::bit_cast<std::uint32_t>(number), tagsOf(VarType::Float, Alternative::Float)};
    }
    [[nodiscard]] static Words wordsOf(bool truth) noexcept {
        return {truth ? 1U : 0U, tagsOf(VarType::Bool, Alternative::Bool)};
    }

    /// Whether the content is a block with a count (or a null pointer to one).
    [[nodiscard]] bool isCounted() const noexcept { return alternative_ > Alternative::Pointer; }

    /// Overwrites the record; a counted content is let go of.
    [[gnu::always_inline]] void replace(Words next) noexcept {
        if (isCounted()) [[unlikely]] {
            replaceCounted(next);
        } else {
            write(next);
        }
    }
    /// The same with a float. It is written whole from the register in which it was computed: the
    /// way through a register for integers would take longer than the arithmetic. The other half of
    /// the word is left as that register has it, and nobody reads it.
    [[gnu::always_inline]] void replaceByFloat(float number) noexcept {
#if defined(__x86_64__)
        if (!isCounted()) [[likely]] {
            double whole = 0.0;
            asm("" : "=x"(whole) : "0"(number));
            content_.word = std::bit_cast<std::uint64_t>(whole);
            writeTags(tagsOf(VarType::Float, Alternative::Float));
            return;
        }
#endif
        replace(wordsOf(number));
    }
    [[gnu::always_inline]] void copyFrom(const ValueStorage& other) noexcept {
        if (other.isCounted()) other.raiseCount();
        replace(other.words());
    }
    [[nodiscard, gnu::always_inline]] Words take() noexcept { return takeWords(); }
    [[gnu::always_inline]] void give(Words words) noexcept { replace(words); }
    /// The same where the content is counted.
    [[gnu::always_inline]] void giveOverCounted(Words next) noexcept {
        const Words old = words();
        write(next);
        dropContent(old);
    }
    /// `other`, which must be another value, is nil from now on.
    [[gnu::always_inline]] void moveFrom(ValueStorage& other) noexcept {
        replace(other.takeWords());
    }
    /// Overwrites the content, which must not be counted; kind and alternative stay.
    void writeContent(Words next) noexcept { content_.word = next.content; }

    // The content as it is read, unchecked.
    [[nodiscard]] int intContent() const noexcept {
        return static_cast<int>(static_cast<std::uint32_t>(content_.word));
    }
    [[nodiscard]] float floatContent() const noexcept {
        if constexpr (std::endian::native == std::endian::little) {
            float number = 0.0F;  // at once, without a way through a register for integers
            std::memcpy(&number, &content_.word, sizeof(number));
            return number;
        } else {
            return std::bit_cast<float>(static_cast<std::uint32_t>(content_.word));
        }
    }
    [[nodiscard]] bool boolContent() const noexcept { return content_.word != 0; }
    [[nodiscard]] void* pointerContent() const noexcept { return content_.pointer; }
    [[nodiscard]] const Text& textContent() const noexcept { return content_.text; }
    [[nodiscard]] const Shared<ArrayStorage>& arrayContent() const noexcept {
        return content_.array;
    }
    [[nodiscard]] const Shared<TableStorage>& tableContent() const noexcept {
        return content_.table;
    }
    [[nodiscard]] const Shared<ScriptCallable>& callableContent() const noexcept {
        return content_.callable;
    }
    [[nodiscard]] const Shared<MultiResult>& multiContent() const noexcept {
        return content_.multi;
    }
    /// The text for writing, held by this value alone; the content must be a text.
    [[nodiscard]] std::string& ownText();

private:
    static constexpr std::size_t kTagOffset = 8;

    [[nodiscard]] Words words() const noexcept {
        Words words;
        std::memcpy(&words.content, this, sizeof(words.content));
        std::memcpy(&words.tags, reinterpret_cast<const char*>(this) + kTagOffset,
                    sizeof(words.tags));
        return words;
    }
    void write(Words words) noexcept {
        std::memcpy(static_cast<void*>(this), &words.content, sizeof(words.content));
        writeTags(words.tags);
    }
    void writeTags(std::uint64_t tags) noexcept {
        std::memcpy(reinterpret_cast<char*>(this) + kTagOffset, &tags, sizeof(tags));
    }
    /// The words of this value, which is nil from now on.
    [[nodiscard]] Words takeWords() noexcept {
        const Words taken = words();
        write(nilWords());
        return taken;
    }
    [[nodiscard]] static SharedCount* blockOf(Words words) noexcept {
        return reinterpret_cast<SharedCount*>(static_cast<std::uintptr_t>(words.content));
    }
    void raiseCount() const noexcept {
        if (SharedCount* block = blockOf(words())) ++block->count;
    }
    /// Lowers the count of a counted content.
    static void dropContent(Words old) noexcept {
        SharedCount* block = blockOf(old);
        if (block != nullptr && --block->count == 0) destroyBlock(block, old.tags);
    }
    [[gnu::noinline]] void replaceCounted(Words next) noexcept {
        const Words old = words();
        write(next);
        dropContent(old);
    }
    static void destroyBlock(SharedCount* block, std::uint64_t tags) noexcept;

    // Each pointer is one word, and its bytes are copied as those of a number are.
    union Content {
        Content() noexcept {}
        ~Content() {}
        Content(const Content&) = delete;
        Content& operator=(const Content&) = delete;

        std::uint64_t word;  // of an int, a float or a truth value
        void* pointer;
        Text text;
        Shared<Raw> raw;
        Shared<ArrayStorage> array;
        Shared<TableStorage> table;
        Shared<ScriptCallable> callable;
        Shared<MultiResult> multi;
    };

    Content content_;
    Alternative alternative_;

public:
    /// Agrees with the alternative, except where a compound assignment of mixed kinds has failed
    /// half-way.
    VarType type;

private:
    [[maybe_unused]] std::array<std::uint8_t, 6> rest_;  // of the second word
};

// The content is one word of 8 bytes. A pointer of 4 is its first half; nobody reads the other one.
static_assert(sizeof(void*) <= 8 &&
              (sizeof(void*) == 8 || std::endian::native == std::endian::little));
static_assert(sizeof(ValueStorage) == 16);
