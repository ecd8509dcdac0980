#pragma once

#include <thread>
#include <vector>

namespace KoTest
{

/// Runs a call in several threads at once, with their indices, and waits for all.
template <typename Call>
void inThreads(int count, Call call)
{
    std::vector<std::thread> threads;
    for (int index = 0; index < count; ++index)
        threads.emplace_back([&call, index] { call(index); });
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace KoTest
