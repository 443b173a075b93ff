// Hash table from 32-bit ids to records: the resource tables, the client table, a client's references.
//
// Ids are handed out densely, so the bucket is the id modulo the bucket count, which never changes. The
// table owns its entries, never the records. A key may stand in it twice; lookup and removal find the
// entry inserted first. No lock of its own: its owner guards it. While a table is walked nothing may be
// removed from it. No operation throws.
#pragma once

#include "driver/state/linkedlist.h"

#include <cstdint>
#include <new>
#include <type_traits>

namespace kalix {

template <typename record>
struct hashtable_entry {
    uint32_t key;
    record* value; // never null
};

template <typename record>
struct hashtable {
    using bucket = linkedlist<hashtable_entry<record>*>;
    int32_t size; // buckets, at least 1
    bucket** buckets;
    int32_t count; // entries
};

template <typename record>
struct hashtable_iterator {
    int32_t bucket = 0;                                        // next bucket to scan
    linkedlist_node<hashtable_entry<record>*>* node = nullptr; // of the value returned last; null before the first and
                                                               // behind the last
};

// Where an entry stands, until its table changes.
template <typename record>
struct hashtable_place {
    typename hashtable<record>::bucket* bucket = nullptr;
    linkedlist_node<hashtable_entry<record>*>* node = nullptr; // null: there is none
    linkedlist_node<hashtable_entry<record>*>* predecessor = nullptr;
    record* value() const { return node ? node->data->value : nullptr; }
};

// Frees the table; null is ignored. A callback, when given, gets the value of the first entry left in a
// bucket, again and again, and must remove that value's key from this table.
template <typename record, typename function = std::nullptr_t>
void hashtable_destroy(hashtable<record>* table, function callback = nullptr)
{
    if (!table)
        return;
    for (int32_t i = 0; table->buckets && i < table->size; ++i) {
        auto* const bucket = table->buckets[i];
        if (!bucket)
            continue;
        if constexpr (std::is_null_pointer_v<function>)
            for (const auto* node = bucket->head; node; node = node->next)
                delete node->data;
        else
            while (bucket->head)
                callback(bucket->head->data->value);
        linkedlist_destroy(bucket);
        table->buckets[i] = nullptr;
    }
    delete[] table->buckets;
    delete table;
}

// A new, empty table; null for fewer than 1 bucket or lack of memory.
template <typename record>
hashtable<record>* hashtable_create(int32_t bucket_count)
{
    if (bucket_count < 1)
        return nullptr;
    auto* const table = new (std::nothrow) hashtable<record>{bucket_count, nullptr, 0};
    if (!table)
        return nullptr;
    table->buckets = new (std::nothrow) typename hashtable<record>::bucket* [static_cast<uint32_t>(bucket_count)] {};
    if (!table->buckets) {
        delete table;
        return nullptr;
    }
    for (int32_t i = 0; i < bucket_count; ++i) {
        table->buckets[i] = linkedlist_create<hashtable_entry<record>*>();
        if (!table->buckets[i]) {
            table->size = i + 1; // the failed bucket is null, which destruction takes as empty
            hashtable_destroy(table);
            return nullptr;
        }
    }
    return table;
}

// 0, or 1 for a null table, a null value or lack of memory; then nothing has changed.
template <typename record>
int32_t hashtable_insert(hashtable<record>* table, uint32_t key, std::type_identity_t<record>* value)
{
    if (!table || !value)
        return 1;
    auto* const entry = new (std::nothrow) hashtable_entry<record>{key, value};
    if (!entry)
        return 1;
    if (linkedlist_insert_tail(table->buckets[key % static_cast<uint32_t>(table->size)], entry) != 0) {
        delete entry;
        return 1;
    }
    ++table->count;
    return 0;
}

// The place of the first entry with the key: for whoever looks at a record and then may remove it.
template <typename record>
hashtable_place<record> hashtable_find(const hashtable<record>* table, uint32_t key)
{
    if (!table)
        return {};
    hashtable_place<record> place{table->buckets[key % static_cast<uint32_t>(table->size)]};
    for (place.node = place.bucket->head; place.node; place.predecessor = place.node, place.node = place.node->next)
        if (place.node->data->key == key)
            return place;
    return {};
}

// Removes the entry at a place that was found since the table changed last; 1 when there is none.
template <typename record>
int32_t hashtable_remove_at(hashtable<record>* table, const hashtable_place<record>& place)
{
    if (!place.node)
        return 1;
    delete place.node->data;
    --table->count;
    return linkedlist_remove_node(place.bucket, place.node, place.predecessor);
}

// Removes the first entry with the key; 1 when there is none.
template <typename record>
int32_t hashtable_remove(hashtable<record>* table, uint32_t key)
{
    return hashtable_remove_at(table, hashtable_find(table, key));
}

// The value of the first entry with the key, or null.
template <typename record>
record* hashtable_get(const hashtable<record>* table, uint32_t key)
{
    return hashtable_find(table, key).value();
}

// An iterator before the first entry, or null when memory runs out; to be destroyed by the caller. One on the
// stack does as well.
template <typename record>
hashtable_iterator<record>* hashtable_iterator_create()
{
    return new (std::nothrow) hashtable_iterator<record>{};
}

template <typename record>
void hashtable_iterator_destroy(hashtable_iterator<record>* iterator)
{
    delete iterator;
}

// The next value, buckets in increasing order and each from its oldest entry; null at the end.
template <typename record>
record* hashtable_iterate(const hashtable<record>* table, hashtable_iterator<record>* iterator)
{
    if (!table || !iterator)
        return nullptr;
    if (iterator->node)
        iterator->node = iterator->node->next;
    while (!iterator->node && iterator->bucket < table->size)
        iterator->node = table->buckets[iterator->bucket++]->head;
    return iterator->node ? iterator->node->data->value : nullptr;
}

// 1 for a table without entries, and for a null table.
template <typename record>
int32_t hashtable_is_empty(const hashtable<record>* table)
{
    return !table || table->count == 0;
}

} // namespace kalix
