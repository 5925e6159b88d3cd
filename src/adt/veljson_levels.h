#ifndef VELLIB_ADT_VELJSON_LEVELS_H
#define VELLIB_ADT_VELJSON_LEVELS_H

#include <cstring>

#include <vellib/vellimit.h>
#include <vellib/velmalloc.h>

#include "adt/veljson_internal.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

/* The containers between the root and the node in hand, for walks without recursion: who builds a
 * document may nest it as deep as memory goes. A parsed one needs no memory for this. */

struct vel_json_level {
    veljsonnode *dest; /* where the container is copied to, or NULL */
    const veljsonnode *source;
    const veljsonnode *value; /* in hand; NULL at the end */
    const char *key;          /* of an object: the value's */
    void *handle;             /* of the enumeration of an object */
};

static constexpr size_t vel_json_levels_atfirst = 100;

struct vel_json_levels {
    vel_json_level *levels;
    size_t count;
    size_t size;
    vel_json_level atfirst[vel_json_levels_atfirst];
};

static inline void vel_json_levels_begin(vel_json_levels *levels)
{
    levels->levels = levels->atfirst;
    levels->count = 0;
    levels->size = vel_json_levels_atfirst;
}

static inline void vel_json_levels_end(vel_json_levels *levels)
{
    if (levels->levels != levels->atfirst)
        vel_free(levels->levels);
}

static inline vel_json_level *vel_json_levels_top(vel_json_levels *levels)
{
    return &levels->levels[levels->count - 1];
}

static bool vel_json_levels_grow(vel_json_levels *levels)
{
    if (levels->size > vel_limit_max_size_t() / sizeof(vel_json_level) / 2)
        return false;
    vel_json_level *const old = levels->levels == levels->atfirst ? nullptr : levels->levels;
    auto *const grown =
        static_cast<vel_json_level *>(vel_realloc(old, 2 * levels->size * sizeof(vel_json_level)));
    if (!grown)
        return false;
    if (!old)
        memcpy(grown, levels->atfirst, sizeof levels->atfirst);
    levels->levels = grown;
    levels->size *= 2;
    return true;
}

static inline void vel_json_level_set_value(vel_json_level *level, const veljsonnode *valuenode)
{
    if (level->handle)
        VEL_ASSERT(valuenode != NULL);
    level->value = valuenode;
}

/* Goes down into an object or an array, to its first value. Returns false without memory, which is
 * logged. */
static bool vel_json_levels_push(vel_json_levels *levels, veljsonnode *dest,
                                 const veljsonnode *source)
{
    if (levels->count == levels->size && !vel_json_levels_grow(levels)) {
        VEL_LOG(7, "not enough memory for the levels of a JSON document");
        return false;
    }
    vel_json_level *const level = &levels->levels[levels->count++];
    level->dest = dest;
    level->source = source;
    level->value = source->children;
    if (source->nodetype == VEL_JSON_TYPE_OBJECT) {
        if (!source->chained)
            VEL_ASSERT(source->hash != NULL);
        veljsonnode *valuenode;
        level->handle = vel_json_object_first(source, &level->key, &valuenode);
        vel_json_level_set_value(level, valuenode);
    }
    return true;
}

/* Goes on to the next value of the level. */
static inline void vel_json_level_step(vel_json_level *level)
{
    if (level->source->nodetype == VEL_JSON_TYPE_OBJECT) {
        veljsonnode *valuenode;
        level->handle = vel_json_object_next(level->source, level->handle, &level->key, &valuenode);
        vel_json_level_set_value(level, valuenode);
    } else {
        level->value = level->value->next;
    }
}

#endif
