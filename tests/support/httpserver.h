#ifndef TESTS_SUPPORT_HTTPSERVER_H
#define TESTS_SUPPORT_HTTPSERVER_H

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace support {

/* What a connection does behind its answer. */
enum class http_ending {
    close, /* ends its direction, and takes what the client still sends */
    hold,  /* waits for the client to close, taking what it still sends */
    keep,  /* goes on with the next exchange */
    reset  /* resets the connection at once */
};

/* One request and its answer, of bytes that need not be HTTP. */
struct http_exchange {
    std::string answer;
    http_ending ending = http_ending::close;
    size_t bodylen = 0; /* of the request behind its head */
    bool reads = true;  /* false: answers without having read anything */
    bool gated = false; /* answers when open_gate was called */
};

/* A server on a free loopback port, or on a UNIX-domain socket, with one thread, which serves one
 * connection after the other by a script. Its thread uses no function of the library, and it allocates nothing. Every wait is
 * bounded; a failure of the platform ends the program. */
class http_server {
  public:
    /* With repeats, the script begins again at its end, until finish is called. With a path, that is
     * the socket, which is removed with the server. */
    explicit http_server(std::vector<http_exchange> script, bool repeats = false,
                         const std::string &path = "");
    ~http_server();
    http_server(const http_server &) = delete;
    http_server &operator=(const http_server &) = delete;

    unsigned int port() const
    {
        return port_;
    }

    /* "http://127.0.0.1:PORT" and the rest. */
    std::string url(const std::string &rest) const;

    void open_gate();

    /* Waits until a request is complete. False if none is in time. */
    bool wait_for_request();

    /* Ends the thread, which serves the connections that it has. Gives what the client sent in each
     * exchange that began; with repeats, in the exchanges of the last round. */
    std::vector<std::string> finish();

  private:
    bool listen_locally();
    bool listen_on_loopback();
    void run();
    void serve(int connection, size_t *stepptr);
    bool exchange(int connection, const http_exchange &step, std::string &request);
    bool wait_readable(int descriptor) const;

    const std::vector<http_exchange> script_;
    const bool repeats_;
    const std::string path_;
    std::vector<std::string> requests_;
    size_t begun_ = 0;
    int listener_ = -1;
    int stop_[2] = {-1, -1};
    unsigned int port_ = 0;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool gateopen_ = false;
    size_t complete_ = 0;
    std::thread thread_;
};

} // namespace support

#endif
