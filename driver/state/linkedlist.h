// Singly linked list of pointer-sized values: the work queue, every hash bucket, a client's retained ids.
//
// The list owns its record and its nodes, never the values; zero is not a value, so that it can mean
// "nothing". The records are open: callers walk from head along next. No lock of its own: whoever owns
// the structure that a list belongs to guards it. Results are 0 for success and 1 for failure.
#pragma once

#include <cstdint>

namespace kalix {

struct linkedlist_node {
    uintptr_t data;        // never zero
    linkedlist_node* next; // null at the tail
};

struct linkedlist {
    linkedlist_node* head; // head and tail are both null or both not
    linkedlist_node* tail;
    int32_t count;
};

// A new, empty list, or null when memory runs out.
linkedlist* linkedlist_create();

// Frees every node and the list; the values stay with their owner. Null is ignored.
void linkedlist_destroy(linkedlist* list);

// Appends a value; 1 for a null list, a zero value or lack of memory, and then nothing has changed.
int32_t linkedlist_insert_tail(linkedlist* list, uintptr_t value);

// Removes the first node that holds the value; 1 when there is none.
int32_t linkedlist_remove(linkedlist* list, uintptr_t value);

// Unlinks and frees a node whose predecessor (null for the head) the caller knows from its walk.
int32_t linkedlist_remove_node(linkedlist* list, linkedlist_node* node, linkedlist_node* predecessor);

// 1 for a list without nodes; 0 otherwise, also for a null list.
int32_t linkedlist_is_empty(const linkedlist* list);

// Takes the first value out; 0 when the list is empty.
uintptr_t linkedlist_pop_first(linkedlist* list);

} // namespace kalix
