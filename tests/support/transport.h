#ifndef TESTS_SUPPORT_TRANSPORT_H
#define TESTS_SUPPORT_TRANSPORT_H

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/logcapture.h"

namespace support {

/* What a transport does when it is asked once. */
struct transport_turn {
    std::string bytes;                     /* for a read: what is there; empty is a count of 0 */
    vel_error_t velerror = VEL_ERROR_NONE; /* stored in the handle, unless it is -1 */
    size_t room = 0;                       /* for a write: how many bytes are taken */
    std::function<void()> before = [] {};  /* runs first */
};

/* The bytes of a read. */
inline transport_turn bytes(const std::string &text)
{
    transport_turn turn;
    turn.bytes = text;
    return turn;
}

/* The room for a write. */
inline transport_turn room(size_t count)
{
    transport_turn turn;
    turn.room = count;
    return turn;
}

/* A count of 0, for a reason. */
inline transport_turn fails_with(vel_error_t velerror)
{
    transport_turn turn;
    turn.velerror = velerror;
    return turn;
}

/* A count of 0, without one. */
inline transport_turn fails_silently()
{
    return fails_with(-1);
}

/* A made-up transport of one handle. Bytes of a turn that do not fit stay for the next read; past
 * the last turn is the end of the file. */
class transport {
  public:
    transport() : velhandle_(vel_handle_create())
    {
        EXPECT_NE(velhandle_, nullptr);
        vel_handle_set_context(velhandle_, this);
        vel_handle_set_read_callback(velhandle_, read);
        vel_handle_set_write_callback(velhandle_, write);
        vel_handle_set_poll_write_callback(velhandle_, poll_write);
    }
    ~transport()
    {
        vel_handle_destroy(velhandle_);
    }
    transport(const transport &) = delete;
    transport &operator=(const transport &) = delete;

    velhandle *handle()
    {
        return velhandle_;
    }

    std::deque<transport_turn> reads;
    std::deque<transport_turn> writes;
    std::deque<vel_error_t> polls;

    std::vector<size_t> asked;                          /* of each read */
    std::vector<std::pair<int, unsigned int>> timeouts; /* during each read */
    std::vector<vel_error_t> errors;                    /* of the handle, when a callback began */
    std::string written;
    std::vector<size_t> offered; /* of each write */

  private:
    static transport *of(velhandle *velhandle)
    {
        auto *self = static_cast<transport *>(vel_handle_get_context(velhandle));
        EXPECT_EQ(self->velhandle_, velhandle);
        self->errors.push_back(vel_handle_get_error(velhandle));
        return self;
    }

    static size_t read(velhandle *velhandle, void *buf, size_t count)
    {
        transport *self = of(velhandle);
        self->asked.push_back(count);
        auto &timeout = self->timeouts.emplace_back(77, 77u);
        vel_handle_get_read_timeout(velhandle, &timeout.first, &timeout.second);
        if (self->reads.empty()) {
            vel_handle_set_error(velhandle, VEL_ERROR_END_OF_FILE);
            return 0;
        }
        transport_turn &turn = self->reads.front();
        turn.before();
        turn.before = [] {};
        if (turn.velerror != -1)
            vel_handle_set_error(velhandle, turn.velerror);
        const size_t given = std::min(count, turn.bytes.size());
        memcpy(buf, turn.bytes.data(), given);
        turn.bytes.erase(0, given);
        if (turn.bytes.empty())
            self->reads.pop_front();
        return given;
    }

    static size_t write(velhandle *velhandle, const void *buf, size_t count)
    {
        transport *self = of(velhandle);
        self->offered.push_back(count);
        if (self->writes.empty()) {
            ADD_FAILURE() << "unexpected write of " << count;
            vel_handle_set_error(velhandle, VEL_ERROR_INTERNAL);
            return 0;
        }
        const transport_turn turn = self->writes.front();
        self->writes.pop_front();
        turn.before();
        const size_t taken = std::min(count, turn.room);
        if (taken == 0 && turn.velerror != -1)
            vel_handle_set_error(velhandle, turn.velerror);
        self->written.append(static_cast<const char *>(buf), taken);
        return taken;
    }

    static vel_error_t poll_write(velhandle *velhandle)
    {
        transport *self = of(velhandle);
        if (self->polls.empty()) {
            ADD_FAILURE() << "unexpected poll";
            return VEL_ERROR_INTERNAL;
        }
        const vel_error_t velerror = self->polls.front();
        self->polls.pop_front();
        return velerror;
    }

    velhandle *velhandle_;
};

using log_lines = std::vector<log_line>;

inline log_line handle_line(int level, const std::string &text)
{
    return {"io/velhandle", level, text};
}

class transport_test : public testing::Test {
  protected:
    std::string read(size_t count)
    {
        std::string result(count, '?');
        result.resize(vel_handle_read(handle_, result.data(), count));
        return result;
    }
    std::string read_line(size_t size)
    {
        std::string result(size, '?');
        result.resize(vel_handle_read_line(handle_, result.data(), size));
        return result;
    }
    vel_error_t error()
    {
        return vel_handle_get_error(handle_);
    }
    void expect_read_timeout(int seconds, unsigned int microseconds)
    {
        int gotseconds = 77;
        unsigned int gotmicroseconds = 77;
        vel_handle_get_read_timeout(handle_, &gotseconds, &gotmicroseconds);
        EXPECT_EQ(gotseconds, seconds);
        EXPECT_EQ(gotmicroseconds, microseconds);
    }

    transport transport_;
    velhandle *const handle_ = transport_.handle();
    log_capture log_;
};

} // namespace support

#endif
