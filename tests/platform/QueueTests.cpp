#include "platform/DispatchQueue.h"
#include "platform/RunLoop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <latch>
#include <list>
#include <memory>
#include <thread>
#include <vector>

namespace platform {
namespace {

TEST(DispatchQueue, RunsStepsOneByOneInTheirOrderAndWaitingOnesOnTheirThread) {
    const DispatchQueue queue = DispatchQueue::serial("test.serial");
    std::vector<int> order;
    for (int round = 0; round < 100; ++round) {
        queue.async([&, round] { order.push_back(2 * round); });
        std::thread::id ranOn;
        queue.sync([&, round] {
            order.push_back(2 * round + 1);
            ranOn = std::this_thread::get_id();
            EXPECT_TRUE(queue.isCurrent());
            DispatchQueue::serial("inner").sync([&] {
                EXPECT_TRUE(queue.isCurrent()) << "a queue further out is still occupied";
                EXPECT_EQ(DispatchQueue::currentLabel(), "inner");
            });
        });
        EXPECT_EQ(ranOn, std::this_thread::get_id());
    }
    EXPECT_FALSE(queue.isCurrent());
    ASSERT_EQ(order.size(), 200u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(DispatchQueue, LetsWaitersAndStepsOfManyThreadsTakeTurns) {
    const DispatchQueue queue = DispatchQueue::serial("test.turns");
    int counter = 0;
    std::list<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            for (int turn = 0; turn < 200; ++turn)
                turn % 2 ? queue.async([&] { ++counter; }) : queue.sync([&] { ++counter; });
        });
    for (std::thread& thread : threads)
        thread.join();
    queue.sync([&] { EXPECT_EQ(counter, 1600); });
    EXPECT_THROW(queue.sync([] { throw 1; }), int);
    queue.sync([&] { ++counter; });
    EXPECT_EQ(counter, 1601) << "the queue is free after an exception";
}

TEST(DispatchQueue, ReleasesWhatAStepHoldsWhileItIsCurrent) {
    const DispatchQueue queue = DispatchQueue::serial("test.release");
    std::atomic<bool> wasCurrent = false;
    queue.async([held = std::shared_ptr<const DispatchQueue>(
                     &queue, [&](const DispatchQueue* it) { wasCurrent = it->isCurrent(); })] {});
    queue.sync([] {});
    EXPECT_TRUE(wasCurrent);
}

TEST(DispatchQueue, StartsMoreThreadsWhileOthersBlock) {
    constexpr int count = 40;
    // Shared, because the last to arrive may leave before the others have.
    const auto together = std::make_shared<std::latch>(count + 1);
    for (int i = 0; i < count; ++i)
        DispatchQueue::global().async([together] { together->arrive_and_wait(); });
    together->arrive_and_wait();
}

/// Steps that each wait behind a step of one queue, more than the pool has threads.
std::shared_ptr<std::latch> crowd() {
    constexpr int count = 200;
    auto done = std::make_shared<std::latch>(count);
    const DispatchQueue queue = DispatchQueue::serial("test.crowd");
    for (int i = 0; i < count; ++i)
        DispatchQueue::global().async([done, queue] {
            queue.async([] {});
            queue.sync([] {});
            done->count_down();
        });
    return done;
}

TEST(DispatchQueue, WaitersHoldUpNeitherTheStepsBeforeThemNorTheProcessesEnd) {
    crowd()->wait();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT((crowd(), std::exit(0)), testing::ExitedWithCode(0), "");
}

TEST(RunLoop, RunsStepsInOrderUntilItIsStoppedOrItsTimeIsOver) {
    RunLoop& loop = RunLoop::mainRunLoop();
    std::vector<int> order;
    loop.setTimer(&order, std::chrono::milliseconds(1), [&] { loop.stop(); });
    loop.perform([&] { order.push_back(1); });
    std::thread([&] { loop.perform([&] { order.push_back(2); }); }).join();
    EXPECT_TRUE(loop.run());
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
    EXPECT_FALSE(loop.run(std::chrono::milliseconds(1)));
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(std::thread([&] { loop.run(); }).join(), "run from another thread than the main one");
}

} // namespace
} // namespace platform
