// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The ORV authors
/// Singly linked lists for keys that mostly arrive in ascending order.
///
///     SortList<unsigned long, PairItem<unsigned long, unsigned long>,
///              ListRemover<PairItem<unsigned long, unsigned long>>> list;
///     list.insert(3, 30);
///     list.insert(5, 50);                    // starts at the last insertion: no walk
///     auto* item = list.find(3);             // item->value == 30
///
/// No lock: whoever owns a list guards it.
#pragma once

#include <memory>
#include <utility>

namespace ORV_3_30 {

/// Deletes every node with the list.
template <typename Item> struct ListRemover {
    static void remove(Item* head) {
        while (head != nullptr) {
            Item* const next = head->next;
            delete head;
            head = next;
        }
    }
};

/// Leaves the nodes alone: they belong to someone else.
template <typename Item> struct FakeRemover {
    static void remove(Item* /*head*/) {}
};

template <typename K> struct ListTypeItem {
    explicit ListTypeItem(K k) : key(k) {}
    ListTypeItem* next = nullptr;
    K key;
};

template <typename K, typename V> struct PairItem {
    PairItem(K k, V v) : key(k), value(v) {}
    PairItem* next = nullptr;
    K key;
    V value;
};

/// Points to a T, whose own `K key() const` is the key.
template <typename T, typename K> struct ListPtrItem {
    explicit ListPtrItem(T* t) : key(t->key()), object(t) {}
    ListPtrItem* next = nullptr;
    K key;
    T* object;
};

/// What a node is sorted by. Node types that name it otherwise have an overload of their own.
template <typename Item> auto const& keyOf(Item const& item) { return item.key; }

template <typename Item, typename Remover> class ChainedList {
public:
    ChainedList() = default;
    virtual ~ChainedList() { Remover::remove(m_head); }
    ChainedList(ChainedList const&) = delete;
    ChainedList& operator=(ChainedList const&) = delete;

    Item* head() const { return m_head; }
    /// The node last inserted; null in an empty list.
    Item* cursor() const { return m_cursor; }

    /// Adds a node behind the cursor, that is, in arrival order if all nodes come this way.
    void append(Item* item) { link(m_cursor, item); }

protected:
    /// Links a node behind another, or at the head, and makes it the cursor.
    void link(Item* previous, Item* item) {
        Item*& slot = previous != nullptr ? previous->next : m_head;
        item->next = slot;
        slot = item;
        m_cursor = item;
    }

private:
    Item* m_head = nullptr;
    Item* m_cursor = nullptr;
};

/// Ascending by key, each key once.
template <typename K, typename Item, typename Remover> class SortList : public ChainedList<Item, Remover> {
public:
    /// Makes a node from key and the further arguments. Null if the key is there: nothing changes.
    template <typename... Args> Item* insert(K const& key, Args&&... args) {
        Item* previous = nullptr;
        if (!findPlace(key, previous)) {
            return nullptr;
        }
        auto item = std::make_unique<Item>(key, std::forward<Args>(args)...);
        this->link(previous, item.get());
        return item.release();
    }

    /// Puts in a node that exists. False if its key is there: the node is then not taken.
    bool insertItem(Item* item) {
        Item* previous = nullptr;
        if (!findPlace(keyOf(*item), previous)) {
            return false;
        }
        this->link(previous, item);
        return true;
    }

    Item* find(K const& key) const {
        for (Item* item = this->head(); item != nullptr && !(key < keyOf(*item)); item = item->next) {
            if (!(keyOf(*item) < key)) {
                return item;
            }
        }
        return nullptr;
    }

protected:
    /// The node that a new one goes behind, null for the head. False if the key is there.
    bool findPlace(K const& key, Item*& previous) const {
        Item* const cursor = this->cursor();
        bool const fromCursor = cursor != nullptr && keyOf(*cursor) < key;
        previous = fromCursor ? cursor : nullptr;
        Item* item = fromCursor ? cursor->next : this->head();
        while (item != nullptr && keyOf(*item) < key) {
            previous = item;
            item = item->next;
        }
        return item == nullptr || key < keyOf(*item);
    }
};

/// Ascending by a key of the objects, which it does not own. Objects of the same key all stay, the
/// one inserted later in front.
template <typename K, typename T> class SortPtrList
    : public SortList<K, ListPtrItem<T, K>, ListRemover<ListPtrItem<T, K>>> {
public:
    void insert(T* object) {
        auto* const item = new ListPtrItem<T, K>(object);
        ListPtrItem<T, K>* previous = nullptr;
        this->findPlace(item->key, previous);
        this->link(previous, item);
    }
};

} // namespace ORV_3_30
