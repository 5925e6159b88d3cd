#ifndef TESTS_SUPPORT_HASHMODEL_H
#define TESTS_SUPPORT_HASHMODEL_H

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <utility>
#include <vector>

namespace support {

/* What vel_hash_debug_state gives. */
struct hash_state {
    size_t mainentries, mainslots, biggerentries, biggerslots, smallerentries, smallerslots;

    bool operator==(const hash_state &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const hash_state &state)
{
    return out << "main " << state.mainentries << "/" << state.mainslots << " bigger "
               << state.biggerentries << "/" << state.biggerslots << " smaller "
               << state.smallerentries << "/" << state.smallerslots;
}

/* The incremental hash table without links, pointers and cursors: keys are numbers, a slot is a
 * vector, and each rule of resizing is followed word by word. A key is in the table once. */
class hash_model {
  public:
    using keylist = std::vector<int>;

    struct outcome {
        bool found = false;       /* replaced, removed or looked up */
        std::optional<int> moved; /* the key that went from the main array to the target */
    };

    explicit hash_model(std::function<size_t(int)> hash) : hash_(std::move(hash))
    {
    }

    outcome add(int key)
    {
        outcome result;
        result.found = take_out(main_, key);
        const bool resizing = is_resizing();
        if (resizing)
            result.found |= take_out(target(), key);
        append(target(), key);
        if (resizing)
            result.moved = move_one_item();
        else if (main_.entries >= main_.slots.size() - main_.slots.size() / 10)
            bigger_.emplace(main_.slots.size() * 4 + 1);
        return result;
    }

    outcome lookup(int key)
    {
        if (contains(target(), key))
            return {true, {}};
        if (!is_resizing() || !take_out(main_, key))
            return {};
        append(target(), key);
        check_if_main_empty();
        return {true, key};
    }

    /* The key must have been looked up before. */
    outcome remove(int key)
    {
        outcome result;
        result.found = take_out(target(), key);
        if (is_resizing())
            result.moved = move_one_item();
        else if (main_.entries <= main_.slots.size() / 10 && main_.slots.size() > kMinimum)
            smaller_.emplace(std::max((main_.slots.size() - 1) / 4, kMinimum));
        return result;
    }

    /* Gives the keys in the order in which they are destroyed. */
    keylist clear()
    {
        keylist keys;
        for (const std::optional<slotarray> &each :
             {bigger_, smaller_, std::optional<slotarray>(main_)})
            if (each)
                list_keys(keys, *each);
        bigger_.reset();
        smaller_.reset();
        main_ = slotarray(kMinimum);
        return keys;
    }

    keylist enumerate()
    {
        keylist keys;
        list_keys(keys, target());
        if (is_resizing())
            list_keys(keys, main_);
        return keys;
    }

    hash_state state() const
    {
        return {main_.entries,
                main_.slots.size(),
                bigger_ ? bigger_->entries : 0,
                bigger_ ? bigger_->slots.size() : 0,
                smaller_ ? smaller_->entries : 0,
                smaller_ ? smaller_->slots.size() : 0};
    }

    bool is_resizing() const
    {
        return bigger_ || smaller_;
    }

  private:
    static constexpr size_t kMinimum = 5;

    struct slotarray {
        explicit slotarray(size_t slotcount) : slots(slotcount)
        {
        }

        std::vector<keylist> slots;
        size_t entries = 0;
    };

    slotarray &target()
    {
        return bigger_ ? *bigger_ : smaller_ ? *smaller_ : main_;
    }

    keylist &slot(slotarray &array, int key)
    {
        return array.slots[hash_(key) % array.slots.size()];
    }

    bool contains(slotarray &array, int key)
    {
        const keylist &keys = slot(array, key);
        return std::find(keys.begin(), keys.end(), key) != keys.end();
    }

    bool take_out(slotarray &array, int key)
    {
        keylist &keys = slot(array, key);
        const auto it = std::find(keys.begin(), keys.end(), key);
        if (it == keys.end())
            return false;
        keys.erase(it);
        array.entries--;
        return true;
    }

    void append(slotarray &array, int key)
    {
        slot(array, key).push_back(key);
        array.entries++;
    }

    std::optional<int> move_one_item()
    {
        std::optional<int> moved;
        for (const keylist &keys : main_.slots) {
            if (!keys.empty()) {
                moved = keys.front();
                break;
            }
        }
        if (moved) {
            take_out(main_, *moved);
            append(target(), *moved);
        }
        check_if_main_empty();
        return moved;
    }

    void check_if_main_empty()
    {
        if (main_.entries > 0)
            return;
        slotarray next = std::move(target());
        bigger_.reset();
        smaller_.reset();
        main_ = std::move(next);
    }

    static void list_keys(keylist &keys, const slotarray &array)
    {
        for (const keylist &each : array.slots)
            keys.insert(keys.end(), each.begin(), each.end());
    }

    std::function<size_t(int)> hash_;
    slotarray main_{kMinimum};
    std::optional<slotarray> bigger_;
    std::optional<slotarray> smaller_;
};

} // namespace support

#endif
