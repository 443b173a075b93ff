// Hash table from 32-bit ids to pointers: the resource tables, the client table, a client's references.
//
// Ids are handed out densely, so the bucket is the id modulo the bucket count, which never changes. The
// table owns its entries, never the values. A key may stand in it twice; lookup and removal find the
// entry inserted first. No lock of its own: its owner guards it. While an iterator walks a table nothing
// may be removed from it.
#pragma once

#include "driver/state/linkedlist.h"

#include <cstdint>

namespace kalix {

struct hashtable {
    int32_t size; // buckets, at least 1
    linkedlist** buckets;
    int32_t count; // entries
};

struct hashtable_entry {
    uint32_t key;
    void* value; // never null
};

struct hashtable_iterator {
    int32_t bucket;        // next bucket to scan
    linkedlist_node* node; // of the value returned last; null before the first and behind the last
};

// A new, empty table; null for fewer than 1 bucket or lack of memory.
hashtable* hashtable_create(int32_t bucket_count);

// Frees the table; null is ignored. A callback, when given, gets the value of the first entry left in a
// bucket, again and again, and must remove that value's key from this table.
void hashtable_destroy(hashtable* table, void (*callback)(void* value));

// 0, or 1 for a null table, a null value or lack of memory; then nothing has changed.
int32_t hashtable_insert(hashtable* table, uint32_t key, void* value);

// Removes the first entry with the key; 1 when there is none.
int32_t hashtable_remove(hashtable* table, uint32_t key);

// The value of the first entry with the key, or null.
void* hashtable_get(const hashtable* table, uint32_t key);

// An iterator before the first entry, or null when memory runs out; to be destroyed by the caller.
hashtable_iterator* hashtable_iterator_create();
void hashtable_iterator_destroy(hashtable_iterator* iterator);

// The next value, buckets in increasing order and each from its oldest entry; null at the end.
void* hashtable_iterate(const hashtable* table, hashtable_iterator* iterator);

// 1 for a table without entries, and for a null table.
int32_t hashtable_is_empty(const hashtable* table);

} // namespace kalix
