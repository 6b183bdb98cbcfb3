// A hash map that is walked in the order in which the standard library of the programs walks its
// own one, for builds with another library: scripts see the order of their tables.
//
// 1. All entries stand in one list, those of a bucket side by side. A bucket knows the entry in
// front
//    of its first one.
// 2. An entry goes to the front of its bucket; the first one of a bucket goes to the front of the
//    list.
// 3. The buckets grow before an entry would be one more than there are buckets, to the numbers
// below.
//    The entries are put into the new ones in the order of the list, each by rule 2.
// 4. Nothing is made smaller: neither by removing entries nor by removing all.
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
        explicit Node(const Key& key, std::uint64_t keyHash) : entry(key, Value()), hash(keyHash) {}
        Node(const std::pair<const Key, Value>& copied, std::uint64_t keyHash)
            : entry(copied), hash(keyHash) {}
        std::pair<const Key, Value> entry;
        std::uint64_t hash;
    };

    template <class Entry>
    class Iterator {
    public:
        Iterator() = default;
        explicit Iterator(Link* at) : at_(at) {}
        // NOLINTNEXTLINE: as the standard iterators do.
        operator Iterator<const Entry>() const { return Iterator<const Entry>(at_); }
        Entry& operator*() const { return static_cast<Node*>(at_)->entry; }
        Entry* operator->() const { return &static_cast<Node*>(at_)->entry; }
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
    WalkOrderMap(const WalkOrderMap& other) : buckets_(other.buckets_.size()), size_(other.size_) {
        Link* last = &front_;
        try {
            for (Link* at = other.front_.next; at != nullptr; at = at->next) {
                const Node& node = static_cast<const Node&>(*at);
                last->next = new Node(node.entry, node.hash);
                Link*& bucket = bucketOf(node.hash);
                if (bucket == nullptr) bucket = last;
                last = last->next;
            }
        } catch (...) {
            clear();
            throw;
        }
    }
    WalkOrderMap(WalkOrderMap&& other) noexcept
        : front_(std::exchange(other.front_, {})),
          buckets_(std::exchange(other.buckets_, {})),
          size_(std::exchange(other.size_, 0)) {
        if (front_.next != nullptr) bucketOf(hashOf(front_.next)) = &front_;
    }
    WalkOrderMap& operator=(const WalkOrderMap&) = delete;
    ~WalkOrderMap() { clear(); }

    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] float max_load_factor() const { return 1.0F; }

    [[nodiscard]] iterator begin() { return iterator(front_.next); }
    [[nodiscard]] iterator end() { return iterator(); }
    [[nodiscard]] const_iterator begin() const { return const_iterator(front_.next); }
    [[nodiscard]] const_iterator end() const { return const_iterator(); }

    template <class Sought>
    [[nodiscard]] iterator find(const Sought& key) {
        Link* const before = linkBefore(key, Hash()(key));
        return iterator(before != nullptr ? before->next : nullptr);
    }
    template <class Sought>
    [[nodiscard]] const_iterator find(const Sought& key) const {
        return const_cast<WalkOrderMap*>(this)->find(key);
    }

    /// The entry of `key`, made with an empty value if it is not there, and whether it was made.
    std::pair<iterator, bool> try_emplace(const Key& key) {
        const std::uint64_t hash = Hash()(key);
        if (Link* const before = linkBefore(key, hash)) return {iterator(before->next), false};
        std::unique_ptr<Node> node = std::make_unique<Node>(key, hash);
        if (size_ == buckets_.size()) grow();
        Link*& bucket = bucketOf(hash);
        if (bucket != nullptr) {
            node->next = bucket->next;
            bucket->next = node.get();
        } else {
            putInFront(node.get(), bucket);
        }
        ++size_;
        return {iterator(node.release()), true};
    }

    /// Takes an entry out. It lasts as long as what is given back.
    [[nodiscard]] auto extract(iterator at) {
        std::unique_ptr<Node> node(static_cast<Node*>(at.at_));
        Link*& bucket = bucketOf(node->hash);
        Link* before = bucket;
        while (before->next != node.get()) before = before->next;
        Link* const next = node->next;
        Link** const bucketOfNext = next != nullptr ? &bucketOf(hashOf(next)) : nullptr;
        before->next = next;
        if (bucketOfNext != &bucket) {
            // It was the last one of its bucket: the next one begins behind what was before it.
            if (bucketOfNext != nullptr) *bucketOfNext = before;
            if (bucket == before) bucket = nullptr;
        }
        --size_;
        return node;
    }

    void clear() noexcept {
        while (front_.next != nullptr) {
            const std::unique_ptr<Node> first(static_cast<Node*>(front_.next));
            front_.next = first->next;
        }
        for (Link*& bucket : buckets_) bucket = nullptr;
        size_ = 0;
    }

private:
    [[nodiscard]] static std::uint64_t hashOf(const Link* link) {
        return static_cast<const Node*>(link)->hash;
    }
    [[nodiscard]] Link*& bucketOf(std::uint64_t hash) {
        return buckets_[static_cast<std::size_t>(hash % buckets_.size())];
    }

    /// The link in front of the entry of `key`, or null if there is none.
    template <class Sought>
    [[nodiscard]] Link* linkBefore(const Sought& key, std::uint64_t hash) {
        if (buckets_.empty()) return nullptr;
        Link* const& bucket = bucketOf(hash);
        if (bucket == nullptr) return nullptr;
        for (Link* before = bucket; before->next != nullptr; before = before->next) {
            const Node& node = static_cast<const Node&>(*before->next);
            if (node.hash == hash && Equal()(key, node.entry.first)) return before;
            if (&bucketOf(node.hash) != &bucket) break;
        }
        return nullptr;
    }

    /// Puts `node` in front of all, as the first one of `bucket`.
    void putInFront(Node* node, Link*& bucket) {
        node->next = front_.next;
        if (front_.next != nullptr) bucketOf(hashOf(front_.next)) = node;
        front_.next = node;
        bucket = &front_;
    }

    void grow() {
        static constexpr std::array<std::uint32_t, 28> kBuckets = {
            13,       29,        59,        127,       257,       541,        1109,
            2357,     5087,      10273,     20753,     42043,     85229,      172933,
            351061,   712697,    1447153,   2938679,   5967347,   12117689,   24607243,
            49969847, 101473717, 206062531, 418451333, 849749479, 1725587117, 3504151727};
        std::size_t next = 0;
        while (kBuckets[next] <= buckets_.size()) {
            if (++next == kBuckets.size()) throw std::bad_alloc();
        }
        buckets_ = std::vector<Link*>(kBuckets[next]);
        Link* at = std::exchange(front_.next, nullptr);
        while (at != nullptr) {
            Node* const node = static_cast<Node*>(std::exchange(at, at->next));
            Link*& bucket = bucketOf(node->hash);
            if (bucket != nullptr) {
                node->next = bucket->next;
                bucket->next = node;
            } else {
                putInFront(node, bucket);
            }
        }
    }

    Link front_;
    std::vector<Link*> buckets_;
    std::size_t size_ = 0;
};
