/* Loads a text domain for vellocalization_po_test.py and looks strings up in it.
 *
 * vellocalization_filter LOCALEPATH TEXTDOMAIN: prints the code of the load and the languages, each
 * ended by a NUL. Then it reads pairs of a language and a string, each ended by a NUL, and answers
 * with the translation behind a "+", or with "-", ended by a NUL as well. The log goes to standard
 * error. */

#include <vellib/vellocalization.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include <cstdio>
#include <iostream>
#include <string>

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    vel_log_stderr_set_level(nullptr, 12);
    vellocalization *localization = vel_localization_create();
    if (!localization)
        return 1;
    std::cout << vel_localization_load_utf8(localization, argv[1], argv[2]) << '\0';
    char *list = vel_localization_list_languages(localization);
    std::cout << list << '\0';
    vel_free(list);

    std::string language, string;
    while (std::getline(std::cin, language, '\0') && std::getline(std::cin, string, '\0')) {
        vellanguage *vellanguage = vel_localization_language_get(localization, language.c_str());
        const char *text = vel_localization_localize(vellanguage, string.c_str());
        std::cout << (text ? "+" : "-") << (text ? text : "") << '\0';
    }
    vel_localization_destroy(localization);
    return 0;
}
