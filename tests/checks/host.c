/* A test program as a host writes one: C99, the installed library alone, and its own harness. Each
 * case is an ordinary use, and gives back what it has when a step fails, so that the program can be
 * run with failing allocations as well: then checks fail, and nothing else goes wrong. */

#include <stdio.h>
#include <string.h>

#include <vellib/vellib.h>

static int same(const char *text, const char *expected)
{
    return text && strcmp(text, expected) == 0;
}

static void test_options(veltestcase *testcase, void *context)
{
    char program[] = "prog", count[] = "-n", seven[] = "7", loud[] = "--loud", file[] = "file";
    char *argv[] = {program, count, seven, loud, file, NULL};
    int number = 0, flag = 0;
    velgetopt *options = vel_getopt_create();

    (void)context;
    VEL_TEST_EXPECT(testcase, options != NULL);
    if (!options)
        return;
    VEL_TEST_EXPECT(testcase,
                    vel_getopt_int(options, "number", 'n', &number, "N", "A number.") == 0);
    VEL_TEST_EXPECT(testcase, vel_getopt_flag_set(options, "loud", 0, &flag, "A flag.") == 0);
    VEL_TEST_EXPECT(testcase, vel_getopt_parse(options, 5, argv) == 0);
    VEL_TEST_EXPECT(testcase, number == 7 && flag == 1);
    VEL_TEST_EXPECT(testcase, vel_getopt_optind(options) == 4);
    vel_getopt_destroy(options);
}

static void test_format(veltestcase *testcase, void *context)
{
    char *text = vel_format(context, "name", "World", (char *)NULL);

    VEL_TEST_EXPECT(testcase, same(text, "Hello World, 100%"));
    vel_free(text);
}

static void test_json(veltestcase *testcase, void *context)
{
    const char *name;
    veljson *json = vel_json_create();

    VEL_TEST_EXPECT(testcase, json != NULL);
    if (!json)
        return;
    VEL_TEST_EXPECT(testcase, vel_json_parse(json, context) == 0);
    VEL_TEST_EXPECT(testcase,
                    vel_json_fetch_string(json, &name, "list", "#", 1UL, (char *)NULL) == 0 &&
                        same(name, "b"));
    vel_json_destroy(json);
}

static void test_url(veltestcase *testcase, void *context)
{
    velurl *url = vel_url_create();

    VEL_TEST_EXPECT(testcase, url != NULL);
    if (!url)
        return;
    if (vel_url_set_url(url, context) == VEL_ERROR_NONE)
        VEL_TEST_EXPECT(testcase, same(vel_url_get_host(url), "localhost"));
    else
        VEL_TEST_EXPECT(testcase, !"the URL was refused");
    vel_url_destroy(url);
}

/* Saves a catalogue and looks a string up in it. */
static void test_localization(veltestcase *testcase, void *context)
{
    const char *catalogue = context;
    vellocalization *localization;

    VEL_TEST_EXPECT(testcase, vel_utf8mkdir_recursive("texts") == VEL_ERROR_NONE);
    VEL_TEST_EXPECT(
        testcase, vel_file_data_save_with_backup("texts/de.po", catalogue, strlen(catalogue)) == 0);
    localization = vel_localization_create();
    VEL_TEST_EXPECT(testcase, localization != NULL);
    if (!localization)
        return;
    if (vel_localization_load_utf8(localization, ".", "texts") == VEL_ERROR_NONE) {
        vellanguage *language = vel_localization_language_get(localization, "de");

        VEL_TEST_EXPECT(testcase, same(vel_localization_localize(language, "yes"), "ja"));
    } else {
        VEL_TEST_EXPECT(testcase, !"the catalogue was not loaded");
    }
    vel_localization_destroy(localization);
}

static const struct {
    vel_test_function_cb *function;
    const char *context;
} cases[] = {
    {test_options, NULL},
    {test_format, "Hello %name%, 100%%"},
    {test_json, "{\"list\": [\"a\", \"b\"]}"},
    {test_url, "http://localhost:8080/"},
    {test_localization, "msgid \"yes\"\nmsgstr \"ja\"\n"},
};

int main(int argc, char **argv)
{
    size_t i;
    int result = 1;
    veltest *suite = vel_test_create("host");

    if (suite && vel_test_parse_arguments(suite, argc, argv) == 0) {
        result = 0;
        for (i = 0; i < sizeof(cases) / sizeof(cases[0]); i++)
            result |= vel_test_add(suite, cases[i].function, (void *)cases[i].context);
        result |= vel_test_run(suite);
        if (vel_test_summary(suite) < 0)
            result = 1;
    }
    if (suite)
        vel_test_destroy(suite);
    vel_uninit();
    return result == 0 ? 0 : 1;
}
