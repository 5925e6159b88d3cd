#ifndef TESTS_SUPPORT_REPEAT_H
#define TESTS_SUPPORT_REPEAT_H

namespace support {

/* Calls the body with 0, 1 and so on from one and the same place, so that the call stacks are the
 * same. A plain loop may be unrolled into several places. */
template <typename Body> [[gnu::noinline]] void repeat_in_place(int times, const Body &body)
{
    volatile const int end = times;
    for (int turn = 0; turn < end; turn++)
        body(turn);
}

} // namespace support

#endif
