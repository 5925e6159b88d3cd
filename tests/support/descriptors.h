#ifndef TESTS_SUPPORT_DESCRIPTORS_H
#define TESTS_SUPPORT_DESCRIPTORS_H

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <iterator>
#include <set>
#include <sys/socket.h>
#include <vector>

namespace support {

/* The descriptors that the process has open. */
inline std::set<int> descriptors()
{
    std::set<int> found;
    DIR *directory = opendir("/proc/self/fd");
    while (const dirent *entry = readdir(directory)) {
        if (entry->d_name[0] != '.' && atoi(entry->d_name) != dirfd(directory))
            found.insert(atoi(entry->d_name));
    }
    closedir(directory);
    return found;
}

/* Those that are open now and were not before, in ascending order. */
inline std::vector<int> descriptors_since(const std::set<int> &before)
{
    const std::set<int> now = descriptors();
    std::vector<int> added;
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                        std::back_inserter(added));
    return added;
}

inline int socket_option(int descriptor, int option)
{
    int value = -1;
    socklen_t length = sizeof value;
    return getsockopt(descriptor, SOL_SOCKET, option, &value, &length) == 0 ? value : -1;
}

} // namespace support

#endif
