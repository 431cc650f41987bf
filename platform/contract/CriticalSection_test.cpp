#include "platform/CriticalSection.h"

#include "platform/contract/ContractTest.h"

#include <atomic>

using namespace platform;

namespace contract {
namespace {

class CriticalSectionContract : public ContractTest {};

TEST_F(CriticalSectionContract, OnlyOneThreadIsInside)
{
    CCriticalSection section;
    std::atomic<bool> entered = false;
    section.Enter();
    CRunningThread thread([&] {
        section.Enter();
        entered = true;
        section.Leave();
    });
    LetPass(10);
    EXPECT_FALSE(entered);
    section.Leave();
    thread.Join();
    EXPECT_TRUE(entered);
}

TEST_F(CriticalSectionContract, AThreadLeavesAsOftenAsItEntered)
{
    CCriticalSection section;
    std::atomic<bool> entered = false;
    section.Enter();
    section.Enter();
    section.Enter();
    CRunningThread thread([&] {
        section.Enter();
        entered = true;
        section.Leave();
    });
    for (int i = 0; i < 2; ++i) {
        section.Leave();
        LetPass(5);
        EXPECT_FALSE(entered);
    }
    section.Leave();
    thread.Join();
    EXPECT_TRUE(entered);
}

TEST_F(CriticalSectionContract, WhatItGuardsIsNeverHalfDone)
{
    CCriticalSection section;
    int number = 0;
    const auto count = [&] {
        for (int i = 0; i < 20; ++i) {
            section.Enter();
            const int read = number;
            LetPass(1);
            number = read + 1;
            section.Leave();
        }
    };
    {
        const CRunningThread first(count);
        const CRunningThread second(count);
        const CRunningThread third(count);
    }
    EXPECT_EQ(number, 60);
}

} // namespace
} // namespace contract
