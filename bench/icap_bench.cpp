/* RESPMOD over loopback: the ICAP client beside c-icap's own client library, both with a connection
 * for each exchange, and beside the same exchange over bare sockets with every system call that the
 * contract of the client asks for and no other. Small messages go to c-icap. Large ones go to a
 * server of this program, which takes the whole message before it answers, as the service of c-icap
 * does not: a client that sends all before it reads would never end. With the arguments --once
 * CONTENDER PORT SERVICE SIZE COUNT it only exchanges, for strace and for its peak memory. */
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <c-icap.h>
#include <header.h>
#include <request.h>
}

#include <vellib/velicap.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "bench.h"
#include "support/peer.h"

namespace {

constexpr size_t kLarge = 64 << 20;

/* What is sent, and to which service. */
struct job {
    unsigned int port;
    std::string service;
    std::string body;

    std::string url() const
    {
        return "icap://127.0.0.1:" + std::to_string(port) + "/" + service;
    }
};

const std::string kRequest = "GET http://x/y HTTP/1.1\r\nHost: x\r\n\r\n";
const std::string kResponse = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n\r\n";

void check(bool condition, const char *what)
{
    if (condition)
        return;
    fprintf(stderr, "%s\n", what);
    exit(1);
}

void exchange_vellib(const job &job)
{
    static velicap *icap = vel_icap_create();
    char *body = nullptr;
    size_t size = 0;
    vel_icap_reset(icap);
    vel_icap_set_method_respmod(icap);
    check(vel_icap_set_url(icap, job.url().c_str()) == VEL_ERROR_NONE &&
              vel_icap_set_request_headers(icap, kRequest.data(), kRequest.size()) ==
                  VEL_ERROR_NONE &&
              vel_icap_set_response_headers(icap, kResponse.data(), kResponse.size()) ==
                  VEL_ERROR_NONE &&
              vel_icap_set_response_body(icap, job.body.data(), job.body.size()) ==
                  VEL_ERROR_NONE &&
              vel_icap_perform(icap) == VEL_ERROR_NONE && vel_icap_get_status_code(icap) == 200 &&
              vel_icap_get_response_body_and_size(icap, &body, &size) == VEL_ERROR_NONE &&
              size == job.body.size(),
          "an exchange of vellib failed");
    vel_free(body);
}

/* Where the peer takes the body from, and where it puts what comes back. */
struct transfer {
    const std::string *source;
    size_t sent;
    std::string received;
};

int give_body(void *context, char *buffer, int size)
{
    auto *transfer = static_cast<struct transfer *>(context);
    const size_t left = transfer->source->size() - transfer->sent;
    const size_t count = std::min(left, static_cast<size_t>(size));
    if (count == 0)
        return CI_EOF;
    memcpy(buffer, transfer->source->data() + transfer->sent, count);
    transfer->sent += count;
    return static_cast<int>(count);
}

int take_body(void *context, char *buffer, int size)
{
    static_cast<transfer *>(context)->received.append(buffer, static_cast<size_t>(size));
    return size;
}

void exchange_c_icap(const job &job)
{
    ci_connection_t *connection =
        ci_connect_to("127.0.0.1", static_cast<int>(job.port), AF_INET, 60);
    check(connection, "c-icap's client cannot connect");
    ci_request_t *request = ci_client_request(connection, "127.0.0.1", job.service.c_str());
    request->type = ICAP_RESPMOD;
    request->preview = -1;
    ci_headers_list_t *http = ci_headers_create(), *answer = ci_headers_create();
    ci_headers_add(http, "GET http://x/y HTTP/1.1");
    ci_headers_add(http, "Host: x");
    ci_headers_add(answer, "HTTP/1.1 200 OK");
    ci_headers_add(answer, "Content-Type: text/plain");
    transfer transfer = {&job.body, 0, {}};
    const int status =
        ci_client_icapfilter(request, 60, http, answer, &transfer, give_body, &transfer, take_body);
    check(status > 0 && transfer.received.size() == job.body.size(),
          "an exchange of c-icap's client failed");
    ci_headers_destroy(http);
    ci_headers_destroy(answer);
    ci_connection_hard_close(connection);
    ci_request_destroy(request);
}

void send_bare(int s, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t count = send(s, data, size, 0);
        pollfd pollfd = {s, POLLOUT, 0};
        check(count >= 0 || errno == EAGAIN, "a bare socket cannot send");
        if (count < 0) {
            poll(&pollfd, 1, -1);
            continue;
        }
        data += count;
        size -= static_cast<size_t>(count);
    }
}

