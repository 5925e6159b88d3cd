#include <vellib/vellist.h>

#include <vellib/velmalloc.h>

vel_list *vel_list_create(void)
{
    return static_cast<vel_list *>(vel_cmalloc(sizeof(vel_list)));
}

void vel_list_destroy(vel_list *list)
{
    vel_free(list);
}

void vel_list_init(vel_list *list)
{
    list->head = nullptr;
    list->tail = nullptr;
}
