#include <vellib/velcache.h>

#include <cstddef>
#include <cstring>

#include <vellib/vellimit.h>
#include <vellib/vellist.h>
#include <vellib/velmalloc.h>
#include <vellib/velmemdup.h>
#include <vellib/velstrdup.h>
#include <vellib/velstringhash.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "adt/velcache"

/* What an item counts beside its key and its data, on every platform. */
static constexpr size_t vel_cache_itemoverhead = 48;

struct velcacheitem {
    velcacheitem *next;
    velcacheitem *prev;
    char *key;     /* own copy */
    size_t keylen; /* without the terminator */
    void *data;    /* own copy */
    size_t datalen;
};

struct velcache {
    vel_list *itemlist;  /* all items, the newest at the head */
    velstringhash *hash; /* from key to item; its callback does all that ends an item */
    size_t limitsize;    /* bytes */
    size_t usesize;      /* bytes, the sum of the item sizes */
};

/* ---- Items ---- */

static void vel_cache_item_destroy(velcacheitem *item)
{
    VEL_ASSERT(item != NULL);

    vel_free(item->key);
    vel_free(item->data);
    vel_free(item);
}

static bool vel_cache_item_build(velcacheitem *item, const char *key, size_t keylen,
                                 const void *data, size_t datalen)
{
    item->key = vel_strdup(key);
    if (!item->key) {
        VEL_LOG(7, "not enough memory for the key of the cache item");
        return false;
    }
    item->keylen = keylen;
    item->data = vel_memdup(data, datalen);
    if (!item->data) {
        VEL_LOG(7, "not enough memory for cache item data");
        return false;
    }
    item->datalen = datalen;
    return true;
}

static velcacheitem *vel_cache_item_create(const char *key, size_t keylen, const void *data,
                                           size_t datalen)
{
    VEL_ASSERT(key != NULL);
    VEL_ASSERT(data != NULL);

    auto *item = static_cast<velcacheitem *>(vel_cmalloc(sizeof(velcacheitem)));
    if (!item) {
        VEL_LOG(7, "not enough memory for cache item");
        return nullptr;
    }
    if (!vel_cache_item_build(item, key, keylen, data, datalen)) {
        vel_cache_item_destroy(item);
        return nullptr;
    }
    return item;
}

/* The one way by which an item ends, whether replaced, evicted or destroyed with the cache. */
static void vel_cache_hash_destroy_callback(void *item, void *context)
{
    VEL_ASSERT(item != NULL);
    VEL_ASSERT(context != NULL);

    auto *const cacheitem = static_cast<velcacheitem *>(item);
    auto *const velcache = static_cast<struct velcache *>(context);
    const size_t itemsize = vel_cache_itemoverhead + cacheitem->keylen + cacheitem->datalen;

    VEL_LIST_REMOVE(velcache->itemlist, cacheitem);
    if (itemsize > velcache->usesize) {
        VEL_LOG(8, "Internal inconsistency, usesize %zu less than itemsize %zu", velcache->usesize,
                itemsize);
        velcache->usesize = 0;
    } else {
        velcache->usesize -= itemsize;
    }
    vel_cache_item_destroy(cacheitem);
}

/* Evicts the oldest items until the cache uses no more than targetsize. */
static void vel_cache_cleanup(velcache *velcache, size_t targetsize)
{
    while (velcache->usesize > targetsize) {
        const auto *const item = static_cast<const velcacheitem *>(velcache->itemlist->tail);
        if (!item) {
            VEL_LOG(8, "Internal inconsistency: cache empty but usesize is %zu", velcache->usesize);
            velcache->usesize = 0;
            return;
        }
        if (vel_stringhash_remove(velcache->hash, item->key) != 0) {
            VEL_LOG(6, "INTERNAL ERROR: unable to clean up a hash item with key '%s'", item->key);
            return;
        }
    }
}

/* ---- Life ---- */

/* Builds the members in order. On false the caller destroys what there is. */
static bool vel_cache_build(velcache *velcache, size_t limitsize)
{
    velcache->itemlist = vel_list_create();
    if (!velcache->itemlist) {
        VEL_LOG(7, "not enough memory for cache item list");
        return false;
    }
    velcache->hash = vel_stringhash_create(vel_cache_hash_destroy_callback, velcache);
    if (!velcache->hash) {
        VEL_LOG(7, "not enough memory for a hashtable");
        return false;
    }
    velcache->limitsize = limitsize;
    return true;
}