void send_bare(int s, const std::string &data)
{
    send_bare(s, data.data(), data.size());
}

/* Goes on until the zero chunk has come, which no x of the body can be mistaken for. */
void receive_bare(int s)
{
    static char buffer[4096 + 8];
    size_t kept = 0;
    for (;;) {
        ssize_t count = recv(s, buffer + kept, 4096, 0);
        if (count < 0) {
            pollfd pollfd = {s, POLLIN, 0};
            poll(&pollfd, 1, -1);
            continue;
        }
        check(count > 0, "a bare socket was closed");
        const size_t length = kept + static_cast<size_t>(count);
        if (memmem(buffer, length, "\r\n0\r\n\r\n", 7))
            return;
        kept = std::min<size_t>(length, 6);
        memmove(buffer, buffer + length - kept, kept);
    }
}

void exchange_bare(const job &job)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(job.port));
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    int error = 0;
    socklen_t length = sizeof(error);
    pollfd pollfd = {s, POLLOUT, 0};
    fcntl(s, F_SETFL, fcntl(s, F_GETFL) | O_NONBLOCK);
    (void)!connect(s, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    poll(&pollfd, 1, -1);
    getsockopt(s, SOL_SOCKET, SO_ERROR, &error, &length);
    check(error == 0, "a bare socket cannot connect");

    const std::string offset = std::to_string(kRequest.size());
    char sizeline[32];
    snprintf(sizeline, sizeof(sizeline), "%zx\r\n", job.body.size());
    send_bare(s,
              "RESPMOD " + job.url() + " ICAP/1.0\r\nHost: 127.0.0.1:" + std::to_string(job.port) +
                  "\r\nEncapsulated: req-hdr=0, res-hdr=" + offset +
                  ", res-body=" + std::to_string(kRequest.size() + kResponse.size()) + "\r\n\r\n");
    send_bare(s, kRequest);
    send_bare(s, kResponse);
    send_bare(s, sizeline);
    send_bare(s, job.body);
    send_bare(s, "\r\n0\r\n\r\n");
    receive_bare(s);
    close(s);
}

struct contender {
    const char *name;
    void (*exchange)(const job &job);
};

const std::vector<contender> kContenders = {
    {"vellib", exchange_vellib}, {"c-icap's client", exchange_c_icap}, {"floor", exchange_bare}};

/* ---- the server that takes all before it answers --------------------------------------------- */

std::string make_answer(size_t chunksize)
{
    char sizeline[32];
    std::string answer =
        "ICAP/1.0 200 OK\r\nEncapsulated: res-hdr=0, res-body=" + std::to_string(kResponse.size()) +
        "\r\n\r\n" + kResponse;
    for (size_t left = kLarge; left > 0;) {
        const size_t size = std::min(left, chunksize);
        snprintf(sizeline, sizeof(sizeline), "%zx\r\n", size);
        answer += sizeline + std::string(size, 'x') + "\r\n";
        left -= size;
    }
    return answer + "0\r\n\r\n";
}

/* The service "small" answers in chunks as c-icap makes them, "large" in one chunk. */
[[noreturn]] void serve(int listener)
{
    const std::string small = make_answer(0xfe0), large = make_answer(kLarge);
    static char buffer[1 << 18];
    for (;;) {
        const int s = accept(listener, nullptr, nullptr);
        bool islarge = false, isfirst = true;
        std::string tail;
        for (ssize_t count; (count = recv(s, buffer, sizeof(buffer), 0)) > 0; isfirst = false) {
            const auto length = static_cast<size_t>(count);
            if (isfirst)
                islarge = memmem(buffer, std::min<size_t>(length, 100), "/large", 6) != nullptr;
            tail.append(buffer + (length > 7 ? length - 7 : 0), std::min<size_t>(length, 7));
            tail.erase(0, tail.size() > 7 ? tail.size() - 7 : 0);
            if (tail == "\r\n0\r\n\r\n")
                break;
        }
        const std::string &answer = islarge ? large : small;
        for (size_t sent = 0; sent < answer.size();) {
            const ssize_t count = send(s, answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                break;
            sent += static_cast<size_t>(count);
        }
        close(s);
    }
}

pid_t start_server(unsigned int *portptr)
{
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    check(bind(listener, reinterpret_cast<sockaddr *>(&address), length) == 0 &&
              listen(listener, 8) == 0 &&
              getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) == 0,
          "cannot listen");
    *portptr = ntohs(address.sin_port);
    const pid_t server = fork();
    if (server == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        serve(listener);
    }
    close(listener);
    return server;
}

