#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include <vellib/velinifile.h>
#include <vellib/vellog.h>

#include "fuzz.h"
#include "support/inimodel.h"
#include "support/tempdir.h"

using support::ini_model;

/* Files without a directory. */
static int infile, outfile;
static std::string inname, outname;

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    infile = memfd_create("in.ini", MFD_CLOEXEC);
    outfile = memfd_create("out.ini", MFD_CLOEXEC);
    FUZZ_REQUIRE(infile >= 0 && outfile >= 0);
    inname = "/proc/self/fd/" + std::to_string(infile);
    outname = "/proc/self/fd/" + std::to_string(outfile);
    return 0;
}

static std::string written(velinifile *inifile)
{
    FUZZ_REQUIRE(vel_inifile_write_file(inifile, outname.c_str()) == VEL_ERROR_NONE);
    return support::read_file(outname);
}

static const char *c_str(const ini_model::name &name)
{
    return name ? name->c_str() : nullptr;
}

static void require_values(velinifile *inifile, const ini_model &model)
{
    FUZZ_REQUIRE(written(inifile) == model.text());
    for (const ini_model::line &line : model.lines) {
        const std::string key = line.key.value_or(line.raw);
        const char *value = vel_inifile_get(inifile, c_str(line.section), key.c_str());
        FUZZ_REQUIRE((value ? ini_model::name(value) : ini_model::name()) ==
                     model.get(line.section, key));
    }
}

/* Sets and deletes what the lines of the file name: the first ones of it, or long files would take
 * for ever in the model. */
static void edit(velinifile *inifile, ini_model *model)
{
    const ini_model before = *model;
    for (size_t i = 0; i < before.lines.size() && i < 20; i++) {
        const ini_model::line &line = before.lines[i];
        const std::string key = line.key.value_or("new key");
        if (i % 3 == 2) {
            unsigned int count = 0;
            vel_inifile_delete_all(inifile, c_str(line.section), key.c_str(), &count);
            FUZZ_REQUIRE(count == model->delete_all(line.section, key));
        } else {
            const ini_model::name section = i % 3 ? ini_model::name(line.value) : line.section;
            FUZZ_REQUIRE(vel_inifile_set(inifile, c_str(section), key.c_str(),
                                         line.value.c_str()) == VEL_ERROR_NONE);
            model->set(section, key, line.value);
        }
        FUZZ_REQUIRE(written(inifile) == model->text());
    }
}

/* The text means what a plain reader finds in it, before and after edits, and what is written can be
 * read again. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(data, data + size);
    support::write_file(inname, text);
    vel_error_t error = -1;
    velinifile *inifile = vel_inifile_create_from_file(inname.c_str(), &error);

    ini_model model;
    const bool wrong = model.parse(text).number != 0;
    FUZZ_REQUIRE(error == (wrong ? VEL_ERROR_INVALID_SYNTAX : VEL_ERROR_NONE));
    FUZZ_REQUIRE((inifile == nullptr) == wrong);
    if (!inifile)
        return 0;
    require_values(inifile, model);

    velinifile *again = vel_inifile_create_from_file(outname.c_str(), &error);
    FUZZ_REQUIRE(again && error == VEL_ERROR_NONE);
    require_values(again, model);
    vel_inifile_destroy(again);

    edit(inifile, &model);
    require_values(inifile, model);
    vel_inifile_destroy(inifile);
    return 0;
}
