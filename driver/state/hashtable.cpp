#include "driver/state/hashtable.h"

#include <cstdint>
#include <new>

namespace kalix {
namespace {

hashtable_entry* entry_of(const linkedlist_node* node)
{
    return reinterpret_cast<hashtable_entry*>(node->data);
}

linkedlist* bucket_of(const hashtable* table, uint32_t key)
{
    return table->buckets[key % static_cast<uint32_t>(table->size)];
}

void drain_bucket(linkedlist* bucket, void (*callback)(void* value))
{
    while (bucket->head)
        callback(entry_of(bucket->head)->value);
}

void free_entries(const linkedlist* bucket)
{
    for (const linkedlist_node* node = bucket->head; node; node = node->next)
        delete entry_of(node);
}

} // namespace

hashtable* hashtable_create(int32_t bucket_count)
{
    if (bucket_count < 1)
        return nullptr;
    auto* const table = new (std::nothrow) hashtable{bucket_count, nullptr, 0};
    if (!table)
        return nullptr;
    table->buckets = new (std::nothrow) linkedlist* [static_cast<uint32_t>(bucket_count)] {};
    if (!table->buckets) {
        delete table;
        return nullptr;
    }
    for (int32_t i = 0; i < bucket_count; ++i) {
        table->buckets[i] = linkedlist_create();
        if (!table->buckets[i]) {
            table->size = i + 1; // the failed bucket is null, which destruction takes as empty
            hashtable_destroy(table, nullptr);
            return nullptr;
        }
    }
    return table;
}

void hashtable_destroy(hashtable* table, void (*callback)(void* value))
{
    if (!table)
        return;
    for (int32_t i = 0; table->buckets && i < table->size; ++i) {
        linkedlist* const bucket = table->buckets[i];
        if (!bucket)
            continue;
        if (callback)
            drain_bucket(bucket, callback);
        else
            free_entries(bucket);
        linkedlist_destroy(bucket);
        table->buckets[i] = nullptr;
    }
    delete[] table->buckets;
    delete table;
}

int32_t hashtable_insert(hashtable* table, uint32_t key, void* value)
{
    if (!table || !value)
        return 1;
    auto* const entry = new (std::nothrow) hashtable_entry{key, value};
    if (!entry)
        return 1;
    if (linkedlist_insert_tail(bucket_of(table, key), reinterpret_cast<uintptr_t>(entry)) != 0) {
        delete entry;
        return 1;
    }
    ++table->count;
    return 0;
}

int32_t hashtable_remove(hashtable* table, uint32_t key)
{
    if (!table)
        return 1;
    linkedlist* const bucket = bucket_of(table, key);
    linkedlist_node* predecessor = nullptr;
    for (linkedlist_node* node = bucket->head; node; predecessor = node, node = node->next) {
        hashtable_entry* const entry = entry_of(node);
        if (entry->key != key)
            continue;
        const int32_t result = linkedlist_remove_node(bucket, node, predecessor);
        delete entry;
        --table->count;
        return result;
    }
    return 1;
}

void* hashtable_get(const hashtable* table, uint32_t key)
{
    if (!table)
        return nullptr;
    for (const linkedlist_node* node = bucket_of(table, key)->head; node; node = node->next)
        if (entry_of(node)->key == key)
            return entry_of(node)->value;
    return nullptr;
}

hashtable_iterator* hashtable_iterator_create()
{
    return new (std::nothrow) hashtable_iterator{};
}

void hashtable_iterator_destroy(hashtable_iterator* iterator)
{
    delete iterator;
}

void* hashtable_iterate(const hashtable* table, hashtable_iterator* iterator)
{
    if (!table || !iterator)
        return nullptr;
    if (iterator->node)
        iterator->node = iterator->node->next;
    while (!iterator->node && iterator->bucket < table->size)
        iterator->node = table->buckets[iterator->bucket++]->head;
    return iterator->node ? entry_of(iterator->node)->value : nullptr;
}

int32_t hashtable_is_empty(const hashtable* table)
{
    return !table || table->count == 0;
}

} // namespace kalix
