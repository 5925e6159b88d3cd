/* Noise is XORed into the pool byte by byte, around and around, and each full turn is followed by a
 * stir. The hash context is never initialised again: what it has taken in carries every earlier
 * stir into the next one. */
#include <vellib/velrandom.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <sys/time.h>

#include <vellib/velfile.h>
#include <vellib/velmalloc.h>
#include <vellib/velsha256.h>
#include <vellib/velstrdup.h>
#include <vellib/veltime.h>

#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "crypto/velrandom"

struct velrandom {
    struct velsha256 *velsha256;
    size_t poolsize; /* in bytes, of pool */
    uint8_t *pool;
    uint32_t noiseadded; /* 1 after the first full gathering */
    char *filename;      /* of the storage file, or NULL */
    size_t addpos;       /* where the next byte of noise goes; below poolsize */
    size_t getpos;       /* the next byte to give out; poolsize if all were */
};

constexpr size_t kVelRandomPoolSize = 1024;
constexpr size_t kVelRandomUrandomMaximum = 256;
constexpr size_t kVelRandomFileMaximum = 0x40000;

/* What a full gathering reads beyond a light one: nothing so far. Ends with NULL. */
static const char *const vel_random_files[] = {nullptr};

/* What every gathering reads. Some kernels have only some of these. */
static const char *const vel_random_files_unix[] = {
    "/proc/interrupts",  "/proc/meminfo",    "/proc/net/rt_cache",
    "/proc/sched_debug", "/proc/self/sched", "/proc/timer_list",
};

static velrandom *vel_random_global;

/* Stirs the pool: each block is XORed with the state of the hash after all that comes before it.
 * The state is read without finalizing, as a digest and a block make one step of the hash. */
static void vel_random_hash(velrandom *velrandom)
{
    uint8_t digest[32];
    constexpr size_t blocksize = sizeof(digest);
    static_assert(blocksize == 32);

    VEL_ASSERT(velrandom != NULL);
    VEL_ASSERT(velrandom->velsha256 != NULL);

    vel_sha256_update(velrandom->velsha256, velrandom->pool, velrandom->poolsize);
    vel_sha256_finalize(velrandom->velsha256);
    vel_sha256_digest(velrandom->velsha256, digest);
    for (size_t i = 0; i < velrandom->poolsize; i += blocksize) {
        VEL_ASSERT(i + blocksize <= velrandom->poolsize);
        uint8_t *block = velrandom->pool + i;
        vel_sha256_update(velrandom->velsha256, digest, blocksize);
        vel_sha256_update(velrandom->velsha256, block, blocksize);
        vel_sha256_digest(velrandom->velsha256, digest);
        for (size_t j = 0; j < blocksize; j++)
            block[j] ^= digest[j];
    }
    velrandom->getpos = 0;
}

/* Adds noise. All of it comes through here. */
static void vel_random_add_buffer(velrandom *velrandom, const void *buffer, size_t count)
{
    VEL_ASSERT(velrandom != NULL);
    VEL_ASSERT(buffer != NULL);

    auto *bytes = static_cast<const uint8_t *>(buffer);
    for (size_t i = 0; i < count; i++) {
        VEL_ASSERT(velrandom->addpos < velrandom->poolsize);
        velrandom->pool[velrandom->addpos++] ^= bytes[i];
        if (velrandom->addpos == velrandom->poolsize) {
            vel_random_hash(velrandom);
            velrandom->getpos = 0;
            velrandom->addpos = 0;
        }
    }
}

/* Adds up to maximum bytes of a file, one at a time. Returns 0, or -1 if it cannot be opened. */
static int vel_random_add_file(velrandom *velrandom, const char *filename, size_t maximum)
{
    VEL_ASSERT(velrandom != NULL);
    VEL_ASSERT(filename != NULL);

    FILE *file = vel_file_open_binary(filename);
    if (!file)
        return -1;
    for (size_t i = 0; i < maximum; i++) {
        uint8_t byte;
        const size_t count = vel_file_read(file, &byte, 1);
        if (count == 0 && vel_file_feof(file))
            break;
        VEL_ASSERT(count == 1);
        vel_random_add_buffer(velrandom, &byte, 1);
    }
    (void)vel_file_close(file);
    return 0;
}

static void vel_random_get_light_noise_unix(velrandom *velrandom)
{
    for (const char *filename : vel_random_files_unix)
        (void)vel_random_add_file(velrandom, filename, kVelRandomFileMaximum);

    struct timeval now;
    if (gettimeofday(&now, nullptr) == 0)
        vel_random_add_buffer(velrandom, &now, sizeof(now));
}

