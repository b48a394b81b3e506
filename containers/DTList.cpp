#include "containers/DTList.h"

#include "base/nodes.h"
#include "foundation/DTMem.h"

#include <assert.h>

namespace {

static_assert(alignof(DTListNode) == 4, "as the pieces of the static pool");
static_assert(sizeof(void *) != 4 || sizeof(DTListNode) == 8, "two words on the device");

DTListNode *new_node(const DTList *list, uintptr_t value) {
    void *memory = list->free_value ? DTMem_LocalMalloc(sizeof(DTListNode))
                                    : DTMem_LocalMalloc_Static(sizeof(DTListNode));
    DTListNode *node = static_cast<DTListNode *>(memory);
    if (node) *node = {nullptr, value};
    return node;
}

// The link that holds the node at index, or the last link, which holds null.
DTListLink *link_at(DTList *list, int32_t index) {
    DTListLink *link = &list->head;
    for (; *link && index > 0; --index) link = &(*link)->next;
    return link;
}

void insert_at(DTList *list, DTListLink *link, DTListNode *node) {
    node->next = *link;
    *link = node;
    ++list->length;
}

DTListNode *unlink_at(DTList *list, DTListLink *link) {
    DTListNode *node = *link;
    assert(node);
    *link = node->next;
    --list->length;
    return node;
}

// Appends elements of value 0 until there is one at index; null without memory.
DTListNode *extend_to(DTList *list, int32_t index) {
    DTListLink *link = link_at(list, list->length);
    DTListNode *last = nullptr;
    while (list->length <= index) {
        last = new_node(list, 0);
        if (!last) return nullptr;
        insert_at(list, link, last);
        link = &last->next;
    }
    return last;
}

} // namespace

DTList *DTList_New(int32_t max_length, DTListFree free_value) {
    DTList *list = static_cast<DTList *>(DTMem_LocalMalloc(sizeof(DTList)));
    if (list) *list = {0, max_length, free_value, nullptr};
    return list;
}

int32_t DTList_Length(const DTList *list) { return list ? list->length : 0; }

int DTList_Insert(DTList *list, int32_t position, uintptr_t value) {
    DTListNode *node = list ? new_node(list, value) : nullptr;
    if (!node) return 0;
    const bool last = position >= list->length;
    insert_at(list, link_at(list, last ? list->length : position + 1), node);
    return 1;
}

int DTList_Append(DTList *list, uintptr_t value) {
    return DTList_Insert(list, DTList_Length(list), value);
}

int DTList_Push(DTList *list, uintptr_t value) {
    if (!list) return 0;
    if (list->max_length != 0 && list->length >= list->max_length) {
        const uintptr_t dropped = DTList_PopTail(list);
        if (dropped != 0 && list->free_value) list->free_value(dropped);
    }
    return DTList_Insert(list, -1, value);
}

uintptr_t DTList_Get(const DTList *list, int32_t index) {
    if (!list || !list->head || index >= list->length) return 0;
    const DTListNode *node = list->head;
    for (; index > 0; --index) node = node->next;
    return node->value;
}

uintptr_t DTList_Set(DTList *list, int32_t index, uintptr_t value) {
    if (!list || index < 0) return 0;
    const bool inside = index < list->length;
    DTListNode *node = inside ? *link_at(list, index) : extend_to(list, index);
    if (!node) return 0;
    const uintptr_t replaced = node->value;
    node->value = value;
    return replaced;
}

uintptr_t DTList_Find(const DTList *list, DTListCompare compare, uintptr_t key) {
    if (!compare) return 0;
    int32_t left = DTList_Length(list);
    for (const uintptr_t value : dt::nodes(list)) {
        if (left-- == 0) break; // what compare appended
        if (compare(value, key) == 0) return value;
    }
    return 0;
}

int32_t DTList_FindPos(const DTList *list, DTListCompare compare, uintptr_t key) {
    if (!compare) return -1;
    const int32_t length = DTList_Length(list);
    int32_t index = 0;
    for (const uintptr_t value : dt::nodes(list)) {
        if (index == length) break;
        if (compare(value, key) == 0) return index;
        ++index;
    }
    return -1;
}

uintptr_t DTList_Remove(DTList *list, int32_t index) {
    if (!list || !list->free_value || index < 0 || index >= list->length) return 0;
    DTListNode *node = unlink_at(list, link_at(list, index));
    const uintptr_t value = node->value;
    DTMem_LocalFree(node);
    return value;
}

uintptr_t DTList_PopTail(DTList *list) { return list ? DTList_Remove(list, list->length - 1) : 0; }

uintptr_t DTList_Popup(DTList *list) { return DTList_Remove(list, 0); }

// Each node is unlinked before its value is released, and the callback is read anew each time: a
// callback may use the list.
void DTList_RemoveAll(DTList *list) {
    if (!list || !list->free_value) return;
    while (list->head) {
        DTListNode *node = unlink_at(list, &list->head);
        if (node->value != 0 && list->free_value) list->free_value(node->value);
        DTMem_LocalFree(node);
    }
}

void DTList_Release(DTList *list) {
    if (!list || !list->free_value) return;
    DTList_RemoveAll(list);
    DTMem_LocalFree(list);
}
