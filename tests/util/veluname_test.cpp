#include <vellib/velgethostname.h>
#include <vellib/veluname.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/utsname.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellog.h>
#include <vellib/velmalloc.h>

#include "support/allocfail.h"
#include "support/eachfailure.h"
#include "support/logcapture.h"
#include "support/oom.h"
#include "support/platform_function.h"
#include "support/rows.h"

using support::log_line;

using log_lines = std::vector<log_line>;

/* ---- a system of the test's own ---- */

namespace {

/* Takes the place of the platform's names while it lives. */
struct fake_system {
    fake_system()
    {
        active = this;
    }
    ~fake_system()
    {
        active = nullptr;
    }

    int error = 0; /* what the calls fail with */
    utsname names = {};
    std::string hostname = "";
    size_t buffersize = 0; /* that gethostname was given */

    static inline fake_system *active;
};

} // namespace

extern "C" {

int uname(utsname *names) noexcept
{
    const fake_system *system = fake_system::active;
    if (!system)
        return support::platform_function<int(utsname *)>("uname")(names);
    if (system->error) {
        errno = system->error;
        return -1;
    }
    *names = system->names;
    return 0;
}

/* Does not terminate a name that it cuts, which the standard allows. */
int gethostname(char *name, size_t size) noexcept
{
    fake_system *system = fake_system::active;
    if (!system)
        return support::platform_function<int(char *, size_t)>("gethostname")(name, size);
    system->buffersize = size;
    if (system->error) {
        errno = system->error;
        return -1;
    }
    memset(name, '?', size);
    memcpy(name, system->hostname.c_str(), std::min(size, system->hostname.size() + 1));
    return 0;
}

/* A lock may leave any errno behind, as all that succeeds may. */
int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept
{
    const int result =
        support::platform_function<int(pthread_mutex_t *)>("pthread_mutex_lock")(mutex);
    if (fake_system::active)
        errno = EBUSY;
    return result;
}

} // extern "C"

static std::optional<std::string> taken(char *string)
{
    if (!string)
        return std::nullopt;
    std::string text = string;
    vel_free(string);
    return text;
}

/* ---- the functions side by side ---- */

struct identity_case {
    const char *name;
    char *(*function)();
    const char *command;      /* tells the same */
    const char *made;         /* of the system of the test's own */
    log_lines failure;        /* with errno 14 */
    log_lines memoryfailures; /* one for each allocation */
};

static const identity_case kIdentityCases[] = {
    {"Sysname",
     vel_uname_sysname,
     "uname -s",
     "Testix",
     {},
     {{"util/veluname", 7, "not enough memory for the operating system name"}}},
    {"Nodename",
     vel_uname_nodename,
     "uname -n",
     "node.example",
     {{"util/veluname", 7, "uname() failed, errno 14"}},
     {{"util/veluname", 7, "not enough memory for the node name"}}},
    {"Version",
     vel_uname_version,
     "uname -r -v",
     "1.2.3 #4 SMP of a Monday",
     {{"util/veluname", 7, "uname() returned an error"}},
     {{"util/veluname", 7, "not enough memory for the operating system version"}}},
    {"Architecture",
     vel_uname_architecture,
     "uname -m",
     "pdp11",
     {{"util/veluname", 6, "uname() failed, errno 14"}},
     {{"util/veluname", 7, "not enough memory for the machine architecture"}}},
    {"Hostname",
     vel_gethostname,
     "uname -n",
     "host.example",
     {{"util/velgethostname", 7, "gethostname() failed: errno 14"}},
     {{"util/velgethostname", 7, "not enough memory for gethostname() buffer"},
      {"util/velgethostname", 7, "not enough memory for hostname"}}},
};

class VelunameCase : public testing::TestWithParam<identity_case> {
  protected:
    void SetUp() override
    {
        strcpy(system.names.sysname, "Testix");
        strcpy(system.names.nodename, "node.example");
        strcpy(system.names.release, "1.2.3");
        strcpy(system.names.version, "#4 SMP of a Monday");
        strcpy(system.names.machine, "pdp11");
        system.hostname = "host.example";
    }

    fake_system system;
    support::log_capture log;
};

static std::string said_by(const char *command)
{
    FILE *pipe = popen(command, "r");
    std::string text;
    for (int character; (character = fgetc(pipe)) != EOF;)
        text += static_cast<char>(character);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_TRUE(text.ends_with("\n"));
    return text.substr(0, text.size() - 1);
}

TEST_P(VelunameCase, AgreesWithCommand)
{
    fake_system::active = nullptr;
    EXPECT_EQ(taken(GetParam().function()), said_by(GetParam().command));
    EXPECT_EQ(log.take(), (log_lines{}));
}

TEST_P(VelunameCase, GivesItsField)
{
    EXPECT_EQ(taken(GetParam().function()), GetParam().made);
    EXPECT_EQ(log.take(), (log_lines{}));
}

TEST_P(VelunameCase, FailureOfPlatform)
{
    system.error = EFAULT;
    EXPECT_EQ(taken(GetParam().function()), std::nullopt);
    EXPECT_EQ(log.take(), GetParam().failure);
}

/* The line has the errno of the call, and not one that the log's own lock leaves. */
TEST_P(VelunameCase, FailureOfPlatformWithThreadedLog)
{
    ASSERT_EQ(vel_log_init_threaded(), 0);
    system.error = EFAULT;
    EXPECT_EQ(taken(GetParam().function()), std::nullopt);
    EXPECT_EQ(log.take(), GetParam().failure);
}

TEST_P(VelunameCase, FailedAllocations)
{
    support::warm_log(log);
    EXPECT_EQ(support::allocfail_lines(
                  log, [] { return taken(GetParam().function()) == GetParam().made; }),
              GetParam().memoryfailures);
}

INSTANTIATE_TEST_SUITE_P(All, VelunameCase, testing::ValuesIn(kIdentityCases), support::row_name());

/* ---- host names of all lengths ---- */

TEST(Velgethostname, LongNamesAreCut)
{
    fake_system system;
    for (const size_t length : {0, 1, 64, 255, 256, 257, 1000}) {
        system.hostname = std::string(length, 'h');
        EXPECT_EQ(taken(vel_gethostname()), std::string(std::min<size_t>(length, 256), 'h'));
        EXPECT_EQ(system.buffersize, 257u);
    }
}

TEST(VelunameOom, Life)
{
    support::vel_oom_drive([] {
        for (const identity_case &row : kIdentityCases)
            if (!taken(row.function()))
                return false;
        return true;
    });
}
