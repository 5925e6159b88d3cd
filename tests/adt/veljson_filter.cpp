/* Gives back what is read of JSON texts, for a test that compares it with another implementation:
 * of each text, which stands behind its length and a line feed, "-" or "+" and the text that is
 * written of it, as a line of its own. A written text has no line feed. */
#include <cstdio>
#include <cstdlib>
#include <string>

#include <vellib/vellib.h>

int main()
{
    vel_log_stderr_disable(nullptr);
    veljson *document = vel_json_create();
    if (!document)
        return EXIT_FAILURE;
    unsigned long length;
    while (scanf("%lu", &length) == 1) {
        if (getchar() != '\n')
            return EXIT_FAILURE;
        std::string text(length, '\0');
        if (fread(text.data(), 1, length, stdin) != length)
            return EXIT_FAILURE;
        if (vel_json_parse(document, text.c_str()) != 0) {
            puts("-");
            continue;
        }
        char *written = vel_json_output(document);
        if (!written)
            return EXIT_FAILURE;
        printf("+%s\n", written);
        vel_free(written);
    }
    vel_json_destroy(document);
    return EXIT_SUCCESS;
}
