// Singly linked list: the work queue, every hash bucket, a client's retained ids.
//
// The list owns its record and its nodes, never what the values point to; the value of zero (null) is no
// value, so that it can mean "nothing". The records are open: callers walk from head along next. No lock of
// its own: whoever owns the structure that a list belongs to guards it. No operation throws; results are 0
// for success and 1 for failure.
#pragma once

#include <cstdint>
#include <new>

namespace kalix {

template <typename value> // a pointer or an id
struct linkedlist_node {
    value data;            // never zero
    linkedlist_node* next; // null at the tail
};

template <typename value>
struct linkedlist {
    linkedlist_node<value>* head; // head and tail are both null or both not
    linkedlist_node<value>* tail;
    int32_t count;
};

// A new, empty list, or null when memory runs out.
template <typename value>
linkedlist<value>* linkedlist_create()
{
    return new (std::nothrow) linkedlist<value>{};
}

// Appends a value; 1 for a null list, a zero value or lack of memory, and then nothing has changed.
template <typename value>
int32_t linkedlist_insert_tail(linkedlist<value>* list, value data)
{
    if (!list || data == value{})
        return 1;
    auto* const node = new (std::nothrow) linkedlist_node<value>{data, nullptr};
    if (!node)
        return 1;
    if (list->head)
        list->tail->next = node;
    else
        list->head = node;
    list->tail = node;
    ++list->count;
    return 0;
}

// Unlinks and frees a node whose predecessor (null for the head) the caller knows from its walk.
template <typename value>
int32_t linkedlist_remove_node(linkedlist<value>* list, linkedlist_node<value>* node,
                               linkedlist_node<value>* predecessor)
{
    if (!list || !list->head || !node)
        return 1;
    if (predecessor)
        predecessor->next = node->next;
    else
        list->head = node->next;
    if (node == list->tail)
        list->tail = predecessor;
    --list->count;
    delete node;
    return 0;
}

// Removes the first node that holds the value; 1 when there is none.
template <typename value>
int32_t linkedlist_remove(linkedlist<value>* list, value data)
{
    if (!list || data == value{})
        return 1;
    linkedlist_node<value>* predecessor = nullptr;
    for (linkedlist_node<value>* node = list->head; node; predecessor = node, node = node->next)
        if (node->data == data)
            return linkedlist_remove_node(list, node, predecessor);
    return 1;
}

// 1 for a list without nodes; 0 otherwise, also for a null list.
template <typename value>
int32_t linkedlist_is_empty(const linkedlist<value>* list)
{
    return list && !list->head;
}

// Takes the first value out; zero when the list is empty.
template <typename value>
value linkedlist_pop_first(linkedlist<value>* list)
{
    if (!list->head)
        return value{};
    const value data = list->head->data;
    linkedlist_remove_node<value>(list, list->head, nullptr);
    return data;
}

// Frees every node and the list. Null is ignored.
template <typename value>
void linkedlist_destroy(linkedlist<value>* list)
{
    if (!list)
        return;
    while (list->head)
        linkedlist_remove_node<value>(list, list->head, nullptr);
    delete list;
}

} // namespace kalix
