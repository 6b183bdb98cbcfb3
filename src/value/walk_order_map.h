// A hash map that is walked in the order in which the standard library walks its own one, since
// scripts see the order of their tables. It is written out because it is made and asked all the
// time, and because other builds have other libraries.
//
// 1. All entries stand in one list, those of a bucket side by side. A bucket knows the entry in
//    front of its first one.
// 2. An entry goes to the front of its bucket; the first one of a bucket goes to the front of the
//    list.
// 3. The buckets grow before an entry would be one more than there are buckets, to the numbers
//    below. The entries are put into the new ones in the order of the list, each by rule 2.
// 4. Nothing is made smaller: neither by removing entries nor by removing all.
// 5. A few entries are found by going through the list, so a small map has no buckets at hand;
//    each entry knows the number of its own. Entries never move while they are there.
// 6. Maps that were filled alike have their entries at the same places of their memory. Whoever
//    remembers a place finds the entry there by one look, and needs no hash.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <utility>
#include <vector>

/// `Hash` gives 64 bits. `Hash` and `Equal` take keys and whatever else is looked up.
template <class Key, class Value, class Hash, class Equal>
class WalkOrderMap {
    struct Link {
        Link* next = nullptr;
    };
    /// An entry, or room for one, with an empty key and an empty value.
    struct Node : Link {
        std::uint32_t bucket = 0;
        std::uint32_t tag = 0;  // of the hash, what the bucket does not tell
        std::pair<Key, Value> entry;
    };
    static Node& nodeOf(Link* link) { return static_cast<Node&>(*link); }

    template <class Entry>
    class Iterator {
    public:
        Iterator() = default;
        explicit Iterator(Link* at) : at_(at) {}
        // NOLINTNEXTLINE: as the standard iterators do.
        operator Iterator<const Entry>() const { return Iterator<const Entry>(at_); }
        Entry& operator*() const { return nodeOf(at_).entry; }
        Entry* operator->() const { return &nodeOf(at_).entry; }
        Iterator& operator++() {
            at_ = at_->next;
            return *this;
        }
        bool operator==(const Iterator&) const = default;

    private:
        friend class WalkOrderMap;
        Link* at_ = nullptr;
    };

public:
    using iterator = Iterator<std::pair<Key, Value>>;
    using const_iterator = Iterator<const std::pair<Key, Value>>;

    /// Where an entry lies in the first piece of memory of its map.
    using Place = std::uint16_t;

    /// How a map looks into which a few keys have been put, one behind the other.
    class Layout {
    public:
        static constexpr std::size_t kMostKeys = 8;
        /// Of 1 to `kMostKeys` keys, no two of which are equal.
        explicit Layout(std::span<const Key> keys) {
            WalkOrderMap map;
            for (const Key& key : keys) map.try_emplace(key);
            for (const Key& key : keys) {
                const Node& node = nodeOf(map.find(key).at_);
                parts_.push_back({key, node.bucket, node.tag, map.pool_.indexOf(node.next)});
            }
            first_ = map.pool_.indexOf(map.front_.next);
            bucketCount_ = map.bucketCount_;
        }

    private:
        friend class WalkOrderMap;
        struct Part {
            Key key;
            std::uint32_t bucket;
            std::uint32_t tag;
            std::size_t next;  // counted from 0 in the order of the keys; `kNone` for the last one
        };
        std::vector<Part> parts_;
        std::size_t first_ = 0;
        std::uint64_t bucketCount_ = 0;
    };

