/* What is defined here must not be an inline function of the headers already. */
#undef _FORTIFY_SOURCE

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <vellib/velicap.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "fuzz.h"
#include "support/icaplayout.h"

/* The first byte of the input is the method and whether the message that is sent is in chunks, the
 * second one how many bytes a read gives at most, 0 for no limit; the rest is what the server says. */
static size_t readlimit;
static std::string answer;
static int peer = -1;

/* More does not fit the buffer of a connection that nobody reads meanwhile. */
static const size_t kMaxAnswer = 60000;
static const size_t kLine = 4096;

/* A connection to anywhere is one to this program, which has said all already. */
int connect(int descriptor, const sockaddr *, socklen_t)
{
    int pair[2];
    FUZZ_REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair) == 0);
    FUZZ_REQUIRE(dup2(pair[0], descriptor) == descriptor);
    close(pair[0]);
    peer = pair[1];
    FUZZ_REQUIRE(write(peer, answer.data(), answer.size()) == static_cast<ssize_t>(answer.size()));
    shutdown(peer, SHUT_WR);
    return 0;
}

ssize_t recv(int descriptor, void *buffer, size_t size, int flags)
{
    const size_t given = std::min(size, readlimit);
    /* The sanitizer does not see what the system writes. */
    auto *bytes = static_cast<volatile char *>(buffer);
    bytes[0] = 0;
    bytes[given - 1] = 0;
    return syscall(SYS_recvfrom, descriptor, buffer, given, flags, nullptr, nullptr);
}

int LLVMFuzzerInitialize(int *, char ***)
{
    signal(SIGPIPE, SIG_IGN);
    vel_log_stderr_disable(nullptr);
    return 0;
}

/* What the client is to make of an answer. */
struct response {
    vel_error_t result = VEL_ERROR_NONE;
    unsigned int status = 0;
    std::string icapheaders;
    std::string headers;
    std::string body;
};

/* Takes a line with its end, or gives the reason why there is none. */
static vel_error_t take_line(std::string_view &text, std::string_view *lineptr)
{
    const size_t feed = text.find('\n');
    if (feed >= kLine) {
        if (text.size() >= kLine)
            return VEL_ERROR_MESSAGE_TOO_LONG;
        return text.empty() ? VEL_ERROR_END_OF_FILE : VEL_ERROR_INTERNAL;
    }
    *lineptr = text.substr(0, feed + 1);
    text.remove_prefix(feed + 1);
    return VEL_ERROR_NONE;
}

