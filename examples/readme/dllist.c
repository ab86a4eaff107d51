#include <orvutil/dllist.h>
#include <stdio.h>

int main(void)
{
    DLList *list = DLL_Create();
    DLL_Append(list, "b");
    DLL_InsertSortUnique(list, "a", DLL_AlphaSort, 1);  /* goes before "b" */
    int err;
    for (DLL_SetToBeginningOfList(list); !DLL_EmptyOrLastOfList(list);)
        puts(DLL_GetNext(list, &err));                 /* a, then b */
    DLL_Free(list);                                   /* objects stay the caller's */
    return 0;
}