/* ---- measuring ------------------------------------------------------------------------------- */

/* One row of wall clock and one of the client's processor time, in units of so many us. */
void bench_exchange(const std::string &name, const job &job, size_t exchanges, int rounds,
                    double unit)
{
    bench::measure_both_times(name, kContenders.size(), rounds, exchanges, unit,
                              [&](size_t i) { kContenders[i].exchange(job); });
}

/* Exchanges count times in a process of its own, below a command that watches it. Returns the peak of
 * its memory in MiB, which it prints. */
double run_once(const std::string &before, const char *self, const contender &contender,
                const job &job, int count)
{
    const std::string command = before + self + " --once \"" + contender.name + "\" " +
                                std::to_string(job.port) + " " + job.service + " " +
                                std::to_string(job.body.size()) + " " + std::to_string(count);
    FILE *output = popen(command.c_str(), "r");
    double peak = 0;
    const bool isread = output && fscanf(output, "%lf", &peak) == 1;
    check(output && pclose(output) == 0 && isread, command.c_str());
    return peak;
}

/* The peak since the program began; that of getrusage counts what its parent had, too. */
double own_peak()
{
    std::ifstream in("/proc/self/status");
    double kib = 0;
    for (std::string line; std::getline(in, line);)
        (void)sscanf(line.c_str(), "VmHWM: %lf", &kib);
    return kib / 1024;
}

double count_calls(const char *self, const contender &contender, const job &job, int count,
                   const std::string &output)
{
    run_once("strace -f -o " + output + " ", self, contender, job, count);
    std::ifstream in(output);
    double calls = 0;
    for (std::string line; std::getline(in, line);)
        calls++;
    return calls;
}

void bench_calls(const std::string &name, const char *self, const job &job, int count,
                 const std::string &output)
{
    std::vector<double> calls;
    for (const contender &contender : kContenders)
        calls.push_back((count_calls(self, contender, job, count + 1, output) -
                         count_calls(self, contender, job, 1, output)) /
                        count);
    bench::print_row(name, calls);
}

void bench_memory(const std::string &name, const char *self, const job &job)
{
    std::vector<double> peaks;
    for (const contender &contender : kContenders)
        peaks.push_back(run_once("", self, contender, job, 1));
    bench::print_row(name, peaks);
}

int exchange_once(char **argv)
{
    const job job = {static_cast<unsigned int>(atoi(argv[3])), argv[4],
                     std::string(static_cast<size_t>(atol(argv[5])), 'x')};
    for (const contender &contender : kContenders)
        if (strcmp(contender.name, argv[2]) == 0) {
            for (int i = 0; i < atoi(argv[6]); i++)
                contender.exchange(job);
            printf("%f\n", own_peak());
            return 0;
        }
    return 1;
}

} // namespace

int main(int argc, char **argv)
{
    vel_log_stderr_disable(nullptr);
    ci_client_library_init();
    if (argc == 7 && strcmp(argv[1], "--once") == 0)
        return exchange_once(argv);

    unsigned int port = 0;
    const pid_t server = start_server(&port);
    support::peer c_icap;
    support::setup_c_icap(c_icap);
    if (!c_icap.failure().empty()) {
        fprintf(stderr, "%s\n", c_icap.failure().c_str());
        kill(server, SIGKILL);
        return 1;
    }
    const std::vector<std::string> names = bench::names_of(kContenders);
    const job tiny = {c_icap.port(), "echo", std::string(1000, 'x')};
    const job small = {port, "small", std::string(kLarge, 'x')};
    const job large = {port, "large", std::string(kLarge, 'x')};
    const std::string calls = c_icap.path("calls");

    bench::print_header("us an exchange with c-icap", names);
    bench_exchange("1000 bytes", tiny, 50, 41, 1);
    bench::print_header("ms an exchange of 64 MiB, body kept", names);
    bench_exchange("answer in chunks of 4064", small, 1, 9, 1000);
    bench_exchange("answer in one chunk", large, 1, 9, 1000);
    bench::print_header("system calls an exchange", names);
    bench_calls("1000 bytes", argv[0], tiny, 20, calls);
    bench_calls("64 MiB, answer in chunks of 4064", argv[0], small, 1, calls);
    bench_calls("64 MiB, answer in one chunk", argv[0], large, 1, calls);
    bench::print_header("peak memory, MiB", names);
    bench_memory("64 MiB, answer in one chunk", argv[0], large);
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
    return 0;
}
