/* The handles of pending operations, and the two lists that they stand in. */

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vellib/vellib.h>

#include "support/assertion.h"
#include "support/logcapture.h"

namespace {

using support::asserts;
using log_lines = std::vector<support::log_line>;
using names = std::vector<std::string>;

/* What cancel callbacks have been called with. */
struct canceled {
    names *called;
    std::string name;
    std::vector<velasyncop *> cancels; /* more to cancel then */
    velasyncoperations *operations;
};

void cancel(void *context)
{
    auto *one = static_cast<canceled *>(context);
    one->called->push_back(one->name);
    for (velasyncop *op : one->cancels)
        vel_async_operations_cancel(one->operations, op);
}

class VelasyncOperations : public testing::Test {
  protected:
    void SetUp() override
    {
        operations_ = vel_async_operations_create();
        ASSERT_NE(operations_, nullptr);
    }
    void TearDown() override
    {
        vel_async_operations_destroy(operations_);
        EXPECT_EQ(log_.take(), log_lines{});
    }
    /* An operation in the active list. */
    velasyncop *active(canceled *context)
    {
        context->called = &called_;
        context->operations = operations_;
        velasyncop *op = vel_async_handle_create(cancel, context);
        EXPECT_NE(op, nullptr);
        vel_async_operations_append_active(operations_, op);
        return op;
    }

    support::log_capture log_;
    velasyncoperations *operations_ = nullptr;
    names called_;
};

TEST(VelasyncHandle, CancelCallsBackWithTheContext)
{
    names called;
    canceled context = {&called, "a", {}, nullptr};
    velasyncop *op = vel_async_handle_create(cancel, &context);
    ASSERT_NE(op, nullptr);
    vel_async_handle_cancel(op);
    vel_async_handle_cancel(op); /* the handle itself keeps no account */
    vel_async_handle_destroy(op);
    EXPECT_EQ(called, (names{"a", "a"}));
}

/* The links stand first, as those of any item. */
TEST(VelasyncHandle, StandsInListsAtTheTail)
{
    vel_list *list = vel_list_create();
    ASSERT_NE(list, nullptr);
    velasyncop *ops[3];
    for (velasyncop *&op : ops) {
        op = vel_async_handle_create(cancel, nullptr);
        ASSERT_NE(op, nullptr);
        vel_async_handle_append(op, list);
        EXPECT_EQ(list->head, ops[0]);
        EXPECT_EQ(list->tail, op);
    }
    const auto *middle = static_cast<const vel_listlink *>(static_cast<const void *>(ops[1]));
    EXPECT_EQ(middle->next, ops[2]);
    EXPECT_EQ(middle->prev, ops[0]);
    vel_async_handle_remove(ops[1], list);
    EXPECT_EQ(static_cast<const vel_listlink *>(list->head)->next, ops[2]);
    vel_async_handle_remove(ops[0], list);
    EXPECT_EQ(list->head, ops[2]);
    vel_async_handle_remove(ops[2], list);
    EXPECT_EQ(list->head, nullptr);
    EXPECT_EQ(list->tail, nullptr);
    for (velasyncop *op : ops)
        vel_async_handle_destroy(op);
    vel_list_destroy(list);
}

TEST_F(VelasyncOperations, NothingCanceledIsNothingToDo)
{
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
    canceled a = {nullptr, "a", {}, nullptr};
    velasyncop *op = active(&a);
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
    EXPECT_EQ(called_, names{});
    vel_async_operations_remove_active(operations_, op);
    vel_async_handle_destroy(op);
}

/* The pass destroys the handles; the order is that of the cancels. */
TEST_F(VelasyncOperations, CanceledOnesAreServedInTheirOrder)
{
    canceled contexts[] = {
        {nullptr, "a", {}, nullptr}, {nullptr, "b", {}, nullptr}, {nullptr, "c", {}, nullptr}};
    velasyncop *ops[3];
    for (size_t i = 0; i < 3; i++)
        ops[i] = active(&contexts[i]);
    for (size_t i : {1u, 2u, 0u})
        vel_async_operations_cancel(operations_, ops[i]);
    EXPECT_EQ(called_, names{});
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
    EXPECT_EQ(called_, (names{"b", "c", "a"}));
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
    EXPECT_EQ(called_.size(), 3u);
}

TEST_F(VelasyncOperations, CancelsOfCallbacksBelongToTheSamePass)
{
    canceled c = {nullptr, "c", {}, nullptr};
    canceled d = {nullptr, "d", {}, nullptr};
    canceled b = {nullptr, "b", {active(&d)}, nullptr};
    canceled a = {nullptr, "a", {active(&c)}, nullptr};
    velasyncop *last = active(&b);
    vel_async_operations_cancel(operations_, active(&a));
    vel_async_operations_cancel(operations_, last);
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
    EXPECT_EQ(called_, (names{"a", "b", "c", "d"}));
}

using VelasyncOperationsDeathTest = VelasyncOperations;

TEST_F(VelasyncOperationsDeathTest, Arguments)
{
    vel_list list = {nullptr, nullptr};
    velasyncop *op = vel_async_handle_create(cancel, nullptr);
    EXPECT_DEATH(vel_async_handle_append(nullptr, nullptr),
                 asserts("velasyncop != NULL", "vel_async_handle_append"));
    EXPECT_DEATH(vel_async_handle_append(op, nullptr),
                 asserts("vel_list != NULL", "vel_async_handle_append"));
    EXPECT_DEATH(vel_async_handle_remove(nullptr, &list),
                 asserts("velasyncop != NULL", "vel_async_handle_remove"));
    EXPECT_DEATH(vel_async_handle_remove(op, nullptr),
                 asserts("vel_list != NULL", "vel_async_handle_remove"));
    EXPECT_DEATH(vel_async_operations_process_canceled(nullptr),
                 asserts("operations != NULL", "vel_async_operations_process_canceled"));
    EXPECT_DEATH(vel_async_operations_destroy(nullptr),
                 asserts("operations != NULL", "vel_async_operations_destroy"));
    EXPECT_DEATH(vel_async_operations_append_active(nullptr, op),
                 asserts("operations != NULL", "vel_async_operations_append_active"));
    EXPECT_DEATH(vel_async_operations_remove_active(nullptr, op),
                 asserts("operations != NULL", "vel_async_operations_remove_active"));
    EXPECT_DEATH(vel_async_operations_cancel(nullptr, op),
                 asserts("operations != NULL", "vel_async_operations_cancel"));
    EXPECT_DEATH(vel_async_operations_cancel(operations_, nullptr),
                 asserts("velasyncop != NULL", "vel_async_handle_remove"));
    EXPECT_DEATH(vel_async_handle_destroy(nullptr),
                 asserts("velasyncop != NULL", "vel_async_handle_destroy"));
    EXPECT_DEATH(vel_async_handle_cancel(nullptr),
                 asserts("velasyncop != NULL", "vel_async_handle_cancel"));
    vel_async_handle_destroy(op);
}

TEST_F(VelasyncOperationsDeathTest, DestroyWithOperations)
{
    canceled a = {nullptr, "a", {}, nullptr};
    velasyncop *op = active(&a);
    EXPECT_DEATH(vel_async_operations_destroy(operations_),
                 asserts("operations->activeops->head == NULL", "vel_async_operations_destroy"));
    vel_async_operations_cancel(operations_, op);
    EXPECT_DEATH(vel_async_operations_destroy(operations_),
                 asserts("operations->tocancelops->head == NULL", "vel_async_operations_destroy"));
    EXPECT_EQ(vel_async_operations_process_canceled(operations_), VEL_ERROR_NONE);
}

} // namespace
