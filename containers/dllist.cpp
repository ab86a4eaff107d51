// Doubly linked list of object pointers with a cursor.
#include "orvutil/dllist.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

std::atomic<int> tlTotalCount{0};

void set_err(int *err, int value) {
    if (err != nullptr) *err = value;
}

bool cursor_valid(const DLList *list) {
    return list->count > 0 && list->position >= 0 && list->position < list->count && list->cursor != nullptr;
}

void release_record(DLList *list) {
    std::free(list);
    --tlTotalCount;
}

}  // namespace

extern "C" {

DLLink *DLL_CreateLink(void *object) noexcept {
    auto *link = static_cast<DLLink *>(std::calloc(1, sizeof(DLLink)));
    if (link == nullptr) {
        std::perror("DLLink constructor: malloc");
        return nullptr;
    }
    link->object = object;
    return link;
}

DLList *DLL_Create(void) noexcept {
    auto *list = static_cast<DLList *>(std::calloc(1, sizeof(DLList)));
    if (list == nullptr) {
        std::perror("DLList constructor: malloc");
        return nullptr;
    }
    list->position = -1;
    ++tlTotalCount;
    return list;
}

void DLL_SetStdFreeProc(DLList *list, DLL_FreeProc proc) noexcept {
    if (list != nullptr) list->stdFreeProc = proc;
}

int DLL_ClearAll(DLList *list, DLL_FreeProc freeProc) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    DLLink *link = list->head;
    while (link != nullptr) {
        DLLink *next = link->next;
        if (freeProc != nullptr && link->object != nullptr) freeProc(link->object);
        std::free(link);
        link = next;
    }
    list->head = list->tail = list->cursor = nullptr;
    list->count = 0;
    list->position = -1;
    return 0;
}

int DLL_Clear(DLList *list) noexcept { return DLL_ClearAll(list, nullptr); }

int DLL_ClearNumEntries(DLList *list, DLL_FreeProc freeProc, int n) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    DLLink *link = list->head;
    for (int i = 0; i < n && link != nullptr; ++i) {
        DLLink *next = link->next;
        if (freeProc != nullptr && link->object != nullptr) freeProc(link->object);
        std::free(link);
        --list->count;
        link = next;
    }
    if (link != nullptr) {
        link->prev = nullptr;
        list->head = list->cursor = link;
    } else {
        list->head = list->tail = list->cursor = nullptr;
        list->count = 0;
    }
    list->position = -1;
    return 0;
}

int DLL_Free(DLList *list) noexcept { return DLL_FreeAll(list, nullptr); }

int DLL_FreeAll(DLList *list, DLL_FreeProc freeProc) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    const int result = DLL_ClearAll(list, freeProc);
    release_record(list);
    return result;
}

int DLL_SlowlyFreeAll(DLList *list, DLL_FreeProc freeProc, int n) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    if (list->count > 0) {
        const int result = DLL_ClearNumEntries(list, freeProc, n < 1 ? 1 : n);
        if (result != 0) return result;
        if (list->count > 0) return 0;
    }
    release_record(list);
    return DLL_SLOWLY_FREED;
}

int DLL_SetToBeginningOfList(DLList *list) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    list->position = -1;
    list->cursor = nullptr;
    return 0;
}

int DLL_SetToEndOfList(DLList *list) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    list->position = list->count > 0 ? list->count : -1;
    list->cursor = nullptr;
    return 0;
}

int DLL_SetToFirstOfList(DLList *list) noexcept {
    if (list == nullptr || list->count == 0) return DLL_E_FAIL;
    return DLL_SetToPosition(list, 0);
}

int DLL_SetToLastOfList(DLList *list) noexcept {
    if (list == nullptr || list->count == 0) return DLL_E_FAIL;
    return DLL_SetToPosition(list, list->count - 1);
}

int DLL_SetToPosition(DLList *list, int pos) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    if (pos < 0) return DLL_SetToBeginningOfList(list);
    if (pos >= list->count) return DLL_SetToEndOfList(list);
    if (pos == list->position) return 0;
    // Positions are in 0..count, so these differences cannot overflow.
    const int fromCursor = pos > list->position ? pos - list->position : list->position - pos;
    const int fromEnd = list->count - pos;
    if (list->cursor != nullptr && fromCursor < pos && fromCursor < fromEnd) {
        while (list->position > pos) {
            list->cursor = list->cursor->prev;
            --list->position;
        }
        while (list->position < pos) {
            list->cursor = list->cursor->next;
            ++list->position;
        }
    } else if (fromEnd < pos) {
        list->cursor = list->tail;
        list->position = list->count - 1;
        while (list->position > pos) {
            list->cursor = list->cursor->prev;
            --list->position;
        }
    } else {
        list->cursor = list->head;
        list->position = 0;
        while (list->position < pos) {
            list->cursor = list->cursor->next;
            ++list->position;
        }
    }
    return 0;
}

