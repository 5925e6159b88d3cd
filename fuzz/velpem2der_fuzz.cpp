#include <string_view>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>
#include <vellib/velpem2der.h>

#include "fuzz.h"

int LLVMFuzzerInitialize(int *, char ***)
{
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* Each certificate takes two markers of the text, so the loop ends; and what ends it stays. */
static void check_certificates(velpem2der *velpem2der, size_t size)
{
    void *block;
    size_t len, delivered = 0;
    vel_error_t result;
    while ((result = vel_pem2der_next(velpem2der, &block, &len)) == VEL_ERROR_NONE) {
        FUZZ_REQUIRE(block && len <= size);
        FUZZ_REQUIRE(static_cast<const char *>(block)[len] == '\0');
        FUZZ_REQUIRE(++delivered <= size / 52);
        vel_free(block);
    }
    FUZZ_REQUIRE(!block && len == 0);
    FUZZ_REQUIRE(vel_pem2der_next(velpem2der, &block, &len) == result);
    FUZZ_REQUIRE(!block && len == 0);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string_view text(static_cast<const char *>(static_cast<const void *>(data)), size);
    const bool begins = text.find("-----BEGIN CERTIFICATE-----") != std::string_view::npos;

    vel_error_t error = VEL_ERROR_GENERIC;
    velpem2der *velpem2der = vel_pem2der_create(data, size, &error);
    FUZZ_REQUIRE(error == (begins ? VEL_ERROR_NONE : VEL_ERROR_NOT_FOUND));
    FUZZ_REQUIRE((velpem2der != nullptr) == begins);
    if (velpem2der) {
        check_certificates(velpem2der, size);
        vel_pem2der_destroy(velpem2der);
    }
    return 0;
}
