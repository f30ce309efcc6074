#pragma once

#include <atomic>
#include <cstddef>

/// The allocations of a test program, which are counted and may be made to fail. A program that
/// lists Allocations.cpp among its sources has its operators new and delete.
struct Allocations {
    static std::atomic<long> madeCM;
    static std::atomic<long> heldCM;
    static std::atomic<long> bytesHeldCM;
    /// Allocations of more bytes fail.
    static std::atomic<std::size_t> largestCM;

    /// Starts to watch how many bytes are held, and gives how many they are now.
    static long startPeak();
    /// The most bytes held since `startPeak`.
    static long peak();

    /// Lets `count` allocations succeed and the next one fail; those after it succeed again.
    static void failAfter(long count);
    /// Lets all succeed. Whether one has failed since `failAfter`.
    static bool endFailing();
};
