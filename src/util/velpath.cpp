#include <vellib/velpath.h>

#include <cstddef>
#include <cstring>

#include <vellib/veldir.h>
#include <vellib/vellist.h>
#include <vellib/velmalloc.h>
#include <vellib/velstrdup.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "util/velpath"

struct velpathitem {
    velpathitem *next; /* first two fields: the link of a vel_list */
    velpathitem *prev;
    char *name; /* owned, never empty, without a slash */
};

struct velpath {
    vel_list *list; /* of velpathitem */
    char *rendered; /* owned; NULL until it is asked for */
};

static void vel_path_drop_rendered(velpath *velpath)
{
    if (velpath->rendered)
        vel_free(velpath->rendered);
    velpath->rendered = nullptr;
}

static void vel_path_remove_item(velpath *velpath, velpathitem *item)
{
    VEL_LIST_REMOVE(velpath->list, item);
    vel_free(item->name);
    vel_free(item);
}

velpath *vel_path_create(void)
{
    auto *velpath = static_cast<struct velpath *>(vel_cmalloc(sizeof(struct velpath)));
    if (!velpath) {
        VEL_LOG(7, "not enough memory for velpath context");
        return nullptr;
    }
    velpath->list = vel_list_create();
    if (!velpath->list) {
        VEL_LOG(7, "not enough memory for velpath list");
        vel_path_destroy(velpath);
        return nullptr;
    }
    return velpath;
}

void vel_path_destroy(velpath *velpath)
{
    VEL_ASSERT(velpath != NULL);

    if (velpath->list) {
        vel_path_clear(velpath);
        vel_list_destroy(velpath->list);
    }
    vel_free(velpath);
}

/* The slash is refused whatever separates directories on the platform. */
static bool vel_path_is_component(const char *name)
{
    if (strchr(name, '/')) {
        VEL_LOG(6, "path component '%s' must not contain a slash", name);
        return false;
    }
    if (name[0] == '\0') {
        VEL_LOG(6, "path component cannot be empty");
        return false;
    }
    return true;
}

int vel_path_append(velpath *velpath, const char *name)
{
    VEL_ASSERT(velpath != NULL);
    VEL_ASSERT(name != NULL);

    if (!vel_path_is_component(name))
        return -1;
    auto *item = static_cast<velpathitem *>(vel_cmalloc(sizeof(velpathitem)));
    if (!item) {
        VEL_LOG(7, "not enough memory for path item");
        return -1;
    }
    item->name = vel_strdup(name);
    if (!item->name) {
        VEL_LOG(7, "not enough memory for path item name");
        vel_free(item);
        return -1;
    }
    VEL_LIST_ADD_TAIL(velpath->list, item);
    vel_path_drop_rendered(velpath);
    return 0;
}

/* Joins the names into a buffer of len bytes, or only counts. Returns the length without the NUL. */
static size_t vel_path_join(const velpath *velpath, char *buffer, size_t len)
{
    const char separator = vel_dir_separator();
    size_t count = 0;

    for (auto *item = static_cast<const velpathitem *>(velpath->list->head); item;
         item = item->next) {
        VEL_ASSERT(item->name != NULL);
        const size_t itemlen = strlen(item->name);
        if (item->prev) {
            if (buffer) {
                VEL_ASSERT(count + 1 < len);
                buffer[count] = separator;
            }
            count++;
        }
        if (buffer) {
            VEL_ASSERT(count + itemlen < len);
            memcpy(buffer + count, item->name, itemlen);
        }
        count += itemlen;
    }
    if (buffer) {
        VEL_ASSERT(count + 1 == len);
        buffer[count] = '\0';
    }
    return count;
}

static char *vel_path_render(const velpath *velpath)
{
    const size_t len = vel_path_join(velpath, nullptr, 0) + 1;
    auto *buffer = static_cast<char *>(vel_malloc(len));
    if (!buffer) {
        VEL_LOG(7, "not enough memory for rendering the path");
        return nullptr;
    }
    (void)vel_path_join(velpath, buffer, len);
    return buffer;
}

char *vel_path_get(velpath *velpath)
{
    VEL_ASSERT(velpath != NULL);

    const char *rendered = vel_path_peek(velpath);
    if (!rendered)
        return nullptr;
    char *copy = vel_strdup(rendered);
    if (!copy)
        VEL_LOG(7, "not enough memory for making a duplicate of the path");
    return copy;
}

const char *vel_path_peek(velpath *velpath)
{
    VEL_ASSERT(velpath != NULL);

    if (!velpath->rendered)
        velpath->rendered = vel_path_render(velpath);
    return velpath->rendered;
}

void vel_path_clear(velpath *velpath)
{
    VEL_ASSERT(velpath != NULL);

    vel_path_drop_rendered(velpath);
    while (auto *item = static_cast<velpathitem *>(velpath->list->head))
        vel_path_remove_item(velpath, item);
}

int vel_path_remove_last(velpath *velpath)
{
    VEL_ASSERT(velpath != NULL);

    auto *item = static_cast<velpathitem *>(velpath->list->tail);
    if (!item) {
        VEL_LOG(6, "the path is empty, unable to remove the last item");
        return -1;
    }
    vel_path_remove_item(velpath, item);
    vel_path_drop_rendered(velpath);
    return 0;
}