int DLL_BeginningOfList(const DLList *list) noexcept {
    return list == nullptr || list->count == 0 || list->position < 0;
}

int DLL_FirstOfList(const DLList *list) noexcept { return list != nullptr && list->position == 0 && list->count > 0; }

int DLL_EmptyOrFirstOfList(const DLList *list) noexcept {
    return list != nullptr && (list->position == 0 || list->count == 0);
}

int DLL_EndOfList(const DLList *list) noexcept {
    return list == nullptr || list->count == 0 || list->position >= list->count;
}

int DLL_LastOfList(const DLList *list) noexcept {
    return list != nullptr && list->position == list->count - 1 && list->count > 0;
}

int DLL_EmptyOrLastOfList(const DLList *list) noexcept {
    return list != nullptr && (list->position == list->count - 1 || list->count == 0);
}

int DLL_GetTotalCount(void) noexcept { return tlTotalCount.load(); }

void *DLL_Get(DLList *list, int *err) noexcept {
    if (list == nullptr || !cursor_valid(list)) {
        set_err(err, 1);
        return nullptr;
    }
    set_err(err, 0);
    return list->cursor->object;
}

void *DLL_GetPos(DLList *list, int pos, int *err) noexcept {
    DLL_SetToPosition(list, pos);
    return DLL_Get(list, err);
}

void *DLL_GetNext(DLList *list, int *err) noexcept {
    if (list == nullptr || list->position >= list->count - 1) {
        set_err(err, 1);
        return nullptr;
    }
    DLLink *next = list->position < 0 || list->cursor == nullptr ? list->head : list->cursor->next;
    if (next == nullptr) {
        set_err(err, 1);
        return nullptr;
    }
    list->position = list->position < 0 ? 0 : list->position + 1;
    list->cursor = next;
    set_err(err, 0);
    return next->object;
}

void *DLL_GetPrev(DLList *list, int *err) noexcept {
    if (list == nullptr || list->position <= 0) {
        set_err(err, 1);
        return nullptr;
    }
    const bool pastEnd = list->position >= list->count || list->cursor == nullptr;
    DLLink *prev = pastEnd ? list->tail : list->cursor->prev;
    if (prev == nullptr) {
        set_err(err, 1);
        return nullptr;
    }
    list->position = pastEnd ? list->count - 1 : list->position - 1;
    list->cursor = prev;
    set_err(err, 0);
    return prev->object;
}

int DLL_Insert(DLList *list, void *object) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    if (list->count > 0 && list->position < 0) return DLL_E_FAIL;
    if (list->count > 0 && list->position < list->count && list->cursor == nullptr) return DLL_E_FAIL;
    DLLink *link = DLL_CreateLink(object);
    if (link == nullptr) return DLL_E_FAIL;
    if (list->count == 0) {
        list->head = list->tail = list->cursor = link;
        list->position = 0;
    } else if (list->position < list->count) {
        DLLink *at = list->cursor;
        link->next = at;
        link->prev = at->prev;
        if (at->prev != nullptr)
            at->prev->next = link;
        else
            list->head = link;
        at->prev = link;
        list->cursor = link;
    } else {
        link->prev = list->tail;
        list->tail->next = link;
        list->tail = link;
        list->cursor = link;
        list->position = list->count;
    }
    ++list->count;
    return 0;
}

int DLL_InsertPos(DLList *list, int pos, void *object) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    DLL_SetToPosition(list, pos);
    return DLL_Insert(list, object);
}

int DLL_Prepend(DLList *list, void *object) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    list->cursor = list->head;
    list->position = 0;
    return DLL_Insert(list, object);
}

int DLL_Append(DLList *list, void *object) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    list->cursor = nullptr;
    list->position = list->count;
    return DLL_Insert(list, object);
}

