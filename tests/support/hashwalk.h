#ifndef TESTS_SUPPORT_HASHWALK_H
#define TESTS_SUPPORT_HASHWALK_H

#include <cstddef>
#include <iterator>
#include <random>
#include <utility>
#include <vector>

namespace support {

/* Chooses the steps of a long seeded run over a table, so that every growth up to 21845 slots and
 * every shrink back is crossed many times, with lookups and replacements in between. The caller
 * keeps the set of keys by added, removed and cleared. */
class hash_walk {
  public:
    enum step { kAdd, kReplace, kRemove, kHit, kMiss, kClear };

    hash_walk(unsigned seed, int keys) : random_(seed), positions_(keys, -1)
    {
    }

    /* Gives the step and its key. */
    std::pair<step, int> next()
    {
        if (static_cast<int>(present_.size()) == kStages[stage_])
            stage_ = (stage_ + 1) % std::size(kStages);
        const bool growing = static_cast<int>(present_.size()) < kStages[stage_];
        const unsigned dice = static_cast<unsigned>(random_() % 100);
        if (random_() % (present_.size() < 12 ? 100 : 50000) == 0)
            return {kClear, 0};
        if (dice < 60)
            return growing ? std::pair{kAdd, absent()} : std::pair{kRemove, present()};
        if (dice < 70)
            return {kMiss, absent()};
        if (present_.empty())
            return {kAdd, absent()};
        if (dice < 85)
            return {kHit, present()};
        if (dice < 92)
            return {kReplace, present()};
        return growing ? std::pair{kRemove, present()} : std::pair{kAdd, absent()};
    }

    /* Has a table take the next step: add, remove or find a key, or clear. */
    template <typename Table> void take_step(Table &table)
    {
        const auto [what, key] = next();
        switch (what) {
        case kAdd:
        case kReplace:
            table.add(key);
            break;
        case kRemove:
            table.remove(key);
            break;
        case kHit:
        case kMiss:
            table.find(key);
            break;
        case kClear:
            table.clear();
            break;
        }
    }

    void added(int key)
    {
        positions_[key] = static_cast<int>(present_.size());
        present_.push_back(key);
    }

    void removed(int key)
    {
        const int last = present_.back();
        present_[positions_[key]] = last;
        positions_[last] = positions_[key];
        positions_[key] = -1;
        present_.pop_back();
    }

    void cleared()
    {
        while (!present_.empty())
            removed(present_.back());
    }

    size_t size() const
    {
        return present_.size();
    }

  private:
    /* The numbers of items that the run heads for, one after the other. */
    static constexpr int kStages[] = {3,   0,    7,   1,   25, 2,   90, 5,   400, 30,
                                      1,   1700, 140, 700, 0,  60,  8,  330, 2,   5100,
                                      600, 1300, 3,   20,  0,  530, 80, 100, 9,   0};

    int present()
    {
        return present_[random_() % present_.size()];
    }

    int absent()
    {
        size_t key = random_() % positions_.size();
        while (positions_[key] >= 0)
            key = (key + 1) % positions_.size();
        return static_cast<int>(key);
    }

    std::mt19937 random_;
    size_t stage_ = 0;
    std::vector<int> present_;
    std::vector<int> positions_; /* in present_, or -1 */
};

} // namespace support

#endif
