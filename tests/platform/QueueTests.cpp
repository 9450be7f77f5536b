#include "platform/dispatch/DispatchQueue.h"
#include "support/JoiningThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <latch>
#include <list>
#include <memory>
#include <vector>

namespace platform {
namespace {

TEST(DispatchQueue, RunsStepsInOrderAndSynchronousOnesOnTheCallersThread) {
    const DispatchQueue queue = DispatchQueue::serial("test.serial");
    std::vector<int> order;
    for (int round = 0; round < 300; round += 3) {
        queue.async([&, round] { order.push_back(round); });
        queue.async([&, round] { order.push_back(round + 1); });
        queue.sync([&, round, caller = std::this_thread::get_id()] {
            order.push_back(round + 2);
            EXPECT_EQ(std::this_thread::get_id(), caller);
            DispatchQueue::serial("inner").sync(
                [&] { EXPECT_TRUE(queue.isCurrent()) << "an outer queue is current too"; });
        });
    }
    EXPECT_FALSE(queue.isCurrent());
    EXPECT_EQ(order.size(), 300u);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(DispatchQueue, DestroysAStepsCapturesWhileTheQueueIsCurrent) {
    const DispatchQueue queue = DispatchQueue::serial("test.turns");
    int counter = 0;
    {
        std::list<support::JoiningThread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] {
                for (int turn = 0; turn < 200; ++turn)
                    turn % 2 ? queue.async([&] { ++counter; }) : queue.sync([&] { ++counter; });
            });
    }
    EXPECT_THROW(queue.sync([] { throw 1; }), int);
    const auto countWhenReleased = [&](const DispatchQueue* it) {
        counter += it->isCurrent();
    };
    for (int step = 0; step < 400; ++step)
        queue.async([held = std::shared_ptr<const DispatchQueue>(&queue, countWhenReleased)] {});
    queue.sync([&] { EXPECT_EQ(counter, 2000); });
}

TEST(DispatchQueue, AbortsIfAStepWaitsForItsOwnQueue) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const DispatchQueue queue = DispatchQueue::serial("test.own"),
                        inner = DispatchQueue::serial("test.inner");
    EXPECT_DEATH(queue.sync([&] { inner.sync([&] { queue.sync([] {}); }); }),
                 "A step of the queue test.own waits for the same queue");
}

TEST(DispatchQueue, StartsMoreThreadsWhileOthersBlock) {
    constexpr int count = 40;
    // Shared, because this function may return before the other threads leave the latch.
    const auto together = std::make_shared<std::latch>(count + 1);
    for (int i = 0; i < count; ++i)
        DispatchQueue::global().async([together] { together->arrive_and_wait(); });
    together->arrive_and_wait();
}

/// More steps than the pool has threads, each waiting for another step of one queue.
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

TEST(DispatchQueue, WaitingThreadsBlockNeitherOtherStepsNorExit) {
    crowd()->wait();
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT((crowd(), std::exit(0)), testing::ExitedWithCode(0), "");
}

} // namespace
} // namespace platform
