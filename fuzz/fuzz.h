#ifndef VELLIB_FUZZ_FUZZ_H
#define VELLIB_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/* What libFuzzer calls, and replay.cpp too. */
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

/* Ends the program where what must hold does not. */
#define FUZZ_REQUIRE(...)                                                                          \
    do {                                                                                           \
        if (!(__VA_ARGS__)) {                                                                      \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #__VA_ARGS__);       \
            abort();                                                                               \
        }                                                                                          \
    } while (0)

#endif