int DLL_DeleteAndFree(DLList *list, DLL_FreeProc freeProc) noexcept {
    if (list == nullptr || !cursor_valid(list)) return DLL_E_FAIL;
    DLLink *link = list->cursor;
    if (freeProc != nullptr && link->object != nullptr) freeProc(link->object);
    if (link->prev != nullptr) link->prev->next = link->next;
    if (link->next != nullptr) link->next->prev = link->prev;
    list->cursor = link->next;
    if (link == list->head) list->head = link->next;
    if (link == list->tail) {
        list->tail = link->prev;
        list->cursor = link->prev;
        if (list->position > 0) --list->position;
    }
    std::free(link);
    if (--list->count == 0) list->position = -1;
    return 0;
}

int DLL_Delete(DLList *list) noexcept {
    if (list == nullptr) return DLL_E_FAIL;
    return DLL_DeleteAndFree(list, list->stdFreeProc);
}

int DLL_Replace(DLList *list, void *object) noexcept {
    if (list == nullptr || !cursor_valid(list)) return DLL_E_FAIL;
    if (list->stdFreeProc != nullptr) list->stdFreeProc(list->cursor->object);
    list->cursor->object = object;
    return 0;
}

void *DLL_Apply(DLList *list, DLL_ApplyProc fn, void *arg, int keepCursor, int *err) noexcept {
    set_err(err, 0);
    if (list == nullptr || fn == nullptr) {
        set_err(err, 1);
        return nullptr;
    }
    const int saved = list->position;
    DLL_SetToBeginningOfList(list);
    void *result = nullptr;
    while (list->count > 0 && !DLL_LastOfList(list)) {
        int e = 0;
        void *object = DLL_GetNext(list, &e);
        if (e != 0) {
            set_err(err, e);
            return nullptr;
        }
        result = fn(object, arg);
        if (result != nullptr) break;
    }
    if (!keepCursor) DLL_SetToPosition(list, saved);
    return result;
}

void *DLL_PointerSearchApply(void *a, void *b) noexcept { return a == b ? a : nullptr; }

void *DLL_StringSearchApply(void *a, void *b) noexcept {
    if (a == nullptr || b == nullptr) return nullptr;
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0 ? a : nullptr;
}

int DLL_AlphaSort(void *a, void *b) noexcept {
    if (a == nullptr || b == nullptr) return (a != nullptr) - (b != nullptr);
    return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

int DLL_GetSortPosition(DLList *list, void *object, DLL_CompareProc cmp, int *pos, int *found) noexcept {
    int dummyPos;
    int dummyFound;
    if (pos == nullptr) pos = &dummyPos;
    if (found == nullptr) found = &dummyFound;
    *pos = -1;
    *found = 0;
    if (list == nullptr || cmp == nullptr) return DLL_E_FAIL;
    int low = 0;
    int high = list->count - 1;
    while (low <= high) {
        const int mid = low + (high - low) / 2;
        int err = 0;
        void *listObject = DLL_GetPos(list, mid, &err);
        if (err != 0) return err;
        const int r = cmp(listObject, object);
        if (r == 0) {
            *found = 1;
            *pos = mid;
            return 0;
        }
        if (r < 0)
            low = mid + 1;
        else
            high = mid - 1;
    }
    *pos = low;
    return 0;
}

int DLL_InsertSortUnique(DLList *list, void *object, DLL_CompareProc cmp, int unique) noexcept {
    if (list == nullptr || cmp == nullptr) return DLL_E_FAIL;
    if (list->count == 0) return DLL_Insert(list, object);
    int pos;
    int found;
    const int result = DLL_GetSortPosition(list, object, cmp, &pos, &found);
    if (result != 0) return result;
    if (found && unique) return DLL_ALREADY_PRESENT;
    return DLL_InsertPos(list, pos, object);
}

DLList *DLL_Copy(DLList *list, DLL_CopyProc copyProc) noexcept {
    if (list == nullptr) return nullptr;
    DLList *copy = DLL_Create();
    if (copy == nullptr) return nullptr;
    copy->stdFreeProc = list->stdFreeProc;
    // Walks the links directly, so the source cursor never moves.
    for (DLLink *link = list->head; link != nullptr; link = link->next) {
        void *object = link->object;
        if (object != nullptr && copyProc != nullptr) object = copyProc(object);
        if (DLL_Append(copy, object) != 0) {
            // Only copies are ours to free; shared pointers stay the source's.
            DLL_FreeProc release = copyProc != nullptr ? copy->stdFreeProc : nullptr;
            if (release != nullptr && object != nullptr) release(object);
            DLL_FreeAll(copy, release);
            return nullptr;
        }
    }
    return copy;
}

}  // extern "C"