static void vel_random_get_light_noise(velrandom *velrandom)
{
    (void)vel_random_add_file(velrandom, "/dev/urandom", kVelRandomUrandomMaximum);
    const time_t now = vel_time(nullptr);
    vel_random_add_buffer(velrandom, &now, sizeof(now));
    vel_random_get_light_noise_unix(velrandom);
    vel_random_hash(velrandom);
}

static void vel_random_get_noise(velrandom *velrandom)
{
    for (const char *const *filename = vel_random_files; *filename; filename++)
        (void)vel_random_add_file(velrandom, *filename, kVelRandomFileMaximum);
    vel_random_get_light_noise(velrandom);
}

/* Gives the pool that is meant, or NULL if that is the global one and cannot be created. */
static velrandom *vel_random_resolve(velrandom *velrandom)
{
    if (velrandom)
        return velrandom;
    return vel_random_init() == 0 ? vel_random_global : nullptr;
}

int vel_random_init(void)
{
    if (!vel_random_global)
        vel_random_global = vel_random_create();
    if (!vel_random_global) {
        VEL_LOG(7, "unable to initialize the global random context");
        return -1;
    }
    return 0;
}

void vel_random_uninit(void)
{
    velrandom *velrandom = vel_random_global;

    vel_random_global = nullptr;
    if (velrandom)
        vel_random_destroy(velrandom);
}

/* Builds the members in order. On false the caller destroys what there is. */
static bool vel_random_build(velrandom *velrandom)
{
    velrandom->velsha256 = vel_sha256_create();
    if (!velrandom->velsha256) {
        VEL_LOG(7, "unable to create velsha256 module context");
        return false;
    }
    velrandom->poolsize = kVelRandomPoolSize;
    velrandom->pool = static_cast<uint8_t *>(vel_cmalloc(velrandom->poolsize));
    if (!velrandom->pool) {
        VEL_LOG(7, "not enough memory for the random pool");
        return false;
    }
    return true;
}

velrandom *vel_random_create(void)
{
    auto *velrandom = static_cast<struct velrandom *>(vel_cmalloc(sizeof(struct velrandom)));
    if (!velrandom) {
        VEL_LOG(7, "not enough memory for velrandom context");
        return nullptr;
    }
    if (!vel_random_build(velrandom)) {
        vel_random_destroy(velrandom);
        return nullptr;
    }
    return velrandom;
}

void vel_random_destroy(velrandom *velrandom)
{
    VEL_ASSERT(velrandom != NULL);

    if (velrandom->filename)
        vel_free(velrandom->filename);
    if (velrandom->pool)
        vel_free(velrandom->pool);
    if (velrandom->velsha256)
        vel_sha256_destroy(velrandom->velsha256);
    vel_free(velrandom);
}

int vel_random_set_filename(velrandom *velrandom, const char *filename)
{
    VEL_ASSERT(filename != NULL);

    velrandom = vel_random_resolve(velrandom);
    if (!velrandom)
        return -1;

    char *copy = vel_strdup(filename);
    if (!copy) {
        VEL_LOG(7, "not enough memory for copying random storage file name '%s'", filename);
        return -1;
    }
    if (velrandom->filename)
        vel_free(velrandom->filename);
    velrandom->filename = copy;
    (void)vel_random_add_file(velrandom, velrandom->filename, velrandom->poolsize);
    return 0;
}

int vel_random_buffer(velrandom *velrandom, void *buffer, size_t count)
{
    VEL_ASSERT(buffer != NULL);

    velrandom = vel_random_resolve(velrandom);
    if (!velrandom) {
        VEL_LOG(7, "unable to get the global velrandom context");
        return -1;
    }
    if (velrandom->noiseadded != 1) {
        vel_random_get_noise(velrandom);
        velrandom->noiseadded = 1;
    }
    auto *bytes = static_cast<uint8_t *>(buffer);
    while (count > 0) {
        if (velrandom->getpos == velrandom->poolsize) {
            vel_random_get_light_noise(velrandom);
            velrandom->getpos = 0;
        }
        const size_t copycount = std::min(count, velrandom->poolsize - velrandom->getpos);
        memcpy(bytes, velrandom->pool + velrandom->getpos, copycount);
        velrandom->getpos += copycount;
        bytes += copycount;
        count -= copycount;
    }
    return 0;
}

unsigned int vel_random_uint(velrandom *velrandom)
{
    uint8_t bytes[4] = {0xde, 0xad, 0xbe, 0xef}; /* the result, should the draw fail */

    if (vel_random_buffer(velrandom, bytes, sizeof(bytes)) != 0)
        VEL_LOG(7, "generating random integer failed");
    return static_cast<unsigned int>(bytes[0]) << 24 | static_cast<unsigned int>(bytes[1]) << 16 |
           static_cast<unsigned int>(bytes[2]) << 8 | bytes[3];
}
