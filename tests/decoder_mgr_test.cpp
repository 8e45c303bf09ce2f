#include "decoder_mgr.h"

#include <framewell/media/stream.h>

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

namespace {

using ff::DecoderMgr;
using ff::g_decoder_mgr;

const ff::StreamCtx g_early_stream;

// Used before main(), and by its destructor after it.
struct EarlyHost {
    EarlyHost() : scheduler(&g_decoder_mgr().scheduler_of(&g_early_stream)) {}

    EarlyHost(const EarlyHost&) = delete;
    EarlyHost& operator=(const EarlyHost&) = delete;

    ~EarlyHost() { (void)g_decoder_mgr().scheduler_of(&g_early_stream).m_workers.size(); }

    DecoderMgr::Scheduler* const scheduler;
};

const EarlyHost g_early_host;

TEST(DecoderMgrTest, IsThereBeforeMain) {
    EXPECT_EQ(&g_decoder_mgr().scheduler_of(&g_early_stream), g_early_host.scheduler);
}

TEST(DecoderMgrTest, MakesAnEmptyPoolOnFirstUse) {
    DecoderMgr mgr;
    const ff::StreamCtx stream;
    EXPECT_TRUE(mgr.scheduler_of(&stream).m_workers.empty());
}

TEST(DecoderMgrTest, KeepsOnePoolPerStream) {
    DecoderMgr mgr;
    const std::array<ff::StreamCtx, 2> streams;
    EXPECT_NE(&mgr.scheduler_of(&streams[0]), &mgr.scheduler_of(&streams[1]));
    EXPECT_EQ(&mgr.scheduler_of(&streams[0]), &mgr.scheduler_of(&streams[0]));
    EXPECT_NE(&mgr.scheduler_of(nullptr), &mgr.scheduler_of(&streams[0]));
}

TEST(DecoderMgrTest, KeepsPoolsWhereTheyAreWhileOthersCome) {
    DecoderMgr mgr;
    const std::vector<ff::StreamCtx> streams(1000);
    std::vector<DecoderMgr::Scheduler*> pools;
    for (const ff::StreamCtx& stream : streams) {
        pools.push_back(&mgr.scheduler_of(&stream));
    }
    for (std::size_t i = 0; i < streams.size(); ++i) {
        EXPECT_EQ(&mgr.scheduler_of(&streams[i]), pools[i]);
    }
}

TEST(DecoderMgrTest, GivesAllThreadsTheSamePool) {
    DecoderMgr mgr;
    const ff::StreamCtx stream;
    std::array<DecoderMgr::Scheduler*, 8> pools{};
    std::vector<std::thread> threads;
    for (DecoderMgr::Scheduler*& pool : pools) {
        threads.emplace_back([&mgr, &stream, &pool] { pool = &mgr.scheduler_of(&stream); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const DecoderMgr::Scheduler* pool : pools) {
        EXPECT_EQ(pool, &mgr.scheduler_of(&stream));
    }
}

}  // namespace
