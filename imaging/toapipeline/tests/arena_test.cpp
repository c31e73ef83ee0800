#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "log_capture.hpp"
#include "tpx3_pipeline/arena.hpp"
#include "tpx3_pipeline/blocking_queue.hpp"
#include "tpx3_pipeline/pool.hpp"
#include "tpx3_pipeline/recycler.hpp"
#include "tpx3_toa_extension/utils/memory_allocator.hpp"

namespace {

using tpx3_pipeline::Arena;
using tpx3_toa_extension::ArenaAllocator;
using ArenaPool = ovex::alloc::Pool<Arena>;

std::string Refusal(Arena::Settings settings) {
    try {
        Arena arena(settings);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "accepted";
}

TEST(Arena, SettingsAreCheckedInOrder) {
    EXPECT_EQ(Refusal({983040, 1966080}), "accepted");
    EXPECT_EQ(Refusal({983040, 1966086}), "Arena capacity is not divisible by arena block size.");
    EXPECT_EQ(Refusal({983041, 1966086}), "Arena block size is not divisible by arena alignment.");
    EXPECT_EQ(Refusal({4, 1966080}), "Arena block size is not divisible by Timepix3 packet size.");
    EXPECT_EQ(Refusal({0, 1966080}), "Arena capacity is not divisible by arena block size.");
    // A size that wraps past zero is smaller than four bytes.
    EXPECT_EQ(Refusal({6, ~std::uint64_t{0} - 4096 + 3}), "Invalid arena size 2 < 4");
}

TEST(Arena, NewArenaHasItsHeadRoomTaken) {
    Arena arena({6, 6 * 1000});
    EXPECT_EQ(arena.Size(), 6000u + 4096u);
    EXPECT_EQ(arena.Used(), 4096u);
    EXPECT_EQ(arena.FilledEnd(), 4096u);
    EXPECT_EQ(arena.Committed(), arena.Size());  // smaller than one commit step
    EXPECT_EQ(arena.Offsets(), std::vector<std::uint64_t>{0});
}

TEST(Arena, AllocationsRoundToTwoBytesAndAreWritable) {
    Arena arena({6, 6 * 1000});
    auto first = arena.Allocate(4097 - 4096);
    EXPECT_EQ(first.size(), 2u);
    EXPECT_EQ(first.data(), arena.Base() + 4096);
    auto second = arena.Allocate(3);
    EXPECT_EQ(second.size(), 4u);
    EXPECT_EQ(second.data(), arena.Base() + 4098);
    std::memset(second.data(), 0xAB, second.size());
    EXPECT_EQ(arena.Offsets(), (std::vector<std::uint64_t>{0, 4096, 4098}));
    EXPECT_THROW(arena.Allocate(6000), std::bad_alloc);
    EXPECT_EQ(arena.Allocate(4097).size(), 4098u);
}

TEST(Arena, CommitsInSteps) {
    const std::uint64_t block = 6 * 1024;
    Arena arena({block, block * 512});  // 3 MiB of payload
    EXPECT_EQ(arena.Committed(), Arena::kCommitStep);
    arena.Allocate(Arena::kCommitStep);  // larger than what is left committed: commits its size
    EXPECT_EQ(arena.Committed(), 2 * Arena::kCommitStep);
    auto span = arena.Allocate(block);  // fits in what is committed
    span[block - 1] = 1;
    EXPECT_EQ(arena.Committed(), 2 * Arena::kCommitStep);
    auto big = arena.Allocate(Arena::kCommitStep);
    big[Arena::kCommitStep - 1] = 1;
    EXPECT_EQ(arena.Committed(), 3 * Arena::kCommitStep);
}

TEST(Arena, ResetGivesTheStateOfANewArena) {
    const std::uint64_t block = 6 * 1024;
    Arena arena({block, block * 512});
    for (int i = 0; i < 300; ++i) {
        std::memset(arena.Allocate(block).data(), 0x5A, block);
    }
    arena.SetFilledEnd(12345);
    arena.Reset();
    EXPECT_EQ(arena.Used(), 4096u);
    EXPECT_EQ(arena.FilledEnd(), 4096u);
    EXPECT_EQ(arena.Committed(), Arena::kCommitStep);
    EXPECT_EQ(arena.Offsets().size(), 1u);
    // Decommitted memory comes back zeroed: nothing of the old contents survives.
    auto span = arena.Allocate(block);
    EXPECT_EQ(span[0], 0);
}

TEST(Pool, ReturnsResetArenasAndReusesThem) {
    auto pool = ArenaPool::Create(Arena::Settings{6, 6000});
    Arena* raw = nullptr;
    {
        auto arena = pool->Acquire();
        raw = arena.get();
        arena->Allocate(100);
        EXPECT_EQ(pool->FreeCount(), 0u);
    }
    EXPECT_EQ(pool->FreeCount(), 1u);
    auto again = pool->Acquire();
    EXPECT_EQ(again.get(), raw);
    EXPECT_EQ(again->Used(), 4096u);
    EXPECT_EQ(pool->FreeCount(), 0u);
}

TEST(Pool, ReserveMakesOnlyWhatIsMissing) {
    int made = 0;
    auto pool = ArenaPool::Create([&made] {
        ++made;
        return std::make_unique<Arena>(Arena::Settings{6, 6000});
    });
    pool->Reserve(3);
    EXPECT_EQ(made, 3);
    pool->Reserve(16);
    EXPECT_EQ(made, 16);
    EXPECT_EQ(pool->FreeCount(), 16u);
    pool->Reserve(5);
    EXPECT_EQ(made, 16);
}

TEST(Pool, ArenaOutlivingItsPoolIsDestroyed) {
    auto pool = ArenaPool::Create(Arena::Settings{6, 6000});
    auto arena = pool->Acquire();
    std::weak_ptr<ArenaPool> watch = pool;
    pool.reset();
    EXPECT_TRUE(watch.expired());
    arena.reset();  // must neither touch the pool nor leak (LSan checks the latter)
}

TEST(Pool, ConcurrentReturnsKeepEveryArena) {
    auto pool = ArenaPool::Create(Arena::Settings{6, 6000});
    pool->Reserve(8);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&pool] {
            for (int i = 0; i < 200; ++i) {
                auto a = pool->Acquire();
                auto b = pool->Acquire();
                a->Allocate(10);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_GE(pool->FreeCount(), 8u);
    EXPECT_LE(pool->FreeCount(), 8u + 8u);
}

TEST(Recycler, ReturnedObjectsAreClearedKeepTheirStorageAndComeBackFirst) {
    auto recycler = tpx3_pipeline::Recycler<std::vector<int>>::Create(
        [](std::vector<int>& v) noexcept { v.clear(); });
    auto a = recycler->Take();
    a->assign(1000, 7);
    const int* storage = a->data();
    std::vector<int>* object = a.get();
    a.reset();
    EXPECT_EQ(recycler->FreeCount(), 1u);
    auto b = recycler->Take();
    EXPECT_EQ(b.get(), object);
    EXPECT_TRUE(b->empty());
    EXPECT_EQ(b->data(), storage);  // cleared, not freed
    auto c = recycler->Take();      // none free: a new one
    EXPECT_NE(c.get(), object);
    // Objects that come back after their recycler has gone are destroyed (ASan sees any leak).
    recycler.reset();
    b.reset();
    c.reset();
}

TEST(ArenaAllocator, GoesBackToTheStartAsSoonAsTheRoomThereIsFree) {
    ArenaAllocator ring(100);
    auto* base = static_cast<std::uint8_t*>(ring.Allocate(40));
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(ring.Allocate(40), base + 40);
    ring.Deallocate(base, 16);
    EXPECT_EQ(ring.Used(), 40u);
    // 30 bytes fit in front of the block still out: the ring starts over there, not at 80.
    EXPECT_EQ(ring.Allocate(30), base);
    // Then behind the newest block, up to the older one.
    EXPECT_EQ(ring.Allocate(10), base + 30);
    EXPECT_EQ(ring.Used(), 80u);
    // 20 bytes: the 20 free at the end fit, behind the block that reaches furthest.
    EXPECT_EQ(ring.Allocate(20), base + 80);
    EXPECT_EQ(ring.Reach(), 100u);
}

TEST(ArenaAllocator, RefusesRatherThanHandOutRoomThatIsStillOut) {
    ArenaAllocator ring(100);
    void* a = ring.Allocate(40);
    void* b = ring.Allocate(40);
    ring.Deallocate(a, 16);
    void* c = ring.Allocate(30);
    EXPECT_EQ(c, a);
    // 30 bytes are free in all, but in two pieces of 10 and 20: refused.
    ovex::testing::LogCapture log;
    EXPECT_EQ(ring.Allocate(25), nullptr);
    EXPECT_EQ(log.Count(ovex::log::kError, "Arena allocator failed to allocate block of size 25"),
              1);
    // A block returned out of order frees its room at once.
    ring.Deallocate(b, 16);
    EXPECT_EQ(ring.Allocate(70), static_cast<std::uint8_t*>(a) + 30);
    ring.Deallocate(c, 16);
    EXPECT_EQ(ring.Used(), 70u);
}

TEST(ArenaAllocator, BlocksOutNeverOverlapAndTheRingStaysCompact) {
    // Blocks of mixed sizes come back mostly oldest first, now and then out of order.
    ArenaAllocator ring(1 << 20);
    std::mt19937 random(3);
    std::vector<std::pair<std::uint8_t*, std::size_t>> out;
    std::size_t most_out = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::size_t bytes = 16 * (1 + random() % 256);
        auto* block = static_cast<std::uint8_t*>(ring.Allocate(bytes));
        ASSERT_NE(block, nullptr);
        for (const auto& [other, size] : out) {
            ASSERT_TRUE(block + bytes <= other || other + size <= block) << "block " << i;
        }
        out.emplace_back(block, bytes);
        std::size_t bytes_out = 0;
        for (const auto& taken : out) {
            bytes_out += taken.second;
        }
        ASSERT_EQ(ring.Used(), bytes_out);
        most_out = std::max(most_out, bytes_out);
        while (out.size() > 1 + random() % 12) {
            const std::size_t which = random() % 8 == 0 ? random() % out.size() : 0;
            ring.Deallocate(out[which].first, 16);
            out.erase(out.begin() + static_cast<std::ptrdiff_t>(which));
        }
    }
    // What the ring has touched stays within a small multiple of what was ever out at once.
    EXPECT_LT(ring.Reach(), 4 * most_out);
}

TEST(ArenaAllocator, RefusesMoreThanItsCapacity) {
    ovex::testing::LogCapture log;
    ArenaAllocator ring(64);
    EXPECT_EQ(ring.Allocate(65), nullptr);
    EXPECT_EQ(log.Count(ovex::log::kError, "Arena allocator failed to allocate block of size 65"),
              1);
    EXPECT_EQ(ring.Used(), 0u);
}

TEST(ArenaAllocator, ConcurrentTakerAndReturnerBalance) {
    // A small ring: the taker must wait for the returner again and again.
    ArenaAllocator ring(4096);
    tpx3_pipeline::BlockingQueue<void*> handed(64);
    constexpr int kBlocks = 5000;
    std::thread returner([&] {
        for (int i = 0; i < kBlocks; ++i) {
            void* block = handed.Pop();
            EXPECT_EQ(static_cast<std::uint8_t*>(block)[0], static_cast<std::uint8_t>(i));
            ring.Deallocate(block, 16);
        }
    });
    for (int i = 0; i < kBlocks; ++i) {
        void* block = nullptr;
        while ((block = ring.Allocate(256 + 16 * (i % 7))) == nullptr) {
            std::this_thread::yield();
        }
        static_cast<std::uint8_t*>(block)[0] = static_cast<std::uint8_t>(i);
        handed.Push(block);
    }
    returner.join();
    EXPECT_EQ(ring.Used(), 0u);
}

}  // namespace