static std::string_view without_end(std::string_view line)
{
    line.remove_suffix(1);
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

static vel_error_t take_status(std::string_view &text, unsigned int *statusptr)
{
    std::string_view line;
    const vel_error_t error = take_line(text, &line);
    if (error)
        return error;
    line = without_end(line);
    line = line.substr(0, line.find('\0'));
    const size_t blank = line.find(' ');
    if (!line.starts_with("ICAP/") || blank == line.npos)
        return VEL_ERROR_PROTOCOL;
    unsigned int code = 0;
    for (size_t at = blank + 1; at < line.size() && line[at] != ' '; at++) {
        if (line[at] < '0' || line[at] > '9')
            return VEL_ERROR_PROTOCOL;
        code = code * 10 + static_cast<unsigned int>(line[at] - '0');
        if (code >= 1000)
            return VEL_ERROR_PROTOCOL;
    }
    *statusptr = code;
    return VEL_ERROR_NONE;
}

/* The headers in one line: a CR in it separates as well. */
static bool take_headers_of_line(std::string_view line, std::map<std::string, std::string> &headers)
{
    while (true) {
        const size_t end = std::min(line.find('\r'), line.find('\0'));
        const std::string_view header = line.substr(0, end);
        if (header.empty())
            return true;
        const size_t colon = header.find(':');
        if (colon == header.npos)
            return false;
        std::string name(header.substr(0, colon));
        for (char &c : name)
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
        const std::string_view value = header.substr(colon + 1);
        const size_t begin = value.find_first_not_of(" \t");
        headers[name] = begin == value.npos
                            ? ""
                            : value.substr(begin, value.find_last_not_of(" \t") + 1 - begin);
        if (end == line.npos || line[end] == '\0')
            return true;
        line.remove_prefix(end + 1);
    }
}

static vel_error_t take_headers(std::string_view &text, std::map<std::string, std::string> &headers,
                                std::string &icapheaders)
{
    while (true) {
        std::string_view line;
        const vel_error_t error = take_line(text, &line);
        if (error)
            return error;
        icapheaders += line;
        line = without_end(line);
        if (line.empty())
            return VEL_ERROR_NONE;
        if (!take_headers_of_line(line, headers))
            return VEL_ERROR_INVALID_SYNTAX;
    }
}

static vel_error_t take_body(std::string_view &text, bool chunked, std::string &body)
{
    for (uint64_t left = 1; left > 0;) {
        std::string_view line;
        const vel_error_t error = take_line(text, &line);
        if (error)
            return error;
        line = without_end(line);
        if (line.empty())
            break;
        std::string_view number = line.substr(0, line.find('\0'));
        const support::icap_number size = support::icap_take_number(number, 16);
        if (!size.ranged || !number.empty())
            return VEL_ERROR_PROTOCOL;
        left = size.value;
        const std::string_view data = text.substr(0, left);
        text.remove_prefix(data.size());
        if (chunked)
            body.append(line).append("\r\n").append(data).append("\r\n");
        else
            body += data;
        text.remove_prefix(std::min(text.find('\n'), std::min(text.size(), kLine) - 1) + 1);
    }
    body += chunked ? "0\r\n\r\n" : "";
    return VEL_ERROR_NONE;
}

static response expect(std::string_view text, unsigned int method, bool chunked)
{
    response expected;
    std::map<std::string, std::string> headers;
    expected.result = take_status(text, &expected.status);
    if (!expected.result)
        expected.result = take_headers(text, headers, expected.icapheaders);
    if (expected.result || expected.status == 204)
        return expected;
    const auto found = headers.find("encapsulated");
    if (found == headers.end()) {
        expected.result = VEL_ERROR_PROTOCOL;
        return expected;
    }
    support::icap_layout layout;
    expected.result = support::icap_layout_of(method, found->second, &layout);
    if (expected.result)
        return expected;
    expected.headers = text.substr(0, layout.body);
    text.remove_prefix(expected.headers.size());
    if (layout.hasbody)
        expected.result = take_body(text, chunked, expected.body);
    return expected;
}

static void check(velicap *icap, const response &expected)
{
    FUZZ_REQUIRE(vel_icap_get_status_code(icap) == expected.status);
    char *text;
    size_t size;
    (void)vel_icap_get_response_icap_headers(icap, &text);
    FUZZ_REQUIRE(!text == expected.icapheaders.empty());
    FUZZ_REQUIRE(!text ||
                 !memcmp(text, expected.icapheaders.c_str(), expected.icapheaders.size() + 1));
    vel_free(text);
    (void)vel_icap_get_response_headers(icap, &text);
    FUZZ_REQUIRE(!text == expected.headers.empty());
    FUZZ_REQUIRE(!text || !memcmp(text, expected.headers.c_str(), expected.headers.size() + 1));
    vel_free(text);
    (void)vel_icap_get_response_body_and_size(icap, &text, &size);
    FUZZ_REQUIRE(expected.body == std::string_view(text ? text : "", size));
    vel_free(text);
}

static void prepare(velicap *icap, unsigned int method, bool chunked)
{
    const std::string headers = std::string("GET / HTTP/1.1\r\n") +
                                (chunked ? "Transfer-Encoding: chunked\r\n\r\n" : "\r\n");
    FUZZ_REQUIRE(vel_icap_set_url(icap, "icap+unix://socket/svc") == VEL_ERROR_NONE);
    if (method == 3) {
        vel_icap_set_method_options(icap);
    } else if (method == 2) {
        vel_icap_set_method_respmod(icap);
        FUZZ_REQUIRE(!vel_icap_set_response_headers(icap, headers.data(), headers.size()));
    } else {
        vel_icap_set_method_reqmod(icap);
        FUZZ_REQUIRE(!vel_icap_set_request_headers(icap, headers.data(), headers.size()));
    }
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2 || size - 2 > kMaxAnswer)
        return 0;
    const unsigned int method = data[0] % 3 + 1;
    const bool chunked = data[0] >= 128 && method != 3;
    readlimit = data[1] > 0 ? data[1] : SIZE_MAX;
    answer.assign(static_cast<const char *>(static_cast<const void *>(data + 2)), size - 2);

    velicap *icap = vel_icap_create();
    FUZZ_REQUIRE(icap);
    prepare(icap, method, chunked);
    const response expected = expect(answer, method, chunked);
    FUZZ_REQUIRE(vel_icap_perform(icap) == expected.result);
    check(icap, expected);
    vel_icap_destroy(icap);
    close(peer);
    return 0;
}
