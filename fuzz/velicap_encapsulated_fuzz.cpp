#include <cstring>
#include <string>

#include <vellib/vellog.h>

#include "fuzz.h"
#include "net/velicap_internal.h"
#include "support/icaplayout.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* The first byte of the input is the method; the rest is the value of the header, up to a NUL. */
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static velicap *const icap = vel_icap_create();
    FUZZ_REQUIRE(icap);
    if (size == 0)
        return 0;
    const auto *bytes = static_cast<const char *>(static_cast<const void *>(data + 1));
    const std::string text(bytes, strnlen(bytes, size - 1));

    support::icap_layout expected = {77, 78, 79};
    icap->method = data[0] % 5;
    icap->headeroffset = expected.header;
    icap->bodyoffset = expected.body;
    icap->hasbody = static_cast<uint32_t>(expected.hasbody);
    const vel_error_t result = support::icap_layout_of(icap->method, text, &expected);
    FUZZ_REQUIRE(vel_icap_parse_encapsulated_header(icap, text.c_str()) == result);
    FUZZ_REQUIRE(icap->headeroffset == expected.header);
    FUZZ_REQUIRE(icap->bodyoffset == expected.body);
    FUZZ_REQUIRE(static_cast<int>(icap->hasbody) == expected.hasbody);
    return 0;
}
