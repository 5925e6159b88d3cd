#include <vellib/velhash.h>

#include <algorithm>

#include <vellib/velmalloc.h>

#include "adt/velhash_core.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "adt/velhash"

/* Items of a host: everything goes through its callbacks, and a moved item is searched for as the
 * host may expect it to be, with one comparison at least. */
struct vel_hash_hostkind {
    using key = const void *; /* an item, or what stands for one */
    static constexpr bool filtered = false;

    static void *item(const velhash *velhash, vel_listlink *link)
    {
        return reinterpret_cast<char *>(link) - velhash->linkoffset;
    }

    static vel_listlink *link(const velhash *velhash, void *item)
    {
        return reinterpret_cast<vel_listlink *>(static_cast<char *>(item) + velhash->linkoffset);
    }

    static size_t hash_of(const velhash *velhash, const void *item)
    {
        return velhash->calchashcallback(item, velhash->context);
    }

    static bool matches(const velhash *velhash, const void *item, key searchitem)
    {
        return velhash->comparecallback(item, searchitem, velhash->context) == 0;
    }

    static const void *take(velhash *velhash, size_t slot, size_t hash, vel_listlink *link);
};

/* Takes the item equal to searchitem out of an array, and returns it, or NULL. */
static void *vel_hash_array_remove_item(velhash *velhash, velhasharray *velhasharray, size_t slot,
                                        const void *searchitem)
{
    vel_listlink *const link =
        vel_hash_array_find<vel_hash_hostkind>(velhash, velhasharray, slot, 0, searchitem);

    if (!link)
        return nullptr;
    vel_hash_array_unlink(velhasharray, slot, link);
    return vel_hash_hostkind::item(velhash, link);
}

/* The slot in which the item stands is not relied on: its hash has to lead there. */
const void *vel_hash_hostkind::take(velhash *velhash, size_t, size_t hash, vel_listlink *link)
{
    velhasharray *const mainarray = velhash->mainarray;

    return vel_hash_array_remove_item(velhash, mainarray, vel_hash_array_slot(mainarray, hash),
                                      item(velhash, link));
}

/* ---- Resizing ---- */

/* Destroys the items slot by slot, those of a slot from the head on. An item counts, in the array
 * and in the table, until its callback has returned. */
static void vel_hash_array_clear(velhash *velhash, velhasharray *velhasharray)
{
    size_t slot = 0;

    while (vel_listlink *link = vel_hash_array_first(velhasharray, slot, &slot)) {
        vel_hash_array_unlink_counted(velhasharray, slot, link);
        velhash->destroycallback(vel_hash_hostkind::item(velhash, link), velhash->context);
        velhasharray->entries--;
        velhash->entries--;
    }
    velhasharray->cursor = 0;
    VEL_ASSERT(velhasharray->entries == 0);
}

/* Makes the array that items move to, and has the search for the first of them begin anew. */
static velhasharray *vel_hash_start_resize(velhash *velhash, size_t slotcount)
{
    velhash->mainarray->cursor = 0;
    if (!velhash->takecallback)
        return vel_hash_array_create(slotcount);
    void *const memory =
        velhash->takecallback(velhash->takecontext, vel_hash_array_size(slotcount));
    return memory ? vel_hash_array_create_in(memory, slotcount) : nullptr;
}

static void vel_hash_log_growing(size_t newslotcount)
{
    VEL_LOG(13, "start growing hashtable to %zu slots", newslotcount);
}

static void vel_hash_log_replacing(const char *which)
{
    VEL_LOG(13, "replacing the main hash array with the %s one", which);
}

void vel_hash_log_create()
{
    VEL_LOG(13, "create an initial hash array of size %zu", vel_hash_initialslots);
}

/* A growth begins at the limit, and each item that follows moves one, until all have moved. */
void vel_hash_log_add(size_t entries)
{
    size_t slotcount = vel_hash_initialslots;

    for (; entries > 2 * vel_hash_limit(slotcount); slotcount = vel_hash_grown(slotcount))
        continue;
    if (entries == vel_hash_limit(slotcount))
        vel_hash_log_growing(vel_hash_grown(slotcount));
    else if (entries == 2 * vel_hash_limit(slotcount))
        vel_hash_log_replacing("bigger");
}

size_t vel_hash_slotcount_after(size_t entries, bool *growingptr)
{
    size_t slotcount = vel_hash_initialslots;

    while (entries >= 2 * vel_hash_limit(slotcount))
        slotcount = vel_hash_grown(slotcount);
    *growingptr = entries >= vel_hash_limit(slotcount);
    return slotcount;
}

