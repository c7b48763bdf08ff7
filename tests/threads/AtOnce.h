// Work that several threads do at the same time.
#pragma once

#include "Latch.h"

#include <exception>
#include <functional>
#include <string>
#include <thread>
#include <vector>

inline constexpr int kThreads = 4;

/// What `work` returned for each number, or said when it threw. All begin together, and no other thread has done the work
/// before: what is made at the first use is made by all of them.
inline std::vector<std::string> AtOnce(const std::function<std::string(int)>& work) {
    std::vector<std::string> results(kThreads);
    Latch start(kThreads);
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            start.ArriveAndWait();
            try {
                results[static_cast<std::size_t>(number)] = work(number);
            } catch (const std::exception& failure) {
                results[static_cast<std::size_t>(number)] = std::string("threw: ") + failure.what();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    return results;
}

/// The same, one after the other.
inline std::vector<std::string> InTurn(const std::function<std::string(int)>& work) {
    std::vector<std::string> results;
    for (int number = 0; number < kThreads; ++number) results.push_back(work(number));
    return results;
}