    WalkOrderMap() = default;
    WalkOrderMap(const WalkOrderMap& other)
        : bucketCount_(other.bucketCount_), buckets_(other.buckets_.size()) {
        Link* last = &front_;
        try {
            pool_.reserve(other.size_);
            for (Link* at = other.front_.next; at != nullptr; at = at->next) {
                const Node& node = nodeOf(at);
                Node* const copy = pool_.take();
                *copy = node;
                copy->next = nullptr;
                last->next = copy;
                ++size_;
                if (hasBuckets() && buckets_[node.bucket] == nullptr) buckets_[node.bucket] = last;
                last = last->next;
            }
        } catch (...) {
            destroyEntries();
            throw;
        }
    }
    WalkOrderMap(WalkOrderMap&& other) noexcept
        : front_(std::exchange(other.front_, {})),
          size_(std::exchange(other.size_, 0)),
          bucketCount_(std::exchange(other.bucketCount_, 0)),
          buckets_(std::exchange(other.buckets_, {})),
          pool_(std::move(other.pool_)) {
        if (hasBuckets() && front_.next != nullptr) buckets_[nodeOf(front_.next).bucket] = &front_;
    }
    WalkOrderMap& operator=(const WalkOrderMap&) = delete;
    ~WalkOrderMap() { destroyEntries(); }

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] float max_load_factor() const { return 1.0F; }

    [[nodiscard]] iterator begin() { return iterator(front_.next); }
    [[nodiscard]] iterator end() { return iterator(); }
    [[nodiscard]] const_iterator begin() const { return const_iterator(front_.next); }
    [[nodiscard]] const_iterator end() const { return const_iterator(); }

    template <class Sought>
    [[nodiscard]] iterator find(const Sought& key) {
        return iterator(size_ != 0 ? sought(key, Hash()(key)) : nullptr);
    }
    template <class Sought>
    [[nodiscard]] const_iterator find(const Sought& key) const {
        return const_cast<WalkOrderMap*>(this)->find(key);
    }

    /// The entry of `key`, made with an empty value if it is not there, and whether it was made.
    std::pair<iterator, bool> try_emplace(const Key& key) {
        const std::uint64_t hash = Hash()(key);
        if (size_ != 0) {
            if (Link* const there = sought(key, hash)) return {iterator(there), false};
        }
        if (size_ == bucketCount_) grow();
        if (size_ == kMostWithoutBuckets && !hasBuckets()) makeBuckets();
        Node* const node = pool_.take();
        node->bucket = bucketOf(hash);
        node->tag = tagOf(hash);
        node->entry.first = key;
        putIn(node);
        ++size_;
        return {iterator(node), true};
    }

    /// Has the next `count` entries made in one piece of memory.
    void reserve(std::size_t count) { pool_.reserve(count); }

    /// The value at a place, if the key there is this very one; null otherwise.
    [[nodiscard]] Value* valueAt(Place place, const Key& key) {
        if (!pool_.hasPlace(place)) return nullptr;
        Node& node = pool_.at(place);
        return node.entry.first == key ? &node.entry.second : nullptr;
    }
    /// Notes the place of an entry, if it has one.
    void notePlace(const_iterator entry, Place& place) const { pool_.notePlace(entry.at_, place); }

    /// Puts the keys of a layout into a map that never had one. Their values are empty; `give` gets
    /// the number of each key, counted from 0, and its value.
    template <class Give>
    void fill(const Layout& layout, Give give) {
        pool_.reserve(layout.parts_.size());
        for (std::size_t i = 0; i < layout.parts_.size(); ++i) {
            const auto& part = layout.parts_[i];
            Node* const node = pool_.take();
            node->bucket = part.bucket;
            node->tag = part.tag;
            node->next = part.next != kNone ? pool_.room(part.next) : nullptr;
            node->entry.first = part.key;
            give(i, node->entry.second);
        }
        front_.next = pool_.room(layout.first_);
        size_ = layout.parts_.size();
        bucketCount_ = layout.bucketCount_;
    }

    /// Takes an entry out.
    [[nodiscard]] std::pair<Key, Value> extract(iterator at) {
        Node& node = nodeOf(at.at_);
        Link* before = hasBuckets() ? buckets_[node.bucket] : &front_;
        while (before->next != &node) before = before->next;
        Link* const next = node.next;
        before->next = next;
        if (hasBuckets()) {
            Link*& bucket = buckets_[node.bucket];
            if (next == nullptr || nodeOf(next).bucket != node.bucket) {
                // It was the last one of its bucket: the next one begins behind what was before it.
                if (next != nullptr) buckets_[nodeOf(next).bucket] = before;
                if (bucket == before) bucket = nullptr;
            }
        }
        --size_;
        std::pair<Key, Value> entry = std::exchange(node.entry, {});
        pool_.giveBack(node);
        return entry;
    }

    void clear() noexcept {
        destroyEntries();
        front_.next = nullptr;
        size_ = 0;
        pool_.clear();
        for (Link*& bucket : buckets_) bucket = nullptr;
    }