velcache *vel_cache_create(size_t limitsize)
{
    auto *velcache = static_cast<struct velcache *>(vel_cmalloc(sizeof(struct velcache)));
    if (!velcache) {
        VEL_LOG(7, "not enough memory for cache context");
        return nullptr;
    }
    if (!vel_cache_build(velcache, limitsize)) {
        vel_cache_destroy(velcache);
        return nullptr;
    }
    return velcache;
}

void vel_cache_destroy(velcache *velcache)
{
    VEL_ASSERT(velcache != NULL);

    if (velcache->hash)
        vel_stringhash_destroy(velcache->hash);
    if (velcache->itemlist) {
        VEL_ASSERT(velcache->itemlist->head == NULL);
        vel_cache_cleanup(velcache, 0);
        vel_list_destroy(velcache->itemlist);
    }
    if (velcache->usesize != 0)
        VEL_LOG(8, "velcache usesize %zu should be zero", velcache->usesize);
    vel_free(velcache);
}

void vel_cache_set_memory_limit(velcache *velcache, size_t limitsize)
{
    VEL_ASSERT(velcache != NULL);

    velcache->limitsize = limitsize;
    vel_cache_cleanup(velcache, limitsize);
}

/* ---- Blocks ---- */

/* Tells what an item counts. Returns false, with a line logged, if that is over the limit. */
static bool vel_cache_calc_itemsize(const velcache *velcache, size_t keylen, size_t datalen,
                                    size_t *itemsizeptr)
{
    if (keylen >= vel_limit_max_size_t() - (vel_cache_itemoverhead - 1)) {
        VEL_LOG(6, "cache item key too large");
        return false;
    }
    *itemsizeptr = vel_cache_itemoverhead + keylen + datalen;
    if (datalen > *itemsizeptr) {
        VEL_LOG(6, "cache item data too large");
        return false;
    }
    if (*itemsizeptr > velcache->limitsize) {
        VEL_LOG(6, "cache item size exceeds the maximum cache size limit (%zu > %zu bytes)",
                *itemsizeptr, velcache->limitsize);
        return false;
    }
    return true;
}

/* Removes the item that has the key. A NULL is never stored, so the lookup tells. */
static void vel_cache_remove_old(velcache *velcache, const char *key)
{
    if (!vel_stringhash_lookup(velcache->hash, key))
        return;
    if (vel_stringhash_remove(velcache->hash, key) != 0)
        VEL_LOG(7, "removing old item failed");
}

vel_error_t vel_cache_set(velcache *velcache, const char *key, const void *data, size_t datalen)
{
    VEL_ASSERT(velcache != NULL);
    VEL_ASSERT(key != NULL);
    VEL_ASSERT(data != NULL);

    const size_t keylen = strlen(key);
    size_t itemsize;
    if (!vel_cache_calc_itemsize(velcache, keylen, datalen, &itemsize))
        return VEL_ERROR_OUT_OF_RANGE;
    velcacheitem *const item = vel_cache_item_create(key, keylen, data, datalen);
    if (!item)
        return VEL_ERROR_NO_MEMORY;

    vel_cache_remove_old(velcache, key);
    const size_t limitsize = velcache->limitsize;
    VEL_ASSERT(itemsize <= limitsize);
    vel_cache_cleanup(velcache, limitsize - itemsize);
    /* The key may lie in a block of the cache, which is gone by now. */
    if (vel_stringhash_add(velcache->hash, item->key, item) != 0) {
        VEL_LOG(7, "not enough memory to add cache item to hashtable");
        vel_cache_item_destroy(item);
        return VEL_ERROR_OUT_OF_RANGE;
    }
    VEL_LIST_ADD_HEAD(velcache->itemlist, item);
    velcache->usesize += itemsize;

    /* A cache that is exactly full counts as overfull, though the item stays. */
    if (velcache->usesize >= limitsize) {
        VEL_LOG(6, "INTERNAL ERROR: usesize %zu exceeds the maxsize %zu", velcache->usesize,
                limitsize);
        return VEL_ERROR_INTERNAL;
    }
    return VEL_ERROR_NONE;
}

vel_error_t vel_cache_get(velcache *velcache, const char *key, const void **dataptr,
                          size_t *datalenptr)
{
    const auto *const item =
        static_cast<const velcacheitem *>(vel_stringhash_lookup(velcache->hash, key));

    *dataptr = item ? item->data : nullptr;
    *datalenptr = item ? item->datalen : 0;
    return item ? VEL_ERROR_NONE : VEL_ERROR_NOT_FOUND;
}