size_t vel_hash_size(size_t entries)
{
    bool growing;
    const size_t slotcount = vel_hash_slotcount_after(entries, &growing);

    return sizeof(velhash) + vel_hash_array_size(slotcount) +
           (growing ? vel_hash_array_size(vel_hash_grown(slotcount)) : 0);
}

void vel_hash_start_growing(velhash *velhash)
{
    VEL_ASSERT(velhash->biggerarray == NULL);
    VEL_ASSERT(velhash->smallerarray == NULL);

    const size_t slotcount = velhash->mainarray->slotcount;
    const size_t newslotcount = vel_hash_grown(slotcount);
    if (newslotcount <= slotcount)
        return;

    vel_hash_log_growing(newslotcount);
    velhash->biggerarray = vel_hash_start_resize(velhash, newslotcount);
    if (!velhash->biggerarray)
        VEL_LOG(7, "not enough memory to grow the hashtable from %zu to %zu slots", slotcount,
                newslotcount);
}

void vel_hash_start_shrinking(velhash *velhash)
{
    VEL_ASSERT(velhash->biggerarray == NULL);
    VEL_ASSERT(velhash->smallerarray == NULL);

    const size_t slotcount = velhash->mainarray->slotcount;
    const size_t newslotcount = std::max((slotcount - 1) / 4, velhash->minslotcount);

    VEL_LOG(13, "start shrinking hashtable to %zu slots", newslotcount);
    velhash->smallerarray = vel_hash_start_resize(velhash, newslotcount);
    if (!velhash->smallerarray)
        VEL_LOG(7, "not enough memory to shrink the hashtable from %zu to %zu slots", slotcount,
                newslotcount);
}

void vel_hash_replace_main(velhash *velhash)
{
    velhasharray *const target = vel_hash_target(velhash);

    vel_hash_log_replacing(target == velhash->biggerarray ? "bigger" : "smaller");
    vel_hash_array_destroy(velhash->mainarray);
    velhash->mainarray = target;
    velhash->biggerarray = nullptr;
    velhash->smallerarray = nullptr;
}

/* ---- Life ---- */

/* Gives a new table its array. Returns the table, or NULL, when it is destroyed. */
static velhash *vel_hash_build(velhash *velhash)
{
    velhash->mainarray = vel_hash_array_create(velhash->minslotcount);
    if (!velhash->mainarray) {
        vel_hash_destroy(velhash);
        return nullptr;
    }
    return velhash;
}

velhash *vel_hash_create(size_t linkoffset, vel_hash_calc_cb *calchashcallback,
                         vel_hash_compare_cb *comparecallback, vel_hash_destroy_cb *destroycallback,
                         void *context)
{
    VEL_ASSERT(calchashcallback != NULL);
    VEL_ASSERT(comparecallback != NULL);
    VEL_ASSERT(destroycallback != NULL);

    auto *velhash = static_cast<struct velhash *>(vel_cmalloc(sizeof(struct velhash)));
    if (!velhash) {
        VEL_LOG(7, "not enough memory for velhash structure");
        return nullptr;
    }
    velhash->minslotcount = vel_hash_initialslots;
    velhash->calchashcallback = calchashcallback;
    velhash->comparecallback = comparecallback;
    velhash->destroycallback = destroycallback;
    velhash->linkoffset = linkoffset;
    velhash->context = context;

    vel_hash_log_create();
    return vel_hash_build(velhash);
}

velhash *vel_hash_create_in(size_t entries, size_t linkoffset, vel_hash_calc_cb *calchashcallback,
                            vel_hash_compare_cb *comparecallback,
                            vel_hash_destroy_cb *destroycallback, void *context,
                            vel_hash_take_cb *takecallback, void *takecontext)
{
    auto *const memory = static_cast<char *>(takecallback(takecontext, vel_hash_size(entries)));
    if (!memory) {
        VEL_LOG(7, "not enough memory for velhash structure");
        return nullptr;
    }
    bool growing;
    const size_t slotcount = vel_hash_slotcount_after(entries, &growing);
    char *const arrays = memory + sizeof(velhash);
    auto *const velhash = reinterpret_cast<struct velhash *>(memory);

    *velhash = {};
    velhash->minslotcount = vel_hash_initialslots;
    velhash->mainarray = vel_hash_array_create_in(arrays, slotcount);
    if (growing)
        velhash->biggerarray = vel_hash_array_create_in(arrays + vel_hash_array_size(slotcount),
                                                        vel_hash_grown(slotcount));
    velhash->calchashcallback = calchashcallback;
    velhash->comparecallback = comparecallback;
    velhash->destroycallback = destroycallback;
    velhash->linkoffset = linkoffset;
    velhash->context = context;
    velhash->takecallback = takecallback;
    velhash->takecontext = takecontext;
    velhash->borrowed = true;
    return velhash;
}

