/* SHA-1 and SHA-256 against OpenSSL and GLib: one whole hash of a message, with a context that each
 * contender keeps. OpenSSL comes three times: through EVP, through the functions below it that it
 * calls deprecated and that cost the least, and in one call, which looks the hash up each time. */
#define OPENSSL_SUPPRESS_DEPRECATED

#include <cstdlib>
#include <functional>
#include <random>

#include <glib.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <vellib/velsha1.h>
#include <vellib/velsha256.h>

#include "bench.h"

namespace {

struct message {
    std::vector<unsigned char> bytes;
    unsigned char digest[32];

    explicit message(size_t size) : bytes(size)
    {
        std::mt19937_64 random(size);
        for (unsigned char &byte : bytes)
            byte = static_cast<unsigned char>(random());
    }
};

using contender = std::function<void(message &)>;

contender evp(const EVP_MD *md)
{
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    return [md, context](message &message) {
        if (!EVP_DigestInit_ex(context, md, nullptr) ||
            !EVP_DigestUpdate(context, message.bytes.data(), message.bytes.size()) ||
            !EVP_DigestFinal_ex(context, message.digest, nullptr))
            abort();
    };
}

contender glib(GChecksumType type)
{
    GChecksum *checksum = g_checksum_new(type);
    return [checksum](message &message) {
        gsize size = sizeof(message.digest);
        g_checksum_reset(checksum);
        g_checksum_update(checksum, message.bytes.data(),
                          static_cast<gssize>(message.bytes.size()));
        g_checksum_get_digest(checksum, message.digest, &size);
    };
}

struct row {
    const char *name;
    std::vector<contender> contenders;
};

row sha1_row()
{
    velsha1 *context = vel_sha1_create();
    return {
        "SHA-1",
        {[context](message &message) {
             vel_sha1_init(context);
             vel_sha1_update(context, message.bytes.data(), message.bytes.size());
             vel_sha1_finalize(context);
             vel_sha1_digest(context, message.digest);
         },
         evp(EVP_MD_fetch(nullptr, "SHA1", nullptr)),
         [](message &message) {
             SHA_CTX low;
             SHA1_Init(&low);
             SHA1_Update(&low, message.bytes.data(), message.bytes.size());
             SHA1_Final(message.digest, &low);
         },
         [](message &message) { SHA1(message.bytes.data(), message.bytes.size(), message.digest); },
         glib(G_CHECKSUM_SHA1)}};
}

row sha256_row()
{
    velsha256 *context = vel_sha256_create();
    return {"SHA-256",
            {[context](message &message) {
                 vel_sha256_init(context);
                 vel_sha256_update(context, message.bytes.data(), message.bytes.size());
                 vel_sha256_finalize(context);
                 vel_sha256_digest(context, message.digest);
             },
             evp(EVP_MD_fetch(nullptr, "SHA256", nullptr)),
             [](message &message) {
                 SHA256_CTX low;
                 SHA256_Init(&low);
                 SHA256_Update(&low, message.bytes.data(), message.bytes.size());
                 SHA256_Final(message.digest, &low);
             },
             [](message &message) {
                 SHA256(message.bytes.data(), message.bytes.size(), message.digest);
             },
             glib(G_CHECKSUM_SHA256)}};
}

void bench_row(const row &row, const char *size, message &message)
{
    const size_t calls = 1 + 200000 / (message.bytes.size() + 100);
    const std::string name = std::string(row.name) + ", " + size;
    bench::measure_row(name, row.contenders.size(), 101, [&](size_t i) {
        return bench::sample(calls, [&] {
            row.contenders[i](message);
            bench::keep(message.digest);
        });
    });
}

} // namespace

int main()
{
    bench::print_header("ns a hash",
                        {"vellib", "OpenSSL EVP", "OpenSSL low level", "OpenSSL one call", "GLib"});
    const row rows[] = {sha1_row(), sha256_row()};
    const struct {
        const char *name;
        size_t size;
    } sizes[] = {{"64 B", 64}, {"1 KiB", 1 << 10}, {"1 MiB", 1 << 20}};
    for (const auto &size : sizes) {
        message message(size.size);
        for (const row &row : rows)
            bench_row(row, size.name, message);
    }
    return 0;
}
