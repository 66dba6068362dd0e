// The scheduler the application runs its timed work on, over the real event loop.

#include "core/qt_scheduler.h"

#include "support/core_app.h"

#include <gtest/gtest.h>

#include <string>

using namespace tappix;
using namespace std::chrono_literals;

// Tasks run once, in the order they fall due; a cancelled one never runs; an id that has
// run or been cancelled cancels nothing later (timer ids are reused by the event loop); a
// task may schedule more work, and a burst of reschedules (the statistics' flush moved on
// every key) leaves exactly one task.
TEST(QtScheduler, RunsEachTaskOnceInOrderAndCancelsOnlyWhatIsPending) {
    test::app();
    QtScheduler scheduler;
    std::string ran;
    const auto late = scheduler.schedule(400ms, [&] { ran += "late "; });
    const auto dropped = scheduler.schedule(10ms, [&] { ran += "dropped "; });
    Scheduler::TaskId first = scheduler.schedule(5ms, [&] {
        ran += "first ";
        scheduler.schedule(1ms, [&] { ran += "chained "; });
    });
    scheduler.cancel(dropped);
    ASSERT_TRUE(test::waitFor([&] { return ran.find("chained") != std::string::npos; }, 2000));
    // `first` and `dropped` are spent: their ids must not reach the tasks made after them.
    Scheduler::TaskId moved = 0;
    for (int key = 0; key < 50; ++key) {
        scheduler.cancel(moved);
        moved = scheduler.schedule(20ms, [&] { ran += "flush "; });
    }
    scheduler.cancel(first);
    scheduler.cancel(dropped);
    ASSERT_TRUE(test::waitFor([&] { return ran.find("flush") != std::string::npos; }, 2000));
    ASSERT_TRUE(test::waitFor([&] { return ran.find("late") != std::string::npos; }, 2000));
    test::waitFor([] { return false; }, 50); // nothing else falls due
    EXPECT_EQ(ran, "first chained flush late ");
    scheduler.cancel(late);
}