velhash *vel_hash_create_from(velhash *original)
{
    VEL_ASSERT(original != NULL);

    auto *velhash = static_cast<struct velhash *>(vel_cmalloc(sizeof(struct velhash)));
    if (!velhash) {
        VEL_LOG(7, "not enough memory for duplicating hashtable");
        return nullptr;
    }
    velhash->minslotcount = original->minslotcount;
    velhash->calchashcallback = original->calchashcallback;
    velhash->comparecallback = original->comparecallback;
    velhash->destroycallback = original->destroycallback;
    velhash->linkoffset = original->linkoffset;
    velhash->context = original->context;
    return vel_hash_build(velhash);
}

void vel_hash_destroy(velhash *velhash)
{
    VEL_ASSERT(velhash != NULL);

    vel_hash_clear(velhash);
    VEL_ASSERT(velhash->entries == 0);
    if (velhash->mainarray)
        vel_hash_array_destroy(velhash->mainarray);
    if (!velhash->borrowed)
        vel_free(velhash);
}

/* Clears an array that items were to move to, and destroys it. */
static void vel_hash_drop_array(velhash *velhash, velhasharray **velhasharrayptr)
{
    if (!*velhasharrayptr)
        return;
    vel_hash_array_clear(velhash, *velhasharrayptr);
    vel_hash_array_destroy(*velhasharrayptr);
    *velhasharrayptr = nullptr;
}

void vel_hash_clear(velhash *velhash)
{
    VEL_ASSERT(velhash != NULL);

    vel_hash_drop_array(velhash, &velhash->biggerarray);
    vel_hash_drop_array(velhash, &velhash->smallerarray);
    if (!velhash->mainarray)
        return;
    vel_hash_array_clear(velhash, velhash->mainarray);
    if (velhash->mainarray->slotcount == velhash->minslotcount)
        return;

    velhasharray *const newarray = vel_hash_array_create(velhash->minslotcount);
    if (!newarray) {
        VEL_LOG(7, "not enough memory to return the hash array to the minimum size, keeping the "
                   "current size");
        return;
    }
    vel_hash_array_destroy(velhash->mainarray);
    velhash->mainarray = newarray;
}

/* ---- Items ---- */

void vel_hash_add(velhash *velhash, void *item)
{
    VEL_ASSERT(velhash != NULL);
    VEL_ASSERT(item != NULL);

    vel_hash_add_item<vel_hash_hostkind>(velhash, item, vel_hash_hostkind::hash_of(velhash, item),
                                         item);
}

/* Whether the item with this link, and not one equal to it, is in a slot. */
static bool vel_hash_array_check_item(const velhasharray *velhasharray, size_t slot,
                                      const vel_listlink *link)
{
    const velhashslot *const hashslot = vel_hash_array_peek(velhasharray, slot);
    const vel_listlink *other = hashslot ? hashslot->head : nullptr;

    while (other && other != link)
        other = static_cast<const vel_listlink *>(other->next);
    return other != nullptr;
}

/* Unlinks an item from where it is, or from nowhere, as if it were in this slot, and leaves the
 * slot as a list would be left: the items behind it if it was the head of its chain, else what
 * was there. The block counts as full from now on, since what it has is not known. */
static void vel_hash_array_unlink_elsewhere(velhasharray *velhasharray, size_t slot,
                                            vel_listlink *link)
{
    const size_t block = slot / vel_hash_blockslots;
    if (velhasharray->blockusage[block] == 0)
        vel_hash_array_open_block(velhasharray, block);
    velhasharray->blockusage[block] = UINT32_MAX / 2;
    velhasharray->entries--;

    velhashslot *const hashslot = &velhasharray->slots[slot];
    auto *const next = static_cast<vel_listlink *>(link->next);
    auto *const prev = static_cast<vel_listlink *>(link->prev);
    if (!prev || !prev->next)
        hashslot->head = next;
    else
        prev->next = next;
    if (next)
        next->prev = prev;
    else if (hashslot->head)
        hashslot->head->prev = prev;
    link->next = nullptr;
    link->prev = nullptr;
}

