#include "driver/state/linkedlist.h"

#include <new>

namespace kalix {

linkedlist* linkedlist_create()
{
    return new (std::nothrow) linkedlist{};
}

void linkedlist_destroy(linkedlist* list)
{
    if (!list)
        return;
    while (list->head)
        linkedlist_remove_node(list, list->head, nullptr);
    delete list;
}

int32_t linkedlist_insert_tail(linkedlist* list, uintptr_t value)
{
    if (!list || value == 0)
        return 1;
    auto* const node = new (std::nothrow) linkedlist_node{value, nullptr};
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

int32_t linkedlist_remove(linkedlist* list, uintptr_t value)
{
    if (!list || value == 0)
        return 1;
    linkedlist_node* predecessor = nullptr;
    for (linkedlist_node* node = list->head; node; predecessor = node, node = node->next)
        if (node->data == value)
            return linkedlist_remove_node(list, node, predecessor);
    return 1;
}

int32_t linkedlist_remove_node(linkedlist* list, linkedlist_node* node, linkedlist_node* predecessor)
{
    if (!list || !list->head || !node)
        return 1;
    if (node == list->head)
        list->head = node->next;
    else
        predecessor->next = node->next;
    if (node == list->tail)
        list->tail = predecessor;
    --list->count;
    delete node;
    return 0;
}

int32_t linkedlist_is_empty(const linkedlist* list)
{
    return list && !list->head;
}

uintptr_t linkedlist_pop_first(linkedlist* list)
{
    if (!list->head)
        return 0;
    const uintptr_t value = list->head->data;
    linkedlist_remove_node(list, list->head, nullptr);
    return value;
}

} // namespace kalix