private:
    static constexpr std::size_t kMostWithoutBuckets = 8;
    static_assert(Layout::kMostKeys <= kMostWithoutBuckets);
    static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

    /// Nodes, a few at a time. Those that are no entries are empty.
    class NodePool {
    public:
        NodePool() = default;
        NodePool(NodePool&& other) noexcept
            : first_(std::exchange(other.first_, nullptr)),
              firstBytes_(std::exchange(other.firstBytes_, 0)),
              size_(std::exchange(other.size_, 0)),
              chunks_(std::exchange(other.chunks_, nullptr)),
              next_(std::exchange(other.next_, nullptr)),
              end_(std::exchange(other.end_, nullptr)),
              free_(std::exchange(other.free_, nullptr)) {}
        NodePool& operator=(NodePool&&) = delete;
        NodePool(const NodePool&) = delete;
        NodePool& operator=(const NodePool&) = delete;
        ~NodePool() { clear(); }

        /// An empty node.
        [[nodiscard]] Node* take() {
            if (free_ != nullptr) return &nodeOf(std::exchange(free_, free_->next));
            if (next_ == end_) reserve(std::clamp(2 * size_, kSmallest, kLargest));
            return next_++;
        }
        /// Takes a node that is empty again.
        void giveBack(Node& node) noexcept {
            node.next = free_;
            free_ = &node;
        }
        /// Has the next `count` nodes in one piece.
        void reserve(std::size_t count) {
            if (count == 0) return;
            auto* const chunk =
                static_cast<Chunk*>(::operator new(sizeof(Chunk) + count * sizeof(Node)));
            chunk->next = chunks_;
            next_ = reinterpret_cast<Node*>(chunk + 1);
            end_ = std::uninitialized_default_construct_n(next_, count);
            if (chunks_ == nullptr) {
                first_ = next_;
                firstBytes_ = static_cast<Place>(std::min(count, kMostPlaces) * sizeof(Node));
            }
            chunks_ = chunk;
            size_ += count;
        }
        /// Frees all nodes. Those that were entries have been destroyed before.
        void clear() noexcept {
            while (chunks_ != nullptr) ::operator delete(std::exchange(chunks_, chunks_->next));
            first_ = next_ = end_ = nullptr;
            firstBytes_ = 0;
            free_ = nullptr;
            size_ = 0;
        }

        [[nodiscard]] bool hasPlace(Place place) const { return place < firstBytes_; }
        [[nodiscard]] Node& at(Place place) const {
            return *reinterpret_cast<Node*>(reinterpret_cast<std::byte*>(first_) + place);
        }
        void notePlace(const Link* node, Place& place) const {
            const std::uintptr_t distance =
                reinterpret_cast<std::uintptr_t>(node) - reinterpret_cast<std::uintptr_t>(first_);
            if (distance < firstBytes_) place = static_cast<Place>(distance);
        }
        /// A node of the first piece, counted from 0, and the reverse, which gives `kNone` for
        /// null.
        [[nodiscard]] Node* room(std::size_t index) const { return first_ + index; }
        [[nodiscard]] std::size_t indexOf(const Link* node) const {
            return node != nullptr
                       ? static_cast<std::size_t>(static_cast<const Node*>(node) - first_)
                       : kNone;
        }

    private:
        static constexpr std::size_t kSmallest = kMostWithoutBuckets;
        static constexpr std::size_t kLargest = 1024;
        static constexpr std::size_t kMostPlaces = std::numeric_limits<Place>::max() / sizeof(Node);

        struct Chunk {
            Chunk* next;
            std::uint64_t alignment;
        };
        static_assert(sizeof(Chunk) % alignof(Node) == 0);

        Node* first_ = nullptr;  // of the first piece
        Place firstBytes_ = 0;
        std::size_t size_ = 0;  // nodes in all pieces
        Chunk* chunks_ = nullptr;
        Node* next_ = nullptr;
        Node* end_ = nullptr;
        Link* free_ = nullptr;
    };

    [[nodiscard]] bool hasBuckets() const { return !buckets_.empty(); }
    [[nodiscard]] std::uint32_t bucketOf(std::uint64_t hash) const {
        return static_cast<std::uint32_t>(hash % bucketCount_);
    }
    [[nodiscard]] static std::uint32_t tagOf(std::uint64_t hash) {
        return static_cast<std::uint32_t>(hash >> 32U);
    }

    /// The entry of `key`, or null. There is at least one entry.
    template <class Sought>
    [[nodiscard]] Link* sought(const Sought& key, std::uint64_t hash) {
        const std::uint32_t tag = tagOf(hash);
        if (!hasBuckets()) {
            for (Link* at = front_.next; at != nullptr; at = at->next) {
                const Node& node = nodeOf(at);
                if (node.tag == tag && Equal()(key, node.entry.first)) return at;
            }
            return nullptr;
        }
        const std::uint32_t bucket = bucketOf(hash);
        const Link* before = buckets_[bucket];
        if (before == nullptr) return nullptr;
        for (Link* at = before->next; at != nullptr; at = at->next) {
            const Node& node = nodeOf(at);
            if (node.bucket != bucket) break;
            if (node.tag == tag && Equal()(key, node.entry.first)) return at;
        }
        return nullptr;
    }

    /// What stands in front of the first entry of the bucket; null for none.
    [[nodiscard]] Link* beforeFirstOf(std::uint32_t bucket) {
        if (hasBuckets()) return buckets_[bucket];
        for (Link* before = &front_; before->next != nullptr; before = before->next) {
            if (nodeOf(before->next).bucket == bucket) return before;
        }
        return nullptr;
    }

    void putIn(Node* node) {
        Link* before = beforeFirstOf(node->bucket);
        if (before == nullptr) {
            before = &front_;
            if (hasBuckets()) {
                if (front_.next != nullptr) buckets_[nodeOf(front_.next).bucket] = node;
                buckets_[node->bucket] = before;
            }
        }
        node->next = before->next;
        before->next = node;
    }

    void grow() {
        static constexpr std::array<std::uint32_t, 28> kBuckets = {
            13,       29,        59,        127,       257,       541,        1109,
            2357,     5087,      10273,     20753,     42043,     85229,      172933,
            351061,   712697,    1447153,   2938679,   5967347,   12117689,   24607243,
            49969847, 101473717, 206062531, 418451333, 849749479, 1725587117, 3504151727};
        std::size_t next = 0;
        while (kBuckets[next] <= bucketCount_) {
            if (++next == kBuckets.size()) throw std::bad_alloc();
        }
        if (bucketCount_ != 0) buckets_ = std::vector<Link*>(kBuckets[next]);
        bucketCount_ = kBuckets[next];
        Link* at = std::exchange(front_.next, nullptr);
        while (at != nullptr) {
            Node& node = nodeOf(std::exchange(at, at->next));
            node.bucket = bucketOf(Hash()(node.entry.first));
            putIn(&node);
        }
    }

    void makeBuckets() {
        buckets_.resize(static_cast<std::size_t>(bucketCount_));
        for (Link* before = &front_; before->next != nullptr; before = before->next) {
            Link*& bucket = buckets_[nodeOf(before->next).bucket];
            if (bucket == nullptr) bucket = before;
        }
    }

    void destroyEntries() noexcept {
        for (Link* at = front_.next; at != nullptr; at = at->next) {
            std::destroy_at(&nodeOf(at).entry);
        }
    }

    Link front_;
    std::size_t size_ = 0;
    std::uint64_t bucketCount_ = 0;
    std::vector<Link*> buckets_;  // none at hand while there are few entries
    NodePool pool_;
};
