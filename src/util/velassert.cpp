#include "util/velassert.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/uio.h>
#include <unistd.h>

static iovec vel_assert_piece(const char *text)
{
    return {const_cast<char *>(text), strlen(text)};
}

/* Nothing is allocated and no stream is used: the state of both is unknown here. */
void vel_assert_fail(const char *function, const char *file, int line, const char *expression)
{
    char number[16];
    snprintf(number, sizeof(number), "%d", line);

    const iovec pieces[] = {
        vel_assert_piece("Assertion failed: ("),
        vel_assert_piece(expression),
        vel_assert_piece("), function "),
        vel_assert_piece(function),
        vel_assert_piece(", file "),
        vel_assert_piece(file),
        vel_assert_piece(", line "),
        vel_assert_piece(number),
        vel_assert_piece(".\n"),
    };
    (void)!writev(STDERR_FILENO, pieces, sizeof(pieces) / sizeof(pieces[0]));
    abort();
}

void vel_assert_unreachable(const char *modulepath, int line)
{
    fprintf(stderr, "%s:%d: Assertion failed.\n", modulepath, line);
    abort();
}
