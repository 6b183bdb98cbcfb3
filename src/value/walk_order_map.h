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
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

/// `Hash` gives 64 bits. `Hash` and `Equal` take keys and whatever else is looked up.
template <class Key, class Value, class Hash, class Equal>
class WalkOrderMap {
    struct Link {
        Link* next = nullptr;
    };
    struct Node : Link {
        template <class Entry>
        Node(std::uint32_t ownBucket, std::uint32_t ownTag, Entry&& made)
            : bucket(ownBucket), tag(ownTag), entry(std::forward<Entry>(made)) {}

        std::uint32_t bucket;
        std::uint32_t tag;  // of the hash, what the bucket does not tell
        std::pair<const Key, Value> entry;
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
    using iterator = Iterator<std::pair<const Key, Value>>;
    using const_iterator = Iterator<const std::pair<const Key, Value>>;

    WalkOrderMap() = default;
    WalkOrderMap(const WalkOrderMap& other)
        : bucketCount_(other.bucketCount_), buckets_(other.buckets_.size()) {
        Link* last = &front_;
        try {
            pool_.reserve(other.size_);
            for (Link* at = other.front_.next; at != nullptr; at = at->next) {
                const Node& node = nodeOf(at);
                last->next = new (pool_.take()) Node(node.bucket, node.tag, node.entry);
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
        Node* const node = new (pool_.take())
            Node(bucketOf(hash), tagOf(hash), std::pair<const Key, Value>(key, Value()));
        putIn(node);
        ++size_;
        return {iterator(node), true};
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
        std::pair<Key, Value> entry(node.entry.first, std::move(node.entry.second));
        node.~Node();
        pool_.giveBack(&node);
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

    /// Room for nodes, a few at a time.
    class NodePool {
    public:
        NodePool() = default;
        NodePool(NodePool&& other) noexcept
            : chunks_(std::exchange(other.chunks_, nullptr)),
              next_(std::exchange(other.next_, nullptr)),
              end_(std::exchange(other.end_, nullptr)),
              free_(std::exchange(other.free_, nullptr)),
              size_(std::exchange(other.size_, 0)) {}
        NodePool& operator=(NodePool&&) = delete;
        NodePool(const NodePool&) = delete;
        NodePool& operator=(const NodePool&) = delete;
        ~NodePool() { clear(); }

        /// Room for one node.
        [[nodiscard]] void* take() {
            if (free_ != nullptr) return std::exchange(free_, free_->next);
            if (next_ == end_) reserve(size_ < kLargest ? 2 * size_ : std::size_t{kLargest});
            return next_++;
        }
        /// The room of a node that has been destroyed.
        void giveBack(void* room) noexcept { free_ = new (room) Free{free_}; }
        /// Makes sure that there is room for `count` in one piece, which is used next.
        void reserve(std::size_t count) {
            if (count < kSmallest) count = kSmallest;
            auto* const chunk =
                static_cast<Chunk*>(::operator new(sizeof(Chunk) + count * sizeof(Room)));
            chunk->next = chunks_;
            chunks_ = chunk;
            next_ = reinterpret_cast<Room*>(chunk + 1);
            end_ = next_ + count;
            size_ += count;
        }
        void clear() noexcept {
            while (chunks_ != nullptr) ::operator delete(std::exchange(chunks_, chunks_->next));
            next_ = end_ = nullptr;
            free_ = nullptr;
            size_ = 0;
        }

    private:
        static constexpr std::size_t kSmallest = 4;
        static constexpr std::size_t kLargest = 1024;

        struct Chunk {
            Chunk* next;
            std::uint64_t alignment;
        };
        struct Free {
            Free* next;
        };
        struct alignas(Node) Room {
            std::array<std::byte, sizeof(Node)> bytes;
        };
        static_assert(sizeof(Chunk) % alignof(Node) == 0);

        Chunk* chunks_ = nullptr;
        Room* next_ = nullptr;
        Room* end_ = nullptr;
        Free* free_ = nullptr;
        std::size_t size_ = 0;  // rooms in all chunks
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
        for (Link* at = front_.next; at != nullptr;) nodeOf(std::exchange(at, at->next)).~Node();
    }

    Link front_;
    std::size_t size_ = 0;
    std::uint64_t bucketCount_ = 0;
    std::vector<Link*> buckets_;  // none at hand while there are few entries
    NodePool pool_;
};
