/* Fetches over loopback from nginx: the HTTP client beside libcurl, both with HTTP/1.0 and a
 * connection for each fetch, and beside the same exchange over bare sockets. With the arguments
 * --once CONTENDER URL COUNT it only fetches, for strace to count the system calls. */
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <curl/curl.h>

#include <vellib/velhttp.h>
#include <vellib/velhttp_lite.h>
#include <vellib/vellog.h>

#include "bench.h"
#include "support/peer.h"

namespace {

size_t received;

vel_error_t take_vellib(const void *, size_t size, void *)
{
    received += size;
    return VEL_ERROR_NONE;
}

void perform_vellib(velhttp *http, const std::string &url)
{
    vel_http_set_response_body_callback(http, take_vellib, nullptr);
    if (vel_http_set_url(http, url.c_str()) != VEL_ERROR_NONE ||
        vel_http_perform(http) != VEL_ERROR_NONE || vel_http_get_status_code(http) != 200)
        abort();
}

void fetch_vellib(const std::string &url)
{
    velhttp *http = vel_http_lite_create();
    perform_vellib(http, url);
    vel_http_destroy(http);
}

void fetch_vellib_reused(const std::string &url)
{
    static velhttp *http = vel_http_lite_create();
    perform_vellib(http, url);
}

size_t take_curl(const char *, size_t size, size_t count, void *)
{
    received += size * count;
    return size * count;
}

void perform_curl(CURL *curl, const std::string &url)
{
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_0);
    curl_easy_setopt(curl, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take_curl);
    if (curl_easy_perform(curl) != CURLE_OK)
        abort();
}

void fetch_curl(const std::string &url)
{
    CURL *curl = curl_easy_init();
    perform_curl(curl, url);
    curl_easy_cleanup(curl);
}

void fetch_curl_reused(const std::string &url)
{
    static CURL *curl = curl_easy_init();
    perform_curl(curl, url);
}

/* What any client has to do, with the buffer that the library has for a piece of a body. */
void fetch_bare(const std::string &url)
{
    const size_t slash = url.find('/', strlen("http://"));
    const size_t colon = url.rfind(':');
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(atoi(url.c_str() + colon + 1)));
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    const std::string request = "GET " + url.substr(slash) + " HTTP/1.0\r\nHost: h\r\n\r\n";
    if (connect(s, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        send(s, request.data(), request.size(), 0) < 0)
        abort();
    static char buffer[4096];
    for (ssize_t count; (count = recv(s, buffer, sizeof(buffer), 0)) > 0;)
        received += static_cast<size_t>(count);
    close(s);
}

struct contender {
    const char *name;
    void (*fetch)(const std::string &url);
};

/* What is made anew for each fetch, and what is kept. */
const std::vector<contender> kNewHandle = {
    {"vellib", fetch_vellib}, {"curl", fetch_curl}, {"bare sockets", fetch_bare}};
const std::vector<contender> kReusedHandle = {{"vellib, reused handle", fetch_vellib_reused},
                                              {"curl, reused handle", fetch_curl_reused},
                                              {"bare sockets", fetch_bare}};

/* One row of wall clock and one of the client's processor time, in microseconds a fetch. */
void bench_fetch(const std::vector<contender> &contenders, const std::string &name,
                 const std::string &url, size_t fetches, int rounds)
{
    bench::measure_both_times(name, contenders.size(), rounds, fetches, 1,
                              [&](size_t i) { contenders[i].fetch(url); });
}

/* System calls of count fetches by a process of its own, counted by strace. */
double count_calls(const char *self, const char *contender, const std::string &url, int count,
                   const std::string &output)
{
    const std::string command = std::string("strace -f -o ") + output + " " + self + " --once '" +
                                contender + "' " + url + " " + std::to_string(count);
    if (system(command.c_str()) != 0) {
        fprintf(stderr, "strace is needed to count system calls\n");
        exit(1);
    }
    std::ifstream in(output);
    double calls = 0;
    for (std::string line; std::getline(in, line);)
        calls++;
    return calls;
}

void bench_calls(const std::vector<contender> &contenders, const char *self,
                 const std::string &name, const std::string &url, const std::string &output)
{
    std::vector<double> calls;
    for (const contender &contender : contenders)
        calls.push_back((count_calls(self, contender.name, url, 21, output) -
                         count_calls(self, contender.name, url, 1, output)) /
                        20);
    bench::print_row(name, calls);
}

int fetch_once(const std::string &name, const char *url, int count)
{
    for (const auto &contenders : {kNewHandle, kReusedHandle})
        for (const contender &contender : contenders)
            if (name == contender.name) {
                for (int i = 0; i < count; i++)
                    contender.fetch(url);
                return 0;
            }
    return 1;
}

void make_file(support::peer &peer, const char *name, size_t size)
{
    std::ofstream(peer.path(std::string("html/") + name)) << std::string(size, 'x');
}

} // namespace

int main(int argc, char **argv)
{
    vel_log_stderr_disable(nullptr);
    if (argc == 5 && strcmp(argv[1], "--once") == 0)
        return fetch_once(argv[2], argv[3], atoi(argv[4]));

    support::peer nginx;
    support::setup_nginx(nginx, "");
    if (!nginx.failure().empty()) {
        fprintf(stderr, "%s\n", nginx.failure().c_str());
        return 1;
    }
    make_file(nginx, "small", 100);
    make_file(nginx, "medium", 1 << 20);
    make_file(nginx, "large", 256 << 20);

    for (const auto &contenders : {kNewHandle, kReusedHandle}) {
        const std::vector<std::string> names = bench::names_of(contenders);
        bench::print_header("us a fetch", names);
        bench_fetch(contenders, "100 B", nginx.url("/small"), 50, 61);
        bench_fetch(contenders, "1 MiB", nginx.url("/medium"), 10, 41);
        bench_fetch(contenders, "256 MiB", nginx.url("/large"), 1, 9);
        bench::print_header("system calls a fetch", names);
        bench_calls(contenders, argv[0], "100 B", nginx.url("/small"), nginx.path("calls"));
        bench_calls(contenders, argv[0], "1 MiB", nginx.url("/medium"), nginx.path("calls"));
    }
    return 0;
}
