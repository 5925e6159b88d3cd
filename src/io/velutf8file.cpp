#include <vellib/velutf8file.h>

#include <vellib/velfile.h>
#include <vellib/velutf8deletefile.h>

#include "io/velfile_core.h"
#include "util/velassert.h"
#include "util/vellog_macros.h"

#define VEL_MODULE "io/velutf8file"

FILE *vel_utf8file_create_binary(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_create_binary(filename);
}

FILE *vel_utf8file_open_binary(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_open_binary(filename);
}

FILE *vel_utf8file_create_ascii(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_create_ascii(filename);
}

FILE *vel_utf8file_append_ascii(const char *filename)
{
    VEL_ASSERT(filename != NULL);

    return vel_file_append_ascii(filename);
}

int vel_utf8file_exists(const char *name)
{
    return vel_file_exists(name);
}

int vel_utf8file_data_save(const char *filename, const void *data, size_t datalen)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(data != NULL || datalen == 0);

    return vel_file_data_save(filename, data, datalen);
}

int vel_utf8file_data_load(const char *filename, void **dataptr, size_t *datalen)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(dataptr != NULL);

    return vel_file_data_load(filename, dataptr, datalen);
}

/* Both differences from velfile are part of the contract. */
struct utf8file_twin {
    static constexpr auto module = VEL_MODULE;

    static void remove_backup(const char *backupname)
    {
        if (vel_utf8file_exists(backupname) == 1 && vel_utf8deletefile(backupname) != 0)
            VEL_LOG(7, "unable to remove file '%s'", backupname);
    }

    /* That of the save before it, which went well. */
    static int result_without_backup(int)
    {
        return 0;
    }
};

int vel_utf8file_data_save_with_backup(const char *filename, const void *data, size_t datalen)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(data != NULL || datalen == 0);

    return vel_filecore_save_with_backup<utf8file_twin>(filename, data, datalen);
}

int vel_utf8file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen)
{
    VEL_ASSERT(filename != NULL);
    VEL_ASSERT(dataptr != NULL);

    return vel_filecore_load_with_backup<utf8file_twin>(filename, dataptr, datalen);
}
