#ifndef TESTS_SUPPORT_GUARDEDPAGES_H
#define TESTS_SUPPORT_GUARDEDPAGES_H

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

namespace support {

/* Memory whose end is the end of what may be touched: an access behind it is a crash, also in code
 * that a sanitizer does not watch. */
class guarded_pages {
  public:
    guarded_pages()
    {
        void *start =
            mmap(nullptr, 2 * kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (start == MAP_FAILED)
            abort();
        start_ = static_cast<char *>(start);
        if (mprotect(start_ + kSize, kSize, PROT_NONE) != 0)
            abort();
    }
    ~guarded_pages()
    {
        munmap(start_, 2 * kSize);
    }
    guarded_pages(const guarded_pages &) = delete;
    guarded_pages &operator=(const guarded_pages &) = delete;

    /* Copies a block of up to 64 KiB to the end of the memory. */
    void *place(const void *data, size_t size) const
    {
        char *placed = start_ + kSize - size;
        if (size > 0)
            memcpy(placed, data, size);
        return placed;
    }

  private:
    static constexpr size_t kSize = 64 * 1024;
    char *start_;
};

} // namespace support

#endif
