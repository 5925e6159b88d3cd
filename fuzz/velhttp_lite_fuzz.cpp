/* What is defined here must not be an inline function of the headers already. */
#undef _FORTIFY_SOURCE

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <netdb.h>
#include <netinet/in.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vellib/velhttp_lite.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "fuzz.h"

/* The first byte of the input is how many bytes a read gives at most, 0 for no limit; the rest is
 * what the server says, on every connection. */
static size_t readlimit;
static std::string answer;
static int peer = -1;

/* More does not fit the buffer of a connection that nobody reads meanwhile. */
static const size_t kMaxAnswer = 60000;

/* A connection to anywhere is one to this program, which has said all already. */
int connect(int descriptor, const sockaddr *, socklen_t)
{
    int pair[2];
    FUZZ_REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair) == 0);
    FUZZ_REQUIRE(dup2(pair[0], descriptor) == descriptor);
    close(pair[0]);
    if (peer >= 0)
        close(peer);
    peer = pair[1];
    FUZZ_REQUIRE(write(peer, answer.data(), answer.size()) == static_cast<ssize_t>(answer.size()));
    shutdown(peer, SHUT_WR);
    return 0;
}

ssize_t recvfrom(int descriptor, void *buffer, size_t size, int flags, sockaddr *sender,
                 socklen_t *length)
{
    const size_t given = std::min(size, readlimit);
    if (given > 0) {
        /* The sanitizer does not see what the system writes. */
        auto *bytes = static_cast<volatile char *>(buffer);
        bytes[0] = 0;
        bytes[given - 1] = 0;
    }
    return syscall(SYS_recvfrom, descriptor, buffer, given, flags, sender, length);
}

/* Every name is known. */
int getaddrinfo(const char *, const char *, const addrinfo *hints, addrinfo **result)
{
    static sockaddr_in address;
    static addrinfo info;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    info = *hints;
    info.ai_family = AF_INET;
    info.ai_addr = static_cast<sockaddr *>(static_cast<void *>(&address));
    info.ai_addrlen = sizeof address;
    info.ai_next = nullptr;
    *result = &info;
    return 0;
}

void freeaddrinfo(addrinfo *) noexcept
{
}

int LLVMFuzzerInitialize(int *, char ***)
{
    signal(SIGPIPE, SIG_IGN);
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* A header without a colon ends the process by contract, so every line but the first gets one. */
static std::string with_colons(std::string_view text)
{
    std::string changed;
    for (bool first = true; !text.empty(); first = false) {
        const size_t feed = text.find('\n');
        const std::string_view line = text.substr(0, feed);
        text.remove_prefix(feed == text.npos ? text.size() : feed + 1);
        const std::string_view shown = line.substr(0, line.find('\0'));
        changed += shown;
        if (!first && !line.empty() && line != "\r" && shown.find(':') == shown.npos)
            changed += ':';
        changed += line.substr(shown.size());
        if (feed != text.npos)
            changed += '\n';
    }
    return changed;
}

/* What the client is to make of an answer. */
struct response {
    vel_error_t result = VEL_ERROR_NONE;
    unsigned int status = 0;
    std::map<std::string, std::string> headers;
    std::string body;
};

static bool take_line(std::string_view &text, std::string &line, vel_error_t &result)
{
    static const size_t kRoom = 4096;
    const size_t feed = text.find('\n');
    if (feed >= kRoom) {
        result = text.size() >= kRoom ? VEL_ERROR_MESSAGE_TOO_LONG : VEL_ERROR_END_OF_FILE;
        return false;
    }
    std::string_view taken = text.substr(0, feed);
    text.remove_prefix(feed + 1);
    if (taken.ends_with('\r'))
        taken.remove_suffix(1);
    line = taken.substr(0, taken.find('\0'));
    return true;
}

static bool take_status(const std::string &line, unsigned int &status)
{
    const size_t blank = line.find(' ');
    if (!line.starts_with("HTTP/") || blank == line.npos)
        return false;
    unsigned int code = 0;
    for (size_t at = blank + 1; at < line.size() && line[at] != ' '; at++) {
        if (line[at] < '0' || line[at] > '9')
            return false;
        code = code * 10 + static_cast<unsigned int>(line[at] - '0');
        if (code >= 1000)
            return false;
    }
    status = code;
    return true;
}

static void take_body(std::string_view text, response &expected)
{
    size_t len = text.size();
    const auto found = expected.headers.find("content-length");
    if (found != expected.headers.end()) {
        errno = 0;
        const long value = strtol(found->second.c_str(), nullptr, 10);
        if (errno == 0 && value >= 0 && value <= INT_MAX)
            len = std::min(len, static_cast<size_t>(value));
    }
    if (expected.status != 401 && expected.status != 407)
        expected.body = text.substr(0, len);
}

static response expect(std::string_view text)
{
    response expected;
    std::string line;
    if (!take_line(text, line, expected.result))
        return expected;
    if (!take_status(line, expected.status)) {
        expected.result = VEL_ERROR_PROTOCOL;
        return expected;
    }
    while (take_line(text, line, expected.result)) {
        if (line.empty()) {
            take_body(text, expected);
            break;
        }
        const size_t colon = line.find(':');
        const size_t value = line.find_first_not_of(' ', colon + 1);
        std::string name = line.substr(0, colon);
        for (char &c : name)
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
        expected.headers[name] = value == line.npos ? "" : line.substr(value);
    }
    return expected;
}

static void check(velhttp *http, const response &expected)
{
    FUZZ_REQUIRE(vel_http_get_status_code(http) == expected.status);
    for (const auto &[name, value] : expected.headers) {
        const char *found = vel_http_get_response_header(http, name.c_str());
        FUZZ_REQUIRE(found);
        FUZZ_REQUIRE(value == found);
    }
    char *body;
    size_t size;
    (void)vel_http_get_response_body_and_size(http, &body, &size);
    FUZZ_REQUIRE(expected.body == std::string_view(body ? body : "", size));
    vel_free(body);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    readlimit = data[0] > 0 ? data[0] : SIZE_MAX;
    answer = with_colons(
        std::string_view(static_cast<const char *>(static_cast<const void *>(data + 1)), size - 1));
    if (answer.size() > kMaxAnswer)
        return 0;

    velhttp *http = vel_http_lite_create();
    FUZZ_REQUIRE(http);
    FUZZ_REQUIRE(vel_http_set_url(http, "http://host/") == VEL_ERROR_NONE);
    const response expected = expect(answer);
    const vel_error_t result = vel_http_perform(http);
    if (expected.result != VEL_ERROR_NONE || (expected.status != 301 && expected.status != 302)) {
        FUZZ_REQUIRE(result == expected.result);
        check(http, expected);
    }
    vel_http_destroy(http);
    close(peer);
    peer = -1;
    return 0;
}