void vel_hash_remove(velhash *velhash, void *item)
{
    VEL_ASSERT(velhash != NULL);
    VEL_ASSERT(item != NULL);

    const size_t hash = vel_hash_hostkind::hash_of(velhash, item);
    vel_listlink *const link = vel_hash_hostkind::link(velhash, item);
    velhasharray *const targethasharray = vel_hash_target(velhash);
    velhasharray *const mainarray = velhash->mainarray;
    const size_t slot = vel_hash_array_slot(targethasharray, hash);

    const bool regular = vel_hash_array_check_item(targethasharray, slot, link);
    if (!regular && targethasharray != mainarray &&
        !vel_hash_array_check_item(mainarray, vel_hash_array_slot(mainarray, hash), link))
        return;

    /* That an item which is not in the target array is taken out of it all the same is the
     * contract. */
    VEL_ASSERT(targethasharray->entries > 0);
    if (regular)
        vel_hash_array_unlink(targethasharray, slot, link);
    else
        vel_hash_array_unlink_elsewhere(targethasharray, slot, link);
    VEL_ASSERT(velhash->entries > 0);
    velhash->entries--;
    vel_hash_after_remove<vel_hash_hostkind>(velhash, targethasharray);
}

void *vel_hash_lookup(velhash *velhash, const void *searchitem)
{
    VEL_ASSERT(velhash != NULL);
    VEL_ASSERT(searchitem != NULL);

    vel_listlink *const link = vel_hash_lookup_item<vel_hash_hostkind>(
        velhash, searchitem, vel_hash_hostkind::hash_of(velhash, searchitem));
    return link ? vel_hash_hostkind::item(velhash, link) : nullptr;
}

/* ---- Enumeration ---- */

/* The first item of an array from a slot on, which may lie behind the last; if there is none, the
 * first of mainarray, unless that is the array. */
static void *vel_hash_enumerate_from(const velhash *velhash, const velhasharray *velhasharray,
                                     size_t startslot)
{
    vel_listlink *link = nullptr;
    size_t slot;

    if (startslot < velhasharray->slotcount)
        link = vel_hash_array_first(velhasharray, startslot, &slot);
    if (!link && velhasharray != velhash->mainarray)
        link = vel_hash_array_first(velhash->mainarray, 0, &slot);
    return link ? vel_hash_hostkind::item(velhash, link) : nullptr;
}

void *vel_hash_enumerate_start(velhash *velhash)
{
    VEL_ASSERT(velhash != NULL);

    return vel_hash_enumerate_from(velhash, vel_hash_target(velhash), 0);
}

/* An item without a next one is the tail of its slot if the head says so, or is the head itself. */
static bool vel_hash_array_is_tail(const velhasharray *velhasharray, size_t slot,
                                   const vel_listlink *link)
{
    const velhashslot *const hashslot = vel_hash_array_peek(velhasharray, slot);

    return hashslot && hashslot->head && (hashslot->head == link || hashslot->head->prev == link);
}

void *vel_hash_enumerate_next(velhash *velhash, void *item)
{
    VEL_ASSERT(velhash != NULL);
    VEL_ASSERT(item != NULL);

    vel_listlink *const link = vel_hash_hostkind::link(velhash, item);
    if (link->next)
        return vel_hash_hostkind::item(velhash, static_cast<vel_listlink *>(link->next));

    const size_t hash = vel_hash_hostkind::hash_of(velhash, item);
    const velhasharray *velhasharray = vel_hash_target(velhash);
    size_t slot = vel_hash_array_slot(velhasharray, hash);
    if (velhasharray != velhash->mainarray && !vel_hash_array_is_tail(velhasharray, slot, link)) {
        velhasharray = velhash->mainarray;
        slot = vel_hash_array_slot(velhasharray, hash);
        if (!vel_hash_array_is_tail(velhasharray, slot, link)) {
            VEL_LOG(6, "invalid hash item");
            VEL_UNREACHABLE();
        }
    }
    return vel_hash_enumerate_from(velhash, velhasharray, slot + 1);
}

/* ---- State ---- */

static void vel_hash_array_debug_state(const velhasharray *velhasharray, size_t *entriesptr,
                                       size_t *slotsptr)
{
    if (entriesptr)
        *entriesptr = velhasharray ? velhasharray->entries : 0;
    if (slotsptr)
        *slotsptr = velhasharray ? velhasharray->slotcount : 0;
}

void vel_hash_debug_state(velhash *velhash, size_t *mainentries, size_t *mainslots,
                          size_t *biggerentries, size_t *biggerslots, size_t *smallerentries,
                          size_t *smallerslots)
{
    VEL_ASSERT(velhash != NULL);

    vel_hash_array_debug_state(velhash->mainarray, mainentries, mainslots);
    vel_hash_array_debug_state(velhash->biggerarray, biggerentries, biggerslots);
    vel_hash_array_debug_state(velhash->smallerarray, smallerentries, smallerslots);
}
